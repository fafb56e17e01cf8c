#include "tests/history/DecapEvents.h"

#include "platform/Toggles.h"
#include "records/BriskelInputs.h"
#include "records/Fib.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/MembershipJoin.h"
#include "records/Mlag.h"
#include "records/MulticastIntfs.h"
#include "records/Policy.h"
#include "records/VrfLeak.h"
#include "records/Vxlan.h"
#include "tests/history/Inputs.h"

namespace History {
namespace {

using Bridging::VlanId;
using L3::VrfName;
using Pavlin::IntfId;
using Pavlin::IpGenAddr;
using Routing::Multicast::UnderlayRoute;
namespace Gmp = Irb::Multicast::Gmp;

constexpr const char* wentText = " goes";

/// Few underlay routes, so that vlan groups, domains and floods want one row.
UnderlayRoute route(EventGenerator& random) {
  return Vesk::valueOf<UnderlayRoute>(random.pick<std::string>(
      {"10.0.0.8,232.1.1.1,PimSsm", "10.0.0.8,232.1.1.1,PimAsm", "10.0.0.9,232.1.1.1,PimSsm",
       "10.0.0.9,232.1.1.2,PimSsm", "0.0.0.0,225.1.1.1,PimAsm", "0.0.0.0,225.1.1.2,PimAsm",
       "fd00::9,ff3e::1,PimSsm", "fd00::9,ff3e::2,PimSsm"}));
}

auto decapStatus(EventGenerator& random, Pavlin::AddressFamily af) {
  using namespace Routing::Multicast;
  return inputAt<IpTunnelVlanGroupStatus>(IpTunnelVlanGroupStatus::mountPath(
      af, random.draw(3) == 0 ? irbRemoteDomainDecapStatus() : irbDecapStatus()));
}

}  // namespace

/// Those that count everywhere, in both domains, in the local one. Few in one share: the files of
/// each are opened at every start.
DecapEvents::Clients DecapEvents::clientsOf(std::uint64_t share) {
  using enum Irb::Multicast::App::Client;
  constexpr std::array<Clients, 5> sets{{{client0, client5, client11},
                                         {client2, client8, client12},
                                         {client4, client9, client11},
                                         {client0, client10, client12},
                                         {client2, client13, client11}}};
  return sets[share % sets.size()];
}

Pavlin::AddressFamily DecapEvents::family() {
  return random_.draw(4) == 0 ? Pavlin::ipv6() : Pavlin::ipv4();
}

VlanId DecapEvents::vlan() {
  return VlanId(random_.pick<unsigned>({10, 10, 20, 30, 100, 100, 200}));
}

IpGenAddr DecapEvents::group(Pavlin::AddressFamily af) {
  const bool v4 = af == Pavlin::ipv4();
  switch (random_.draw(6)) {
    case 0:
      return IpGenAddr(af);
    case 1:
      return IpGenAddr::fromText(v4 ? "239.2.2.2" : "ff0e::22");
    default:
      return IpGenAddr::fromText(v4 ? "239.1.1.1" : "ff0e::11");
  }
}

void DecapEvents::baseline() {
  if (random_.mostly()) {
    const auto enabled = input<Vxlan::EnabledStatus>();
    for (const auto& [vrf, sbd] : {std::pair("red", 100), std::pair("blue", 200)}) {
      enabled->vrfToSBDVlanIs(VrfName(vrf), static_cast<std::uint16_t>(sbd));
      enabled->sbdVlanToVrfIs(static_cast<std::uint32_t>(sbd), VrfName(vrf));
    }
  }
  if (random_.draw(3) == 0) newLeak();
  for (int i = 0; i < 8; ++i)
    (void)senderEvent();
  for (int i = 0; i < 4; ++i)
    (void)proxyEvent();
  for (int i = 0; i < 4; ++i)
    (void)clientEvent();
}

/// What a receiver in vlan 10 joins leaks out of red, and nothing else is a reason to join it.
void DecapEvents::newLeak() {
  const auto list = input<Acl::AclListConfig>()->prefixListIs("a");
  for (const auto* prefix : {"239.1.0.0/16", "ff0e::10/124"})
    list->prefixIs(Pavlin::IpGenPrefix::fromText(prefix));
  using Config = Routing::Multicast::VrfLeak::McastVrfLeakConfig;
  for (const auto af : Pavlin::families)
    input<Config>(af)->vrfConfigIs(VrfName("red"))->leakPrefixListIs("a", VrfName("green"));

  using Irb::Multicast::IgmpProxyStatus;
  using Intfs = Routing::Multicast::MulticastIntfsForApplications;
  constexpr auto af = Pavlin::AddressFamily::ipv4;
  const auto joined = IpGenAddr::fromText("239.1.1.1");
  sharedInput<IgmpProxyStatus>(IgmpProxyStatus::mergedAfMountPath(af))->igmpProxyVlanIs(VlanId(10));
  input<Routing::Multicast::Fib::VrfEnabledStatus>(af)->vrfIs(VrfName("red"));
  inputAt<Intfs>(Intfs::dirMountPath(af, "routing") + "/red")
      ->multicastIntfIs(Pavlin::VlanIntfId::vlanIdToIntfId(VlanId(10)), true);
  sharedInput<Gmp::MembershipJoinStatus>(Gmp::MembershipJoinStatus::mountPath(af, clients_[0]))
      ->vlanIs(VlanId(10))
      ->groupIs(joined);
  decapStatus(random_, af)
      ->vlanToMulticastGroupIs({VlanId(100), Routing::Multicast::OverlayAddr(joined)})
      ->multicastGroupIs(route(random_));
}

std::string DecapEvents::next() {
  constexpr std::array<std::pair<Event, unsigned>, 9> kinds{{{&DecapEvents::clientEvent, 22},
                                                             {&DecapEvents::peerEvent, 14},
                                                             {&DecapEvents::senderEvent, 18},
                                                             {&DecapEvents::floodEvent, 8},
                                                             {&DecapEvents::proxyEvent, 12},
                                                             {&DecapEvents::claimEvent, 6},
                                                             {&DecapEvents::mlagEvent, 8},
                                                             {&DecapEvents::gatewayEvent, 6},
                                                             {&DecapEvents::leakEvent, 6}}};
  auto left = random_.draw(100);
  for (const auto& [event, weight] : kinds) {
    if (left < weight) return (this->*event)();
    left -= weight;
  }
  return {};
}

std::string DecapEvents::clientEvent() {
  const auto af = family();
  const auto client = clients_[random_.draw(4) % clients_.size()];
  const auto status =
      sharedInput<Gmp::MembershipJoinStatus>(Gmp::MembershipJoinStatus::mountPath(af, client));
  const VlanId in = vlan();
  const std::string who = Irb::Multicast::App::stringValue(client) + " in vlan " + Vesk::textOf(in);
  if (random_.draw(12) == 0) {
    status->vlanDel(in);
    return who + wentText;
  }
  if (random_.draw(60) == 0) {
    status->vlanDelAll();
    return who + " and everywhere" + wentText;
  }
  const IpGenAddr joined = group(af);
  const auto membership = status->vlanIs(in);
  if (random_.draw(3) == 0) {
    membership->groupDel(joined);
    return who + " leaves " + Vesk::textOf(joined);
  }
  membership->groupIs(joined);
  return who + " joins " + Vesk::textOf(joined);
}

std::string DecapEvents::peerEvent() {
  const auto af = family();
  const auto status = sharedInput<Gmp::MembershipJoinStatus>(
      Gmp::MembershipJoinStatus::mountPath(af, Gmp::peerClient));
  const VlanId in = vlan();
  const IpGenAddr joined = group(af);
  const std::string who = "the peer in vlan " + Vesk::textOf(in) + " " + Vesk::textOf(joined);
  switch (random_.draw(12)) {
    case 0:
      status->vlanDel(in);
      return "the peer in vlan " + Vesk::textOf(in) + wentText;
    case 1:
      status->vlanIs(in)->groupDel(joined);
      return who + wentText;
    case 2:
      status->vlanIs(in)->groupIs(joined)->sourceDel(IpGenAddr(af));
      return who + " has no source";
    default:
      break;
  }
  const auto source = status->vlanIs(in)->groupIs(joined)->sourceIs(IpGenAddr(af));
  const IntfId intf(random_.pick<std::string>({"Ethernet1", "McastTunnel1", "McastTunnel2"}));
  const bool comes = random_.draw(2) == 0;
  if (random_.draw(2) == 0) {
    comes ? source->firstIntfIs(intf) : source->firstIntfDel(intf);
  } else {
    comes ? source->secondIntfIs(intf) : source->secondIntfDel(intf);
  }
  return who + (comes ? " wants it on " : " leaves it on ") + Vesk::textOf(intf);
}

std::string DecapEvents::senderEvent() {
  const auto af = family();
  const auto status = decapStatus(random_, af);
  const Routing::Multicast::OverlayVlanGroup key{vlan(),
                                                 Routing::Multicast::OverlayAddr(group(af))};
  const std::string words = status->name() + " " + Vesk::textOf(key);
  if (random_.draw(8) == 0) {
    status->vlanToMulticastGroupDel(key);
    return words + wentText;
  }
  const auto entry = status->vlanToMulticastGroupIs(key);
  const UnderlayRoute underlay = route(random_);
  if (random_.draw(3) == 0) {
    entry->multicastGroupDel(underlay);
    return words + " loses " + Vesk::textOf(underlay);
  }
  entry->multicastGroupIs(underlay);
  return words + " comes in " + Vesk::textOf(underlay);
}

std::string DecapEvents::floodEvent() {
  const auto status = decapStatus(random_, family());
  const VlanId of = vlan();
  const std::string words = "flood of vlan " + Vesk::textOf(of);
  if (random_.draw(6) == 0) {
    status->vlanToFloodGroupDel(of);
    return words + wentText;
  }
  const UnderlayRoute underlay = route(random_);
  const auto flood = status->vlanToFloodGroupIs(of);
  const bool comes = random_.draw(2) == 0;
  comes ? flood->floodGroupIs(underlay) : flood->floodGroupDel(underlay);
  return words + (comes ? " in " : " not in ") + Vesk::textOf(underlay);
}

std::string DecapEvents::proxyEvent() {
  using Irb::Multicast::IgmpProxyStatus;
  const auto af = family();
  const auto proxy = sharedInput<IgmpProxyStatus>(IgmpProxyStatus::mergedAfMountPath(af));
  const VlanId of = vlan();
  const bool on = random_.draw(4) != 0;
  on ? proxy->igmpProxyVlanIs(of) : proxy->igmpProxyVlanDel(of);
  return "vlan " + Vesk::textOf(of) + (on ? " is proxied" : " is not proxied");
}

/// An MPLS claim needs a name for its id, and says what VXLAN says for the VRF where somebody
/// minds.
std::string DecapEvents::claimEvent() {
  const Vrf::VrfIdMap::VrfId id(static_cast<std::uint32_t>(1 + random_.draw(3)));
  const auto claims = sharedInput<Routing::Multicast::MvpnIntfStatus>();
  const VrfName name = sharedInput<Vrf::VrfIdMap::Status>()->vrfIdToName(id).vrfName;
  if (name.empty() || random_.draw(3) == 0) {
    claims->vrfIntfIdDel(id);
    return "MPLS claims nothing for VRF number " + Vesk::textOf(id);
  }
  const auto vti = input<Vxlan::VtiStatusDir>()->vtiStatus(Pavlin::vxlan1IntfId());
  const auto claimed = vti ? vti->vrfToSBDVlan(name) : Bridging::VlanIdOrNone();
  const unsigned own = name.str() == "red" ? 100 : name.str() == "blue" ? 200 : 300;
  unsigned vlan = claimed.isNone() ? own : claimed.value();
  if (!Multicast::Vpn::toggleOismMplsTunnelEnabled())
    vlan = random_.pick<unsigned>({vlan, own, 10, 300});
  const auto intf = random_.pick<std::string>({"Vlan5000", "MplsTrunk1", "", "", "", "", "", ""});
  const IntfId claim(intf.empty() ? "Vlan" + std::to_string(vlan) : intf);
  claims->vrfIntfIdIs({id, claim});
  return "MPLS claims " + claim.stringValue() + " for VRF number " + Vesk::textOf(id);
}

std::string DecapEvents::mlagEvent() {
  const auto status = input<Mlag::Status>();
  const auto proto = input<Mlag::ProtoStatus>();
  const auto peers = input<Mlag::VxlanStatus>();
  constexpr auto peer = Vxlan::VtepType::vtepType1;
  switch (random_.draw(6)) {
    case 0:
    case 1: {
      using enum Mlag::MlagState;
      status->mlagStateIs(random_.pick({disabled, primary, primary, secondary, secondary}));
      return "MLAG " + Vesk::textOf(status->mlagState());
    }
    case 2:
      status->failoverIs(random_.draw(3) == 0);
      return status->failover() ? "MLAG failover" : "no MLAG failover";
    case 3:
      proto->portsErrdisabledIs(random_.draw(2) == 0);
      return proto->portsErrdisabled() ? "reload delay" : "no reload delay";
    case 4:
      proto->mlagVersionIs(random_.pick<std::uint32_t>({10, 11, 12}));
      return "MLAG version " + std::to_string(proto->mlagVersion());
    default:
      peers->vtepTypeAddrIs(peer, Pavlin::IpAddr::fromText(random_.pick<std::string>(
                                      {"10.0.0.1", "10.0.0.2", "10.0.0.8", "0.0.0.0"})));
      peers->vtepTypeAddr6Is(
          peer, Pavlin::Ip6Addr::fromText(random_.pick<std::string>({"fd00::2", "::"})));
      return "peer VTEP " + Vesk::textOf(peers->vtepTypeAddr(peer));
  }
}

std::string DecapEvents::gatewayEvent() {
  const auto gateway = sharedInput<Irb::Multicast::GatewayEsStatus>();
  if (random_.draw(2) == 0) {
    const UnderlayRoute underlay = route(random_);
    const bool lets = random_.draw(3) != 0;
    lets ? gateway->underlayRouteStatusIs(underlay, random_.draw(4) != 0)
         : gateway->underlayRouteStatusDel(underlay);
    return "gateway names " + Vesk::textOf(underlay);
  }
  const VlanId of = vlan();
  if (random_.draw(3) == 0) {
    gateway->esVlanStatusDel(of);
    return "gateway vlan " + Vesk::textOf(of) + wentText;
  }
  const auto state = static_cast<Irb::Multicast::GatewayVlanState>(random_.pick<int>({0, 0, 1, 2}));
  gateway->esVlanStatusIs({of, state});
  return "gateway vlan " + Vesk::textOf(of) + " is " + Vesk::textOf(state);
}

/// A VRF's SBD vlan comes into force or goes out of it. Only what the VRF leaks makes anybody look
/// again, so that changes after it: a list that does not exist.
std::string DecapEvents::enabledEvent() {
  const auto enabled = input<Vxlan::EnabledStatus>();
  const bool isRed = random_.draw(2) == 0;
  const VrfName vrf(isRed ? "red" : "blue");
  const std::uint16_t sbd = isRed ? 100 : 200;
  const bool on = random_.draw(3) != 0;
  enabled->vrfToSBDVlanIs(vrf, sbd);
  on ? enabled->sbdVlanToVrfIs(sbd, vrf) : enabled->sbdVlanToVrfDel(sbd);
  for (const auto af : Pavlin::families) {
    const auto leaks = input<Routing::Multicast::VrfLeak::McastVrfLeakConfig>(af)->vrfConfigIs(vrf);
    leaks->leakPrefixListHas("none") ? leaks->leakPrefixListDel("none")
                                     : leaks->leakPrefixListIs("none", VrfName("green"));
  }
  return "SBD vlan of " + vrf.str() + (on ? " in force" : " not in force");
}

std::string DecapEvents::leakEvent() {
  if (random_.draw(5) == 0) return enabledEvent();
  const auto af = family();
  const auto name = random_.pick<std::string>({"a", "b"});
  if (random_.draw(12) == 0) {
    input<Acl::AclListConfig>()->prefixListDel(name);
    return "list " + name + wentText;
  }
  if (random_.draw(2) == 0) {
    const auto list = input<Acl::AclListConfig>()->prefixListIs(name);
    const auto prefix = Pavlin::IpGenPrefix::fromText(
        random_.pick<std::string>({"239.1.0.0/16", "239.2.0.0/16", "ff0e::10/124"}));
    const bool comes = random_.draw(2) == 0;
    comes ? list->prefixIs(prefix) : list->prefixDel(prefix);
    return "list " + name + (comes ? " holds " : " loses ") + Vesk::textOf(prefix);
  }
  const VrfName vrf(random_.pick<std::string>({"red", "blue"}));
  const auto leaks = input<Routing::Multicast::VrfLeak::McastVrfLeakConfig>(af)->vrfConfigIs(vrf);
  const bool comes = random_.draw(2) == 0;
  comes ? leaks->leakPrefixListIs(name, VrfName(random_.draw(6) == 0 ? "" : "green"))
        : leaks->leakPrefixListDel(name);
  return "list " + name + (comes ? " leaks out of " : " does not leak out of ") +
         std::string(vrf.str());
}

}  // namespace History
