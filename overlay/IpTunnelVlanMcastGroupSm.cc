#include "overlay/IpTunnelVlanMcastGroupSm.h"

#include "platform/Toggles.h"
#include "runtime/Trace.h"

namespace Multicast::Vpn {

using Bridging::VlanId;
using Pavlin::AddressFamily;
using Pavlin::IpGenAddr;
using Routing::Multicast::TunnelType;
using Routing::Multicast::UnderlayAddr;
using Routing::Multicast::UnderlayRoute;
using Vesk::textOf;

namespace {

const Vesk::TraceHandle traceHandle{"IpTunnelVlanMcastGroupSm"};

bool holdsGroup(const Ombra::Ptr<VlanGroupTable const>& table,
                const Routing::Multicast::OverlayVlanGroup& group) {
  const auto vlan = table ? table->vlan(group.vlan) : nullptr;
  return vlan && vlan->groupHas(group.group.genAddr());
}

}  // namespace

IpTunnelVlanMcastGroupSm::IpTunnelVlanMcastGroupSm(Inputs inputs)
    : WalkSmBase(inputs.scheduler, 3, "IpTunnelVlanMcastGroupReviewSm"), in(std::move(inputs)) {
  tables_.begin();
  vlans_.begin();
  handleInitialized();
}

void IpTunnelVlanMcastGroupSm::handleInitialized() {
  if (isInputReady()) {
    outputReview_.ask();
  } else if (auto t = traceHandle.at(7)) {
    t << "Input is not ready yet. Schedule output review later";
  }
  scheduleAllInputReview();
  scheduleWalk();
}

void IpTunnelVlanMcastGroupSm::cleanup() {
  if (in.vlanToGroupStatus->vlanToMulticastGroupCount() == 0) return;
  in.vlanToGroupStatus->vlanToMulticastGroupDelAll();
  statusWritten();
}

void IpTunnelVlanMcastGroupSm::review() {
  scheduleAllInputReview();
  scheduleOutputReview();
}

// --- inputs that come and go

void IpTunnelVlanMcastGroupSm::handleTable(const std::string& name) {
  const auto table = in.vlanGroupTableColl->table(name);
  if (!table) return;
  for (const auto& entry : table->vlanIterator())
    scheduleInputReview(name, entry.key);
}

IpTunnelVlanMcastGroupSm::TableSm::TableSm(Inputs inputs) : in(std::move(inputs)) {
  vlans_.begin();
}

void IpTunnelVlanMcastGroupSm::TableSm::handleVlan(VlanId vlan) {
  const auto groups = in.row->vlan(vlan);
  if (groups && groups->groupCount() != 0) in.parent->scheduleInputReview(in.row->name(), vlan);
}

void IpTunnelVlanMcastGroupSm::TableSm::handleDel() {
  for (const auto& entry : vlanGroupStatusIterator())
    entry.value->handleDel();
  in.parent->scheduleOutputReview();
}

void IpTunnelVlanMcastGroupSm::TableSm::GroupSm::handleGroup(IpGenAddr group) {
  IpTunnelVlanMcastGroupSm& owner = *in.parent->in.parent;
  const VlanId vlan = in.row->vlanId();
  owner.updateOverlayGroup(vlan, group, owner.in.ipTunnelMappingStatus->vlanStatus(vlan));
}

void IpTunnelVlanMcastGroupSm::TableSm::GroupSm::handleDel() {
  if (in.row->groupCount() == 0) return;  // each of its groups has been judged when it went
  // What is left of these groups in another table may owe its tunnel type to this one.
  IpTunnelVlanMcastGroupSm& owner = *in.parent->in.parent;
  owner.scheduleVlanInputReview(in.row->vlanId());
  owner.scheduleOutputReview();
}

// --- what is due

void IpTunnelVlanMcastGroupSm::scheduleInputReview(const std::string& tableName, VlanId vlan) {
  inputReview_.note({tableName, vlan});
  scheduleWalk();
}

void IpTunnelVlanMcastGroupSm::scheduleVlanInputReview(VlanId vlan) {
  for (const auto& [name, table] : in.vlanGroupTableColl->tableIterator())
    if (table->vlanHas(vlan)) inputReview_.note({name, vlan});
  scheduleWalk();
}

void IpTunnelVlanMcastGroupSm::scheduleAllInputReview() {
  for (const auto& [name, table] : in.vlanGroupTableColl->tableIterator())
    for (const auto& entry : table->vlanIterator())
      inputReview_.note({name, entry.key});
  if (inputReview_.isDue()) scheduleWalk();
}

void IpTunnelVlanMcastGroupSm::scheduleOutputReview() {
  if (!isInputReady()) {
    if (auto t = traceHandle.at(7)) t << "Input is not ready yet. Not scheduling output review";
    return;
  }
  outputReview_.ask();
  scheduleWalk();
}

bool IpTunnelVlanMcastGroupSm::isInputReady() const {
  for (const auto& entry : in.vlanGroupTableColl->tableIterator())
    if (!entry.value->ready()) return false;
  return in.ipTunnelMappingStatus->ready();
}

// --- the walk

bool IpTunnelVlanMcastGroupSm::walkStartedNotification() {
  if (traceHandle.isOn(7)) traceSkippedInputs();
  return inputReview_.isDue() || outputReview_.isDue();
}

IpTunnelVlanMcastGroupSm::WalkResult IpTunnelVlanMcastGroupSm::walk() {
  Sylva::Slice turn = slice();
  // What was cut short goes on before anything that came since.
  const bool inputsDone = outputReview_.isUnderWay() || reviewInputs(turn);
  const bool finished = inputsDone && reviewOutputs(turn);
  return {!finished, turn.items()};
}

bool IpTunnelVlanMcastGroupSm::reviewInputs(Sylva::Slice& slice) {
  while (const auto place = inputReview_.next()) {
    const auto& [tableName, vlan] = place->key;
    const auto table = in.vlanGroupTableColl->table(tableName);
    const auto groups = table ? table->vlan(vlan) : nullptr;
    if (!groups) continue;
    const auto mapping = in.ipTunnelMappingStatus->vlanStatus(vlan);
    for (const IpGenAddr& group : groups->groupIteratorFrom(place->item)) {
      if (!slice.take()) {
        inputReview_.stopAt({tableName, vlan, group});
        if (auto t = traceHandle.at(7))
          t << "Input review Yielding, processed " << slice.items() << " groups."
            << " Bookmark: Table " << tableName << " vlan " << vlan << " group: " << group;
        return false;
      }
      updateOverlayGroup(vlan, group, mapping);
    }
  }
  return true;
}

void IpTunnelVlanMcastGroupSm::traceSkippedInputs() const {
  for (const auto& [name, table] : in.vlanGroupTableColl->tableIterator())
    for (const auto& entry : table->vlanIterator()) {
      if (vlanInputChangeSetHas({name, entry.key})) continue;
      if (auto t = traceHandle.at(7))
        t << "Input review. Skipping table, vlan " << entry.key << " not in change set ";
    }
}

bool IpTunnelVlanMcastGroupSm::reviewOutputs(Sylva::Slice& slice) {
  if (!outputReview_.begins()) return true;
  const auto& status = *in.vlanToGroupStatus;
  for (const auto& entry : status.vlanToMulticastGroupIteratorFrom(outputReview_.place())) {
    if (!slice.take()) {
      outputReview_.stopAt(entry.key);
      if (auto t = traceHandle.at(7))
        t << "Output review Yielding, processed " << slice.items() << " vlan groups."
          << " Bookmark: vlan-group " << textOf(entry.key);
      return false;
    }
    if (overlayGroupExists(entry.key)) continue;
    if (auto t = traceHandle.at(6))
      t << " Review output deleting overlay vlan group " << textOf(entry.key);
    deleteOverlayGroup(entry.key);
  }
  outputReview_.ends();
  if (toggleEvpnMulticastSSOEnabled() && !in.encapReadyStatus->vlanGroupStatusReady()) {
    if (auto t = traceHandle.at(7))
      t << "First output review complete, setting vlanGroupStatusReady";
    in.encapReadyStatus->vlanGroupStatusReadyIs(true);
  }
  return true;
}

// --- one overlay group

IpTunnelVlanMcastGroupSm::GroupVerdict IpTunnelVlanMcastGroupSm::judgeGroup(
    const OverlayVlanGroup& group, const Ombra::Ptr<VlanToGroupMapping const>& mapping) const {
  const UnderlayAddr underlayGroup = mapping ? mapping->underlayGroup(group.group) : UnderlayAddr();
  return {.exists = overlayGroupExists(group),
          .underlayGroup = underlayGroup,
          .vtep = vtepAddr(underlayGroup.af())};
}

void IpTunnelVlanMcastGroupSm::updateOverlayGroup(
    VlanId vlan, const IpGenAddr& group, const Ombra::Ptr<VlanToGroupMapping const>& mapping) {
  const OverlayVlanGroup key{vlan, OverlayAddr(group)};
  const GroupVerdict verdict = judgeGroup(key, mapping);
  if (!verdict.hasRow()) {
    if (!in.vlanToGroupStatus->vlanToMulticastGroupHas(key)) return;
    if (auto t = traceHandle.at(6)) t << " Deleting overlay vlan group " << textOf(key);
    deleteOverlayGroup(key);
    return;
  }
  const auto entry = in.vlanToGroupStatus->vlanToMulticastGroupIs(key);
  const UnderlayRoute route{verdict.vtep, verdict.underlayGroup, getTunnelType(key)};
  // The new route goes in first: the set is never empty while a group moves.
  if (!entry->multicastGroupHas(route)) {
    if (auto t = traceHandle.at(6))
      t << "Adding overlay group to underlay route " << textOf(key) << " : ( " << textOf(route)
        << " )";
    entry->multicastGroupIs(route);
    statusWritten();
  }
  if (entry->multicastGroupCount() == 1) return;
  for (const UnderlayRoute& old : entry->multicastGroupIterator()) {
    if (old == route) continue;
    entry->multicastGroupDel(old);
    statusWritten();
  }
}

void IpTunnelVlanMcastGroupSm::deleteOverlayGroup(const OverlayVlanGroup& group) {
  in.vlanToGroupStatus->vlanToMulticastGroupDel(group);
  statusWritten();
}

bool IpTunnelVlanMcastGroupSm::overlayGroupExists(const OverlayVlanGroup& group) const {
  for (const auto& entry : in.vlanGroupTableColl->tableIterator())
    if (holdsGroup(entry.value, group)) return true;
  return false;
}

IpGenAddr IpTunnelVlanMcastGroupSm::vtepAddr(AddressFamily af) const {
  switch (af) {
    case AddressFamily::ipv4:
      return in.ipTunnelMappingStatus->localVtepAddr();
    case AddressFamily::ipv6:
      return in.ipTunnelMappingStatus->localVtepAddr6();
    default:
      return {};
  }
}

TunnelType IpTunnelVlanMcastGroupSm::getTunnelType(const OverlayVlanGroup& group) const {
  if (holdsGroup(in.vlanGroupTableColl->table(VlanGroupTableColl::getDefaultTableName()), group)) {
    const TunnelType type = in.ipTunnelMappingStatus->tunnelType();
    if (auto t = traceHandle.at(9))
      t << "Found " << textOf(group) << " in the default table. Tunnel Type is " << textOf(type);
    return type;
  }
  if (auto t = traceHandle.at(9))
    t << textOf(group) << " not in the default table. "
      << "Use PimSsm tunnel type";
  return TunnelType::PimSsm;
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::IpTunnelVlanMcastGroupSm)
VESK_REGISTER(Multicast::Vpn::IpTunnelVlanMcastGroupSm::TableSm)
VESK_REGISTER(Multicast::Vpn::IpTunnelVlanMcastGroupSm::TableSm::GroupSm)
VESK_REGISTER(Multicast::Vpn::IpTunnelVlanMcastGroupSm::VlanMapSm)
