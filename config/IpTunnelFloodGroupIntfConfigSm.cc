#include "config/IpTunnelFloodGroupIntfConfigSm.h"

#include "config/IntfInputs.h"
#include "runtime/Fleetlog.h"
#include "runtime/Trace.h"

namespace Routing::Multicast {

using Bridging::VlanId;

namespace {

const Vesk::TraceHandle traceHandle{"IpTunnelFloodGroupIntfConfigSm"};
const Fleetlog::TraceHandle ring{"IpTunnelFloodGroupConfigSm"};
constexpr std::size_t ringLevel = 7;

void ringRoute(const char* action, VlanId vlan, const UnderlayRoute& route) {
  Fleetlog::record(ring, ringLevel, "{} floodGroup {} : ( {},{}, {})", action, vlan.value(),
                   Vesk::textOf(route.underlaySource()), Vesk::textOf(route.underlayGroup),
                   Vesk::textOf(route.tunnelType));
}

}  // namespace

IpTunnelFloodGroupIntfConfigSm::IpTunnelFloodGroupIntfConfigSm(Inputs inputs)
    : in(std::move(inputs)) {
  handleInitialized();
}

Pavlin::IpGenAddr IpTunnelFloodGroupIntfConfigSm::vtepAddr(Pavlin::AddressFamily af) const {
  return localVtepAddr(*in.vtiStatus, af);
}

TunnelType IpTunnelFloodGroupIntfConfigSm::getTunnelType(VlanTunnelConfigType configType) const {
  switch (configType) {
    case VlanTunnelConfigType::mcastUnderlay:
      return tunnelTypeOf(in.vlanToGroupIntfConfig->mcastUnderlayRouteType());
    case VlanTunnelConfigType::floodUnderlay:
      return tunnelTypeOf(in.vlanToGroupIntfConfig->floodUnderlayRouteType());
  }
  return TunnelType::PimAsm;
}

IpTunnelFloodGroupIntfConfigSm::FloodReason IpTunnelFloodGroupIntfConfigSm::judge(
    VlanId vlan) const {
  const auto& group = in.vlanToGroupIntfConfig->vlanToFloodGroup(vlan).floodGroup;
  if (group.af() == Pavlin::AddressFamily::none) return FloodReason::noGroup;
  if (vtepAddr(group.af()).isUnspecified()) return FloodReason::noVtep;
  return in.vlanStatusDir->vlanStatusHas(vlan) ? FloodReason::usable : FloodReason::vlanNotActive;
}

void IpTunnelFloodGroupIntfConfigSm::handleVlanToFloodGroup(VlanId vlan) {
  if (judge(vlan) != FloodReason::usable) {
    Fleetlog::record(ring, ringLevel, "Deleting all floodGroup for vlan {}", vlan.value());
    in.vlanToGroupStatus->vlanToFloodGroupDel(vlan);
    return;
  }
  const IpTunnelFloodConfigEntry entry = in.vlanToGroupIntfConfig->vlanToFloodGroup(vlan);
  const UnderlayRoute route{vtepAddr(entry.floodGroup.af()), UnderlayAddr(entry.floodGroup),
                            getTunnelType(entry.configType)};
  const auto row = in.vlanToGroupStatus->vlanToFloodGroupIs(vlan);
  if (!row->floodGroupHas(route)) ringRoute("Adding", vlan, route);
  row->floodGroupIs(route);
  for (const UnderlayRoute& other : row->floodGroupIterator()) {
    if (other == route) continue;
    ringRoute("Deleting", vlan, other);
    row->floodGroupDel(other);
  }
}

void IpTunnelFloodGroupIntfConfigSm::handleVlanToFloodGroup() {
  for (const auto& [vlan, entry] : in.vlanToGroupIntfConfig->vlanToFloodGroupIterator())
    handleVlanToFloodGroup(vlan);
}

void IpTunnelFloodGroupIntfConfigSm::refreshAll() {
  traceRefresh(traceHandle, *in.vtiStatus, *in.vlanToGroupIntfConfig);
  handleVlanToFloodGroup();
}

/// Also the rows of an earlier life that have no configuration.
void IpTunnelFloodGroupIntfConfigSm::handleInitialized() {
  refreshAll();
  for (const auto& [vlan, row] : in.vlanToGroupStatus->vlanToFloodGroupIterator())
    handleVlanToFloodGroup(vlan);
}

void IpTunnelFloodGroupIntfConfigSm::handleDelete() {
  in.vlanToGroupStatus->vlanToFloodGroupDelAll();
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::IpTunnelFloodGroupIntfConfigSm)
