#include "tests/history/StateEvents.h"

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
  switch (random_.draw(3)) {
    case 0:
      return floodEvent();
    case 1:
      return vniEvent();
    default:
      return sourceEvent();
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

}  // namespace History
