#include "tests/history/StateEvents.h"

#include "records/BriskelInputs.h"
#include "records/Evpn.h"
#include "records/Tunnels.h"
#include "records/Vxlan.h"
#include "tests/history/Inputs.h"

namespace History {
namespace {

using Bridging::VlanId;
using namespace Routing::Multicast;

Ombra::Ptr<IpTunnelGroupIntfConfig> config() {
  return groupConfig(Irb::Multicast::Domain::localDomain)->intfConfig(Pavlin::vxlan1IntfId());
}

}  // namespace

std::string StateEvents::next() {
  switch (random_.draw(8)) {
    case 0:
      return floodEvent();
    case 1:
      return vniEvent();
    case 2:
      return sourceEvent();
    case 3:
    case 4:
      return tunnelEvent();
    case 5:
    case 6:
      return segmentEvent();
    default:
      return gatewayEvent();
  }
}

std::string StateEvents::floodEvent() {
  if (!config()) return "no flood group, without a configuration";
  const VlanId vlan(random_.pick<unsigned>({10, 20, 30}));
  const auto type = random_.draw(2) == 0 ? UnderlayRouteType::pimAsm : UnderlayRouteType::pimSsm;
  switch (random_.draw(5)) {
    case 0:
      config()->floodUnderlayRouteTypeIs(type);
      return "trees of flood groups are " + Vesk::textOf(type);
    case 1:
      config()->vlanToFloodGroupDel(vlan);
      return "vlan " + Vesk::textOf(vlan) + " has no flood group";
    default: {
      const auto entry = Vesk::valueOf<IpTunnelFloodConfigEntry>(random_.pick<std::string>(
          {"1,232.9.9.1", "2,232.9.9.1", "2,232.9.9.2", "1,ff3e::9", "1,none"}));
      config()->vlanToFloodGroupIs(vlan, entry);
      return "vlan " + Vesk::textOf(vlan) + " floods to " + Vesk::textOf(entry);
    }
  }
}

std::string StateEvents::vniEvent() {
  if (!config()) return "no remote VNI, without a configuration";
  const Vxlan::VniExtOrNone vni(5000 + static_cast<std::uint32_t>(random_.draw(4)));
  if (random_.draw(3) == 0) {
    config()->remoteVniToVrfDel(vni);
    return "remote VNI " + Vesk::textOf(vni) + " goes";
  }
  const L3::VrfName vrf(random_.pick<std::string>({"red", "blue", "green", "nowhere"}));
  config()->remoteVniToVrfIs(vni, vrf);
  return "remote VNI " + Vesk::textOf(vni) + " stands for " + std::string(vrf.str());
}

std::string StateEvents::sourceEvent() {
  const auto vti = input<Vxlan::VtiStatusDir>()->vtiStatus(Pavlin::vxlan1IntfId());
  if (!vti) return "no source, without a VXLAN interface";
  const Pavlin::IntfId intf(random_.pick<std::string>({"Loopback0", "Loopback1", "Ethernet1", ""}));
  vti->srcIntfIs(intf);
  return "the tunnels' source is " + (intf == Pavlin::IntfId() ? "none" : intf.stringValue());
}

/// Each endpoint with one kind of tunnel, as clients have to agree.
std::string StateEvents::tunnelEvent() {
  using namespace Multicast::Tunnel;
  const auto client =
      random_.draw(2) == 0 ? McastTunnelClientType::client1 : McastTunnelClientType::client2;
  const bool comes = random_.draw(2) == 0;
  const auto endpoint = Vesk::valueOf<McastTunnelEndpoint>(random_.pick<std::string>(
      {"0,10.0.0.4", "0,10.0.0.5", "0,10.0.0.6", "7,10.0.0.6", "0,10.0.0.7"}));
  if (endpoint.vtep.v4Addr().value() % 256 < 6) {
    const auto kind = random_.draw(2) == 0 ? PimVxlanTunnel::PimTunnelType::pimAsm
                                           : PimVxlanTunnel::PimTunnelType::pimSsm;
    const auto requests =
        sharedInput<PimVxlanTunnelRequestTable>(PimVxlanTunnelRequestTable::mountPath(client));
    comes ? requests->tunnelRequestIs({endpoint, kind}) : requests->tunnelRequestDel(endpoint);
  } else {
    const auto requests = sharedInput<IrVxlanIpv4TunnelRequestTable>(
        IrVxlanIpv4TunnelRequestTable::mountPath(client));
    comes ? requests->tunnelRequestIs({endpoint}) : requests->tunnelRequestDel(endpoint);
  }
  return stringValue(client) + (comes ? " asks for " : " withdraws ") + Vesk::textOf(endpoint);
}

/// Whether this switch is the forwarder is told by the change of who else is: that has to be one.
std::string StateEvents::segmentEvent() {
  const Pavlin::IntfId port(random_.pick<std::string>({"Ethernet1", "Ethernet2", "Vxlan1"}));
  const auto evpn = input<::Evpn::EvpnStatus>();
  if (random_.draw(12) == 0) {
    evpn->segmentStatusDel(port);
    return "segment of " + Vesk::textOf(port) + " goes";
  }
  const VlanId vlan(random_.pick<unsigned>({10, 20, 30}));
  const auto segment = evpn->segmentStatusIs(port);
  const std::string where = Vesk::textOf(port) + " vlan " + Vesk::textOf(vlan);
  if (random_.draw(3) == 0) {
    const bool on = random_.draw(3) != 0;
    on ? segment->configuredVlanIs(vlan) : segment->configuredVlanDel(vlan);
    return where + (on ? " is on" : " is off") + " its segment";
  }
  const bool mine = random_.draw(2) == 0;
  mine ? segment->dfVlanIs(vlan) : segment->dfVlanDel(vlan);
  segment->designatedForwarderTepIpAddrIs(
      vlan, Pavlin::IpGenAddr(Pavlin::IpAddr(0x0a010000U + ++elections_)));
  return where + (mine ? " is forwarded here" : " is forwarded elsewhere");
}

std::string StateEvents::gatewayEvent() {
  const auto af = random_.draw(2) == 0 ? Pavlin::ipv4() : Pavlin::ipv6();
  const bool on = random_.draw(3) != 0;
  if (random_.draw(2) == 0) {
    const VlanId vlan(random_.pick<unsigned>({10, 20, 30}));
    sharedInput<PegVlanStatus>(PegVlanStatus::mountPath(af))->pegVlanIs({vlan, on});
    return "vlan " + Vesk::textOf(vlan) + (on ? " is" : " is not") + " one of gateways";
  }
  const Bridging::ExtendedVlanId sbd(random_.pick<unsigned>({100, 200}));
  const auto neighbour =
      sharedInput<PegNeighborStatus>(PegNeighborStatus::mountPath(af))->pegVlanNeighborIs(sbd);
  const auto tep = Pavlin::IpGenAddr::fromText(random_.pick<std::string>({"10.0.0.8", "10.0.0.9"}));
  on ? neighbour->tepIs(tep) : neighbour->tepDel(tep);
  return "gateway " + Vesk::textOf(tep) + (on ? " in " : " leaves ") + Vesk::textOf(sbd);
}

}  // namespace History
