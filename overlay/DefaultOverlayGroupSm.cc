#include "overlay/DefaultOverlayGroupSm.h"

#include "runtime/Trace.h"

namespace Multicast::Vpn {

using Bridging::VlanId;
using Routing::Multicast::IpTunnelConfigEntry;
using Routing::Multicast::OverlayAddr;

namespace {

const Vesk::TraceHandle traceHandle{"DefaultOverlayGroupSm"};

template <class Source>
bool isImmediateGroup(const Ombra::Ptr<Source const>& source, const OverlayAddr& overlayAddr) {
  return source && source->immediateOverlayToUnderlayGroupHas(overlayAddr);
}

}  // namespace

DefaultOverlayGroupSm::DefaultOverlayGroupSm(Inputs inputs) : in(std::move(inputs)) {
  for (const auto& [vlan, row] : in.ipTunnelMappingStatus->vlanStatusIterator())
    vlanMappingStatusIs(vlan, {.parent = this, .row = row});
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

void DefaultOverlayGroupSm::handleVlanMappingStatus(VlanId vlan) {
  const Ombra::Ptr<VlanToGroupMapping const> row = in.ipTunnelMappingStatus->vlanStatus(vlan);
  if (const auto present = vlanMappingStatus(vlan); present && present->in.row != row)
    vlanMappingStatusDel(vlan);
  if (row) vlanMappingStatusIs(vlan, {.parent = this, .row = row});
  handleVlanStatus(vlan);
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
  if (mapping.isSbdVlan()) {
    updateImmediateGroups(vlan, mapping.vrfImmediateGroupStatus());
  } else {
    updateImmediateGroups(vlan, mapping.vlanTunnelConfigEntry());
  }
}

template <class Source>
void DefaultOverlayGroupSm::updateImmediateGroups(VlanId vlan,
                                                  const Ombra::Ptr<Source const>& source) {
  if (source) {
    for (const auto& entry : source->immediateOverlayToUnderlayGroupIterator())
      updateImmediateGroup(vlan, entry.key, true);
  }
  const auto table = in.vlanGroupTable->vlan(vlan);
  if (!table) {
    if (auto t = traceHandle.at(7)) t << "No vlan group table for " << vlan;
    return;
  }
  for (const auto& group : table->groupIterator()) {
    const OverlayAddr overlayAddr(group);
    if (!overlayAddr.isUnspecified() && !isImmediateGroup(source, overlayAddr))
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

void DefaultOverlayGroupSm::VlanMapSm::handleVlanTunnelConfigEntry() {
  vlanGroupWatch_.inputIs(in.row->vlanTunnelConfigEntry());
  updateVlan();
}

void DefaultOverlayGroupSm::VlanMapSm::handleVrfImmediateGroupStatus() {
  vrfGroupWatch_.inputIs(in.row->vrfImmediateGroupStatus());
  updateVlan();
}

void DefaultOverlayGroupSm::VlanMapSm::updateImmediateGroup(const OverlayAddr& overlayAddr) {
  const bool add = in.row->isSbdVlan()
                       ? isImmediateGroup(in.row->vrfImmediateGroupStatus(), overlayAddr)
                       : isImmediateGroup(in.row->vlanTunnelConfigEntry(), overlayAddr);
  in.parent->updateImmediateGroup(in.row->vlanId(), overlayAddr, add);
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::DefaultOverlayGroupSm)
VESK_REGISTER(Multicast::Vpn::DefaultOverlayGroupSm::VlanMapSm)
