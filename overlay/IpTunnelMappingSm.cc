#include "overlay/IpTunnelMappingSm.h"

#include "platform/Toggles.h"
#include "runtime/Trace.h"

namespace Multicast::Vpn {

using Bridging::VlanId;
using Routing::Multicast::OverlayRoute;
using Routing::Multicast::VlanToMulticastGroup;
using Vesk::textOf;

namespace {

const Vesk::TraceHandle traceHandle{"IpTunnelMappingSm"};

}  // namespace

IpTunnelMappingSm::IpTunnelMappingSm(Inputs inputs) : in(std::move(inputs)) {
  groups_.begin();
  vlans_.begin();
  handleInitialized();
}

void IpTunnelMappingSm::handleInitialized() {
  pendingGroupsIs();
  pendingGroups2Is();
  initializedIs(true);
  reviewForwardingStatus();
  maybeSetForwardingStatusReady();
}

void IpTunnelMappingSm::reviewForwardingStatus() {
  for (const auto& [vlan, row] : in.forwardingStatus->vlanStatusIterator()) {
    // A process that ended in the middle of a write leaves a vlan without rows.
    if (row->overlayToUnderlayCount() == 0) {
      in.forwardingStatus->vlanStatusDel(vlan);
      forwardingStatusWritten();
      continue;
    }
    for (const auto& entry : row->overlayToUnderlayIterator()) {
      const OverlayVlanGroup group{vlan, OverlayAddr(entry.key.group)};
      if (!pending(group)) handleMulticastGroup(group, false);
    }
  }
}

void IpTunnelMappingSm::review() {
  for (const auto& entry : in.vlanToGroupStatus->vlanToMulticastGroupIterator())
    if (!pending(entry.key)) handleMulticastGroup(entry.key, false);
  reviewForwardingStatus();
  maybeSetForwardingStatusReady();
}

// --- inputs that come and go

IpTunnelMappingSm::NestedSm_VlanToMulticastGroup::NestedSm_VlanToMulticastGroup(Inputs inputs)
    : in(std::move(inputs)) {
  handleNew();
}

void IpTunnelMappingSm::NestedSm_VlanToMulticastGroup::handleNew() {
  liveIs(in.row->multicastGroupCount() != 0);
  in.parent->handleMulticastGroup(in.row->overlayVlanGroup(), false);
}

void IpTunnelMappingSm::NestedSm_VlanToMulticastGroup::handleMulticastGroup() {
  const bool wasLive = live();
  if (in.row->multicastGroupCount() != 0) liveIs(true);
  in.parent->handleMulticastGroup(in.row->overlayVlanGroup(), wasLive);
}

// --- one overlay vlan group

void IpTunnelMappingSm::handleMulticastGroup(const OverlayVlanGroup& group, bool delay) {
  const auto entry = in.vlanToGroupStatus->vlanToMulticastGroup(group);
  if (!entry || entry->multicastGroupCount() == 0) {
    deleteMulticastGroup(group);
    return;
  }
  if (entry->multicastGroupCount() > 1) {
    if (auto t = traceHandle.at(7))
      t << "Ignore transient state of multiple underlay groups for vlan group. " << textOf(group);
    return;
  }
  if (delay && isImmediateGroup(group)) {
    if (auto t = traceHandle.at(7))
      t << "Override delay for immediate vlan group. " << textOf(group);
    delay = false;
  }
  if (group.group.isUnspecified()) delay = false;

  const auto routes = entry->multicastGroupIterator();
  const IpTunnelMapping mapping{OverlayRoute::wcRoute(group.group), *routes.begin()};
  if (delay) {
    delayMapping(group, mapping);
  } else {
    publishMapping(group, mapping);
  }
}

void IpTunnelMappingSm::delayMapping(const OverlayVlanGroup& group,
                                     const IpTunnelMapping& mapping) {
  if (auto t = traceHandle.at(7))
    t << " Delay adding overlay vlan group " << textOf(group) << " to forwarding status ";
  addToPendingGroup(group);
  const auto vlanStatus = in.forwardingStatus->vlanStatus(group.vlan);
  if (!vlanStatus) {
    if (auto t = traceHandle.at(7))
      t << " Vlan for " << textOf(group) << " does not exist in forwarding status. "
        << " No existing underlay mapping to delete for delay case";
    return;
  }
  const IpTunnelMapping present = vlanStatus->overlayToUnderlay(mapping.overlayRoute);
  if (present == IpTunnelMapping{} || present == mapping) return;
  if (auto t = traceHandle.at(7))
    t << " Delete existing mapping for overlay vlan group " << textOf(group)
      << " old underlay group " << textOf(present.underlayRoute.underlayGroup)
      << " new underlay group " << textOf(mapping.underlayRoute.underlayGroup);
  deleteMulticastGroup(group);
}

void IpTunnelMappingSm::publishMapping(const OverlayVlanGroup& group,
                                       const IpTunnelMapping& mapping) {
  auto vlanStatus = in.forwardingStatus->vlanStatus(group.vlan);
  if (!vlanStatus) {
    if (auto t = traceHandle.at(7)) t << "Adding vlan status " << group.vlan;
    vlanStatus = in.forwardingStatus->vlanStatusIs(group.vlan);
    forwardingStatusWritten();
  }
  const IpTunnelMapping present = vlanStatus->overlayToUnderlay(mapping.overlayRoute);
  if (present != IpTunnelMapping{} && present == mapping) return;
  if (auto t = traceHandle.at(6))
    t << "Adding overlay group to underlay route ( " << textOf(group) << " ) : ( "
      << textOf(mapping.underlayRoute) << " )";
  vlanStatus->overlayToUnderlayIs(mapping);
  forwardingStatusWritten();
}

void IpTunnelMappingSm::deleteMulticastGroup(const OverlayVlanGroup& group) {
  const auto vlanStatus = in.forwardingStatus->vlanStatus(group.vlan);
  if (!vlanStatus) return;
  const OverlayRoute route = OverlayRoute::wcRoute(group.group);
  if (vlanStatus->overlayToUnderlay(route) != IpTunnelMapping{}) {
    if (auto t = traceHandle.at(6)) t << " Deleting overlay vlan group " << textOf(group);
    vlanStatus->overlayToUnderlayDel(route);
    forwardingStatusWritten();
  }
  if (vlanStatus->overlayToUnderlayCount() != 0) return;
  if (auto t = traceHandle.at(6)) t << " Deleting vlan status " << group.vlan;
  in.forwardingStatus->vlanStatusDel(group.vlan);
  forwardingStatusWritten();
}

bool IpTunnelMappingSm::isImmediateGroup(const OverlayVlanGroup& group) const {
  const auto mapping = in.ipTunnelMappingStatus->vlanStatus(group.vlan);
  return mapping && !mapping->effImmediateUnderlayGroup(group.group).isUnspecified();
}

// --- groups that wait

void IpTunnelMappingSm::addToPendingGroup(const OverlayVlanGroup& group) {
  if (timerTask_.currentExpirationTime() == Sylva::TaskScheduler::never) {
    pendingGroups()->groupIs(group);
    setTimer();
  } else if (minDelayTime() > timeRemaining()) {
    pendingGroups()->groupDel(group);
    pendingGroups2()->groupIs(group);
  } else {
    pendingGroups()->groupIs(group);
  }
}

bool IpTunnelMappingSm::pending(const OverlayVlanGroup& group) const {
  return pendingGroups()->groupHas(group) || pendingGroups2()->groupHas(group);
}

std::optional<double> IpTunnelMappingSm::timeUntilServed(const OverlayVlanGroup& group) const {
  if (pendingGroups()->groupHas(group)) return timeRemaining();
  if (pendingGroups2()->groupHas(group)) return timeRemaining() + delayTime();
  return std::nullopt;
}

double IpTunnelMappingSm::timeRemaining() const {
  const double expiration = timerTask_.currentExpirationTime();
  return expiration == Sylva::TaskScheduler::never ? 0 : expiration - Vesk::System::currentTime();
}

void IpTunnelMappingSm::handleTimerExpiry() {
  for (const OverlayVlanGroup& group : pendingGroups()->groupIterator())
    handleMulticastGroup(group, false);
  pendingGroups()->groupDelAll();
  if (pendingGroups2()->groupCount() == 0) {
    maybeSetForwardingStatusReady();
    return;
  }
  const auto served = pendingGroups();
  pendingGroups_.adopt(*this, pendingGroupsIndex, pendingGroups2());
  pendingGroups2_.adopt(*this, pendingGroups2Index, served);
  setTimer();
}

void IpTunnelMappingSm::handleVlanMappingStatus(VlanId vlan) {
  if (!initialized()) {
    if (auto t = traceHandle.at(7)) t << "( " << vlan << ") Not initialized! ";
    return;
  }
  const auto mapping = in.ipTunnelMappingStatus->vlanStatus(vlan);
  if (!mapping || (pendingGroups()->groupCount() == 0 && pendingGroups2()->groupCount() == 0))
    return;
  // A group of this vlan can be an immediate one only if one of these has its key.
  const auto updateFrom = [&](const auto& source) {
    if (!source) return;
    for (const auto& entry : source->immediateOverlayToUnderlayGroupIterator())
      handleVlanGroupMappingStatus(vlan, entry.key);
  };
  updateFrom(mapping->vlanTunnelConfigEntry());
  updateFrom(mapping->vrfImmediateGroupStatus());
}

void IpTunnelMappingSm::handleVlanGroupMappingStatus(VlanId vlan, const OverlayAddr& overlayAddr) {
  const OverlayVlanGroup group{vlan, overlayAddr};
  if (!pending(group) || !isImmediateGroup(group)) return;
  if (auto t = traceHandle.at(7)) t << " Update (" << vlan << ", " << overlayAddr << ")";
  handleMulticastGroup(group, false);
  pendingGroups()->groupDel(group);
  pendingGroups2()->groupDel(group);
}

void IpTunnelMappingSm::maybeSetForwardingStatusReady() {
  if (timerTask_.currentExpirationTime() != Sylva::TaskScheduler::never) return;
  if (!toggleEvpnMulticastSSOEnabled()) return;
  if (!in.encapReadyStatus->vlanGroupStatusReady() || in.encapReadyStatus->forwardingStatusReady())
    return;
  if (auto t = traceHandle.at(7)) t << "Setting forwardingStatusReady";
  in.encapReadyStatus->forwardingStatusReadyIs(true);
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::IpTunnelMappingSm)
VESK_REGISTER(Multicast::Vpn::IpTunnelMappingSm::NestedSm_VlanToMulticastGroup)
VESK_REGISTER(Multicast::Vpn::IpTunnelMappingSm::VlanMapSm)
