#include "tests/history/EventGenerator.h"

#include "platform/Toggles.h"
#include "records/AgentStatus.h"
#include "records/Bridging.h"
#include "records/BriskelInputs.h"
#include "records/Evpn.h"
#include "records/Fib.h"
#include "records/MulticastIntfs.h"
#include "records/Vxlan.h"
#include "tests/history/Inputs.h"

namespace History {
namespace {

using Bridging::VlanId;
using L3::VrfName;
using Pavlin::IpGenAddr;
using Routing::Multicast::OverlayAddr;
using Routing::Multicast::UnderlayAddr;

using Intfs = Routing::Multicast::MulticastIntfsForApplications;

constexpr std::array<const char*, 3> vrfs{"red", "blue", "green"};

const Pavlin::IntfId& vxlan1() {
  static const Pavlin::IntfId intf = Pavlin::vxlan1IntfId();
  return intf;
}

template <class T>
T parsed(const std::string& text) {
  return Vesk::valueOf<T>(text);
}

}  // namespace

std::string EventGenerator::next() {
  unsigned all = 0;
  for (const Kind& kind : kinds_)
    all += kind.weight;
  auto left = draw(all);
  const Kind* kind = kinds_.data();
  for (; left >= kind->weight; ++kind)
    left -= kind->weight;
  std::string words = (this->*kind->event)();
  if (listener_) listener_();
  return words;
}

void EventGenerator::baseline() {
  for (Kind& kind : kinds_)
    kind.weight *= pick<unsigned>({1, 1, 1, 5});
  if (mostly()) input<Bridging::IgmpSnooping::Status>()->snoopingActiveIs(1);
  if (mostly()) input<Bridging::IgmpSnooping::Config>()->snoopingEnabledIs(true);
  if (mostly()) sharedInput<Irb::Multicast::GatewayEsStatus>()->esVlanStatusIs({VlanId(10), {}});
  input<McastCommon::AgentStatus>(Pavlin::ipv4())->multicastRoutingIs(true);
  for (const unsigned vlan : {10U, 20U, 30U, 100U, 200U})
    if (mostly()) input<Bridging::VlanStatusDir>()->vlanStatusIs(VlanId(vlan));
  newVti();
  newVrfs();
  for (const auto domain :
       {Irb::Multicast::Domain::localDomain, Irb::Multicast::Domain::remoteDomain})
    newIntfConfig(domain);
}

void EventGenerator::newVti() {
  for (const auto* vrf : vrfs)
    takeMplsClaims(VrfName(vrf));
  const auto vti = input<Vxlan::VtiStatusDir>()->vtiStatusIs(vxlan1());
  if (mostly()) vti->operStatusIs(Vxlan::IntfOperStatus::up);
  if (mostly()) vti->localVtepAddrIs(parsed<Pavlin::IpAddr>("10.0.0.1"));
  for (const unsigned vlan : {10U, 20U, 30U, 100U, 200U})
    if (mostly()) vti->vlanToVniMapIs(VlanId(vlan), {});
  if (mostly()) vti->vrfToSBDVlanIs(VrfName("red"), Bridging::VlanIdOrNone(100));
  if (mostly()) vti->vrfToSBDVlanIs(VrfName("blue"), Bridging::VlanIdOrNone(200));
  if (draw(2) == 0) vti->vrfToSBDVlanIs(VrfName("green"), Bridging::VlanIdOrNone(100));
}

/// Interfaces are many or few, and several VRFs may hold one.
void EventGenerator::newVrfs() {
  const auto sparseness = pick<std::uint64_t>({2, 4, 12});
  for (const auto af : Pavlin::families)
    for (const std::string vrf : {"red", "blue", "green", "default"}) {
      if (draw(3) != 0) input<Routing::Multicast::Fib::VrfEnabledStatus>(af)->vrfIs(VrfName(vrf));
      const auto path = Intfs::dirMountPath(af, pick<std::string>({"routing", "bridging"}));
      for (const unsigned vlan : {10U, 20U, 30U, 100U})
        if (draw(sparseness) == 0)
          inputAt<Intfs>(path + "/" + vrf)
              ->multicastIntfIs(
                  Pavlin::VlanIntfId::vlanIdToIntfId(static_cast<std::uint16_t>(vlan)), true);
    }
}

void EventGenerator::newIntfConfig(Irb::Multicast::Domain domain) {
  const auto config = groupConfig(domain)->intfConfigIs(vxlan1());
  config->mcastOverlayV4Is(mostly());
  config->mcastOverlayV6Is(mostly());
  for (const auto* vrf : vrfs) {
    if (!mostly()) continue;
    const auto entry = config->vrfToMulticastGroupIs(VrfName(vrf))->tunnelConfigEntryIs();
    entry->defaultUnderlayGroupIs(UnderlayAddr(underlayGroup()));
    if (draw(2) == 0) entry->underlayGroupRangeIs(parsed<Pavlin::IpGenPrefix>("232.77.0.0/24"));
  }
}

void takeMplsClaims(const VrfName& vrf) {
  if (!Multicast::Vpn::toggleOismMplsTunnelEnabled()) return;
  const auto claims = sharedInput<Routing::Multicast::MvpnIntfStatus>();
  for (const auto& [id, entry] : sharedInput<Vrf::VrfIdMap::Status>()->vrfIdToNameIterator())
    if (entry.vrfName == vrf) claims->vrfIntfIdDel(id);
}

std::string EventGenerator::vlanEvent() {
  const auto dir = input<Bridging::VlanStatusDir>();
  const VlanId vlan(pick<unsigned>({10, 20, 30, 100, 200}));
  if (draw(4) == 0) {
    dir->vlanStatusDel(vlan);
    return "vlan " + Vesk::textOf(vlan) + " goes";
  }
  dir->vlanStatusIs(vlan);
  return "vlan " + Vesk::textOf(vlan) + " comes";
}

std::string EventGenerator::vtiEvent() {
  const auto dir = input<Vxlan::VtiStatusDir>();
  if (!dir->vtiStatusHas(vxlan1())) {
    newVti();
    return "Vxlan1 comes";
  }
  if (draw(60) == 0) {
    dir->vtiStatusDel(vxlan1());
    return "Vxlan1 goes";
  }
  const auto vti = dir->vtiStatusIs(vxlan1());
  switch (draw(6)) {
    case 0: {
      const bool up = draw(4) != 0;
      vti->operStatusIs(up ? Vxlan::IntfOperStatus::up : Vxlan::IntfOperStatus::down);
      return up ? "Vxlan1 up" : "Vxlan1 down";
    }
    case 1: {
      const auto text = pick<std::string>({"10.0.0.1", "10.0.0.1", "10.0.0.9", "0.0.0.0"});
      vti->localVtepAddrIs(parsed<Pavlin::IpAddr>(text));
      return "VTEP " + text;
    }
    case 2: {
      const auto text = pick<std::string>({"fd00::1", "fd00::1", "::"});
      vti->localVtepAddr6Is(parsed<Pavlin::Ip6Addr>(text));
      return "VTEP " + text;
    }
    case 3: {
      const auto sbd = pick<unsigned>({100, 100, 200, 200, 10, 20, 0});
      const VrfName vrf(vrfs[draw(vrfs.size())]);
      takeMplsClaims(vrf);
      if (draw(4) == 0) {
        vti->vrfToSBDVlanDel(vrf);
        return std::string(vrf.str()) + " has no SBD vlan";
      }
      vti->vrfToSBDVlanIs(vrf, Bridging::VlanIdOrNone(sbd));
      return std::string(vrf.str()) + " has SBD vlan " + std::to_string(sbd);
    }
    default: {
      const VlanId vlan(pick<unsigned>({10, 20, 30, 100, 200}));
      if (draw(4) == 0) {
        vti->vlanToVniMapDel(vlan);
        return "vlan " + Vesk::textOf(vlan) + " has no VNI";
      }
      vti->vlanToVniMapIs(vlan, {});
      return "vlan " + Vesk::textOf(vlan) + " has a VNI";
    }
  }
}

std::string EventGenerator::vrfEvent() {
  const auto af = draw(3) == 0 ? Pavlin::ipv6() : Pavlin::ipv4();
  const auto vrf = pick<std::string>({"red", "blue", "green", "default"});
  if (draw(3) == 0) {
    const auto enabled = input<Routing::Multicast::Fib::VrfEnabledStatus>(af);
    if (draw(2) == 0) {
      enabled->vrfDel(VrfName(vrf));
      return "multicast off in " + vrf;
    }
    enabled->vrfIs(VrfName(vrf));
    return "multicast on in " + vrf;
  }
  const auto app = pick<std::string>({"routing", "bridging"});
  const auto path = Intfs::dirMountPath(af, app);
  if (draw(15) == 0) {
    inputDir(Intfs::dirMountPath(af))->deleteEntity(app);
    return app + " leaves";
  }
  if (draw(12) == 0) {
    inputDir(path)->deleteEntity(vrf);
    return app + " leaves " + vrf;
  }
  const auto intfs = inputAt<Intfs>(path + "/" + vrf);
  const auto svi = Pavlin::VlanIntfId::vlanIdToIntfId(
      static_cast<std::uint16_t>(pick<unsigned>({10, 20, 30, 100, 5000})));
  const std::string words = app + " in " + vrf + ": " + svi.stringValue();
  if (draw(3) == 0) {
    intfs->multicastIntfDel(svi);
    return words + " goes";
  }
  intfs->multicastIntfIs(svi, true);
  return words + " comes";
}

/// Goes off, comes on, or goes off for a while in which other things happen.
std::string EventGenerator::gateEvent() {
  const auto gate = draw(5);
  if (draw(3) != 0) return gateIs(gate, draw(3) != 0);
  std::string words = gateIs(gate, false);
  for (auto left = draw(4); left > 0; --left)
    words += ", " + (draw(2) == 0 ? vrfEvent() : next());
  return words + ", " + gateIs(gate, true);  // an agent that was idle has to see all of it now
}

std::string EventGenerator::gateIs(std::uint64_t gate, bool on) {
  const std::string state = on ? " on" : " off";
  switch (gate) {
    case 0:
      input<Bridging::IgmpSnooping::Status>()->snoopingActiveIs(on ? 1 : 0);
      return "IGMP snooping" + state;
    case 1:
      input<Bridging::IgmpSnooping::Config>()->snoopingEnabledIs(on);
      return "MLD snooping" + state;
    case 2:
      input<McastCommon::AgentStatus>(Pavlin::ipv4())->multicastRoutingIs(on);
      return "multicast routing" + state;
    case 3:
      input<Evpn::EvpnStatus>()->evpnFlagAIs(on);
      input<Irb::Multicast::EvpnStaticStatus>()->evpnFlagBIs(on);
      return "EVPN over MPLS" + state;
    default: {
      const auto gateway = sharedInput<Irb::Multicast::GatewayEsStatus>();
      if (on) {
        gateway->esVlanStatusIs({VlanId(10), {}});
      } else {
        gateway->esVlanStatusDelAll();
      }
      return "gateway segment" + state;
    }
  }
}

std::string EventGenerator::intfConfigEvent() {
  const bool remote = draw(4) == 0;
  const std::string where = remote ? "remote " : "";
  const auto domain =
      remote ? Irb::Multicast::Domain::remoteDomain : Irb::Multicast::Domain::localDomain;
  const auto root = groupConfig(domain);
  if (!root->intfConfigHas(vxlan1())) {
    newIntfConfig(domain);
    return where + "configuration of Vxlan1 comes";
  }
  if (draw(100) == 0) {
    root->intfConfigDel(vxlan1());
    return where + "configuration of Vxlan1 goes";
  }
  const auto config = root->intfConfigIs(vxlan1());
  const bool on = draw(5) != 0;
  switch (draw(12)) {
    case 0:
      config->mcastOverlayV4Is(on);
      return where + "overlay IPv4 " + (on ? "on" : "off");
    case 1:
      config->mcastOverlayV6Is(on);
      return where + "overlay IPv6 " + (on ? "on" : "off");
    case 2: {
      const bool ssm = draw(2) == 0;
      config->mcastUnderlayRouteTypeIs(ssm ? Routing::Multicast::UnderlayRouteType::pimSsm
                                           : Routing::Multicast::UnderlayRouteType::pimAsm);
      return where + (ssm ? "underlay SSM" : "underlay ASM");
    }
    case 3:
      config->underlayHerEnabledIs(!on);
      return where + "ingress replication " + (on ? "off" : "on");
    case 4:
    case 5:
    case 6:
      return where + vlanConfigEvent(*config);
    default:
      return where + vrfConfigEvent(*config);
  }
}

std::string EventGenerator::vlanConfigEvent(Routing::Multicast::IpTunnelGroupIntfConfig& config) {
  const VlanId vlan(pick<unsigned>({10, 20, 30, 100}));
  const std::string words = "vlan " + Vesk::textOf(vlan) + " ";
  if (draw(10) == 0) {
    config.vlanToMulticastGroupDel(vlan);
    return words + "row goes";
  }
  return words + rowEvent(*config.vlanToMulticastGroupIs(vlan), false);
}

std::string EventGenerator::vrfConfigEvent(Routing::Multicast::IpTunnelGroupIntfConfig& config) {
  const VrfName vrf(pick<std::string>({"red", "red", "blue", "blue", "green", "default"}));
  const std::string words = std::string(vrf.str()) + " ";
  if (draw(12) == 0) {
    config.vrfToMulticastGroupDel(vrf);
    return words + "row goes";
  }
  return words + rowEvent(*config.vrfToMulticastGroupIs(vrf), true);
}

/// An entry changes in one thing, or another one with much in it takes its place at once.
template <class Row>
std::string EventGenerator::rowEvent(Row& row, bool ofVrf) {
  if (draw(15) == 0) {
    row.tunnelConfigEntryDel();
    return "entry goes";
  }
  if (draw(6) != 0) return entryEvent(*row.tunnelConfigEntryIs(), ofVrf);
  const auto entry = Ombra::make<Routing::Multicast::IpTunnelConfigEntry>();
  std::string words = "whole entry:";
  for (auto left = draw(6); left > 0; --left)
    words += " " + entryEvent(*entry, ofVrf) + ",";
  row.recordType().field("tunnelConfigEntry")->adopt(row, {}, entry);
  return words;
}

std::string EventGenerator::entryEvent(Routing::Multicast::IpTunnelConfigEntry& entry, bool ofVrf) {
  const bool remove = draw(3) == 0;
  switch (draw(ofVrf ? 8 : 5)) {
    case 0:
    case 1:
    case 2: {
      const auto group = remove ? IpGenAddr() : underlayGroup();
      entry.defaultUnderlayGroupIs(UnderlayAddr(group));
      return "default group " + group.stringValue();
    }
    case 3:
    case 4: {
      const OverlayAddr overlay(overlayGroup());
      const std::string words = "immediate " + Vesk::textOf(overlay);
      if (remove) {
        entry.immediateOverlayToUnderlayGroupDel(overlay);
        return words + " goes";
      }
      const auto underlay = ofVrf && draw(5) == 0 ? IpGenAddr() : underlayGroup();
      entry.immediateOverlayToUnderlayGroupIs(overlay, UnderlayAddr(underlay));
      return words + " in " + underlay.stringValue();
    }
    case 5: {
      const auto pool =
          remove ? Pavlin::IpGenPrefix() : parsed<Pavlin::IpGenPrefix>("232.77.0.0/24");
      entry.underlayGroupRangeIs(pool);
      return "pool " + pool.stringValue();
    }
    default: {
      // Of these the last two are without effect, and no single group is in them: what would come
      // in the place of such a group when it goes depends on the order of events.
      const auto which = draw(7);
      const auto range = parsed<Pavlin::IpGenPrefix>(
          std::array{"239.1.1.0/29", "239.1.1.0/30", "239.1.1.2/31", "239.1.1.4/32", "239.1.1.0/25",
                     "239.8.0.0/24", "239.9.9.0/30"}[which]);
      const std::string words = "range " + range.stringValue();
      if (remove) {
        entry.immediateOverlayPrefixToUnderlayGroupDel(range);
        return words + " goes";
      }
      const auto underlay = which == 6
                                ? parsed<IpGenAddr>("ff3e::1")
                                : parsed<IpGenAddr>("232.1.1." + std::to_string(1 + draw(3)));
      entry.immediateOverlayPrefixToUnderlayGroupIs(range, UnderlayAddr(underlay));
      return words + " in " + underlay.stringValue();
    }
  }
}

IpGenAddr EventGenerator::underlayGroup() {
  return parsed<IpGenAddr>(pick<std::string>({"232.1.1.1", "232.1.1.2", "232.1.1.3", "ff3e::1"}));
}

IpGenAddr EventGenerator::overlayGroup() {
  return parsed<IpGenAddr>(
      pick<std::string>({"239.1.1.1", "239.1.1.3", "239.5.5.5", "ff0e::5", "0.0.0.0"}));
}

}  // namespace History
