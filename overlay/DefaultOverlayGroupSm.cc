#include "overlay/DefaultOverlayGroupSm.h"

#include "runtime/Trace.h"

namespace Multicast::Vpn {

using Bridging::VlanId;
using Routing::Multicast::OverlayAddr;

namespace {

const Vesk::TraceHandle traceHandle{"DefaultOverlayGroupSm"};

}  // namespace

DefaultOverlayGroupSm::DefaultOverlayGroupSm(Inputs inputs) : in(std::move(inputs)) {
  vlans_.begin();
  handleInitialized();
}

void DefaultOverlayGroupSm::handleInitialized() {
  in.vlanGroupTable->vlanDelAll();
  for (const auto& entry : in.ipTunnelMappingStatus->vlanStatusIterator())
    handleVlanStatus(entry.key);
  handleMappingStatusReady();
}

void DefaultOverlayGroupSm::review() {
  for (const auto& entry : in.vlanGroupTable->vlanIterator())
    handleVlanStatus(entry.key);
  for (const auto& entry : in.ipTunnelMappingStatus->vlanStatusIterator())
    handleVlanStatus(entry.key);
  handleMappingStatusReady();
}

void DefaultOverlayGroupSm::handleVlanStatus(VlanId vlan) {
  const auto mapping = in.ipTunnelMappingStatus->vlanStatus(vlan);
  if (!mapping) {
    if (auto t = traceHandle.at(7)) t << "Removing vlan: " << vlan;
    in.vlanGroupTable->vlanDel(vlan);
    return;
  }
  if (auto t = traceHandle.at(7))
    t << "Add vlan: " << vlan << ", * to the overlay vlan group table";
  in.vlanGroupTable->vlanIs(vlan)->groupIs(Pavlin::IpGenAddr(in.af));
  updateVlanImmediateGroups(vlan, *mapping);
}

void DefaultOverlayGroupSm::handleMappingStatusReady() {
  if (!in.ipTunnelMappingStatus->ready()) return;
  if (auto t = traceHandle.at(7)) t << "Setting vlan group table ready";
  in.vlanGroupTable->readyIs(true);
}

void DefaultOverlayGroupSm::updateVlanImmediateGroups(VlanId vlan,
                                                      const VlanToGroupMapping& mapping) {
  mapping.forEachImmediateGroup(
      [&](const OverlayAddr& overlayAddr) { updateImmediateGroup(vlan, overlayAddr, true); });
  const auto table = in.vlanGroupTable->vlan(vlan);
  if (!table) {
    if (auto t = traceHandle.at(7)) t << "No vlan group table for " << vlan;
    return;
  }
  for (const auto& group : table->groupIterator()) {
    const OverlayAddr overlayAddr(group);
    if (!overlayAddr.isUnspecified() && !mapping.ownsImmediateGroup(overlayAddr))
      updateImmediateGroup(vlan, overlayAddr, false);
  }
}

void DefaultOverlayGroupSm::updateImmediateGroup(VlanId vlan, const OverlayAddr& overlayAddr,
                                                 bool add) {
  const Pavlin::IpGenAddr& group = overlayAddr.genAddr();
  if (group.af() != in.af) {
    if (auto t = traceHandle.at(7)) t << "Overlay group: " << group << " af is not " << in.af;
    return;
  }
  if (group.isUnspecified()) {
    if (auto t = traceHandle.at(7)) t << "Overlay group: " << group << " is address zero ";
    return;
  }
  if (add) {
    if (auto t = traceHandle.at(7))
      t << "Add group " << group << " to the overlay group table for vlan " << vlan;
    in.vlanGroupTable->vlanIs(vlan)->groupIs(group);
    return;
  }
  const auto table = in.vlanGroupTable->vlan(vlan);
  if (!table) {
    if (auto t = traceHandle.at(7)) t << "No vlan group table for " << vlan;
    return;
  }
  if (auto t = traceHandle.at(7))
    t << "Remove group " << group << " from the overlay groups for vlan " << vlan;
  table->groupDel(group);
  if (table->groupCount() != 0) return;
  if (auto t = traceHandle.at(7))
    t << "Remove vlan: " << vlan << " from the overlay vlan group table";
  in.vlanGroupTable->vlanDel(vlan);
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::DefaultOverlayGroupSm)
VESK_REGISTER(Multicast::Vpn::DefaultOverlayGroupSm::VlanMapSm)
