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
  for (const auto& [name, row] : in.vlanGroupTableColl->tableIterator())
    vlanGroupTableStatusIs(name, {.parent = this, .row = row});
  for (const auto& [vlan, row] : in.ipTunnelMappingStatus->vlanStatusIterator())
    vlanMappingStatusIs(vlan, {.parent = this, .row = row});
  handleInitialized();
}

void IpTunnelVlanMcastGroupSm::handleInitialized() {
  if (isInputReady()) {
    reviewOutputIs(true);
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
  const Ombra::Ptr<VlanGroupTable const> row = in.vlanGroupTableColl->table(name);
  if (const auto present = vlanGroupTableStatus(name); present && present->in.row != row) {
    present->handleDel();
    vlanGroupTableStatusDel(name);
  }
  if (!row) return;
  vlanGroupTableStatusIs(name, {.parent = this, .row = row});
  for (const auto& entry : row->vlanIterator())
    scheduleInputReview(name, entry.key);
}

void IpTunnelVlanMcastGroupSm::handleVlanStatus(VlanId vlan) {
  const Ombra::Ptr<VlanToGroupMapping const> row = in.ipTunnelMappingStatus->vlanStatus(vlan);
  if (const auto present = vlanMappingStatus(vlan); present && present->in.row != row) {
    present->handleDel();
    vlanMappingStatusDel(vlan);
  }
  if (!row) return;
  vlanMappingStatusIs(vlan, {.parent = this, .row = row});
  scheduleVlanInputReview(vlan);
}

IpTunnelVlanMcastGroupSm::TableSm::TableSm(Inputs inputs) : in(std::move(inputs)) {
  for (const auto& [vlan, row] : in.row->vlanIterator())
    vlanGroupStatusIs(vlan, {.parent = in.parent, .row = row});
}

void IpTunnelVlanMcastGroupSm::TableSm::handleVlan(VlanId vlan) {
  const Ombra::Ptr<GroupTable const> row = in.row->vlan(vlan);
  if (const auto present = vlanGroupStatus(vlan); present && present->in.row != row) {
    present->handleDel();
    vlanGroupStatusDel(vlan);
  }
  if (!row) return;
  vlanGroupStatusIs(vlan, {.parent = in.parent, .row = row});
  if (row->groupCount() != 0) in.parent->scheduleInputReview(in.row->name(), vlan);
}

void IpTunnelVlanMcastGroupSm::TableSm::handleDel() {
  for (const auto& entry : vlanGroupStatusIterator())
    entry.value->handleDel();
  in.parent->scheduleOutputReview();
}

void IpTunnelVlanMcastGroupSm::TableSm::GroupSm::handleGroup(IpGenAddr group) {
  const VlanId vlan = in.row->vlanId();
  in.parent->updateOverlayGroup(vlan, group, in.parent->in.ipTunnelMappingStatus->vlanStatus(vlan));
}

void IpTunnelVlanMcastGroupSm::TableSm::GroupSm::handleDel() {
  if (in.row->groupCount() == 0) return;  // each of its groups has been judged when it went
  // What is left of these groups in another table may owe its tunnel type to this one.
  in.parent->scheduleVlanInputReview(in.row->vlanId());
  in.parent->scheduleOutputReview();
}

void IpTunnelVlanMcastGroupSm::VlanMapSm::handleVlanTunnelConfigEntry() {
  vlanDefaultWatch_.inputIs(in.row->vlanTunnelConfigEntry());
  vlanGroupWatch_.inputIs(in.row->vlanTunnelConfigEntry());
  scheduleReview();
}

void IpTunnelVlanMcastGroupSm::VlanMapSm::handleVrfTunnelConfigEntry() {
  vrfDefaultWatch_.inputIs(in.row->vrfTunnelConfigEntry());
  vrfRangeWatch_.inputIs(in.row->vrfTunnelConfigEntry());
  scheduleReview();
}

void IpTunnelVlanMcastGroupSm::VlanMapSm::handleVrfImmediateGroupStatus() {
  vrfGroupWatch_.inputIs(in.row->vrfImmediateGroupStatus());
  scheduleReview();
}

void IpTunnelVlanMcastGroupSm::VlanMapSm::handleImmediateGroup(OverlayAddr overlayAddr) {
  in.parent->updateOverlayGroup(in.row->vlanId(), overlayAddr.genAddr(), in.row);
}

// --- what is due

void IpTunnelVlanMcastGroupSm::scheduleInputReview(const std::string& tableName, VlanId vlan) {
  vlanInputChangeSetIs({tableName, vlan});
  scheduleWalk();
}

void IpTunnelVlanMcastGroupSm::scheduleVlanInputReview(VlanId vlan) {
  for (const auto& [name, table] : in.vlanGroupTableColl->tableIterator())
    if (table->vlanHas(vlan)) vlanInputChangeSetIs({name, vlan});
  scheduleWalk();
}

void IpTunnelVlanMcastGroupSm::scheduleAllInputReview() {
  for (const auto& [name, table] : in.vlanGroupTableColl->tableIterator())
    for (const auto& entry : table->vlanIterator())
      vlanInputChangeSetIs({name, entry.key});
  if (vlanInputChangeSetCount() != 0) scheduleWalk();
}

void IpTunnelVlanMcastGroupSm::scheduleOutputReview() {
  if (!isInputReady()) {
    if (auto t = traceHandle.at(7)) t << "Input is not ready yet. Not scheduling output review";
    return;
  }
  reviewOutputIs(true);
  scheduleWalk();
}

bool IpTunnelVlanMcastGroupSm::isInputReady() const {
  for (const auto& entry : in.vlanGroupTableColl->tableIterator())
    if (!entry.value->ready()) return false;
  return in.ipTunnelMappingStatus->ready();
}

// --- the walk

bool IpTunnelVlanMcastGroupSm::walkStartedNotification() {
  inputBookmarkIs({});
  outputBookmarkIs({});
  return vlanInputChangeSetCount() != 0 || reviewOutput();
}

IpTunnelVlanMcastGroupSm::WalkResult IpTunnelVlanMcastGroupSm::walk() {
  std::size_t processed = 0;
  const bool finished = reviewInputs(processed) && reviewOutputs(processed);
  return {!finished, processed};
}

bool IpTunnelVlanMcastGroupSm::reviewInputs(std::size_t& processed) {
  for (const auto& entry : vlanInputChangeSetIterator()) {
    // Out first: an event that puts it in again asks for another look.
    vlanInputChangeSetDel(entry);
    const auto table = in.vlanGroupTableColl->table(entry.tableName);
    const auto groups = table ? table->vlan(entry.vlanId) : nullptr;
    if (!groups) continue;
    const auto mapping = in.ipTunnelMappingStatus->vlanStatus(entry.vlanId);
    const IpTunnelVlanMcastGroupSmInputBookmark bookmark = inputBookmark();
    const bool resumed = bookmark.tableName == entry.tableName && bookmark.vlanId == entry.vlanId;
    for (const IpGenAddr& group :
         resumed ? groups->groupIteratorFrom(bookmark.group) : groups->groupIterator()) {
      if (processed != 0 && mustYield()) {
        vlanInputChangeSetIs(entry);
        inputBookmarkIs({entry.tableName, entry.vlanId, group});
        if (auto t = traceHandle.at(7))
          t << "Input review Yielding, processed " << processed << " groups."
            << " Bookmark: Table " << entry.tableName << " vlan " << entry.vlanId
            << " group: " << group;
        return false;
      }
      updateOverlayGroup(entry.vlanId, group, mapping);
      ++processed;
    }
    inputBookmarkIs({});
  }
  inputBookmarkIs({});
  return true;
}

bool IpTunnelVlanMcastGroupSm::reviewOutputs(std::size_t& processed) {
  if (!reviewOutput()) return true;
  const auto& status = *in.vlanToGroupStatus;
  const OverlayVlanGroup bookmark = outputBookmark();
  for (const auto& entry : bookmark == OverlayVlanGroup{}
                               ? status.vlanToMulticastGroupIterator()
                               : status.vlanToMulticastGroupIteratorFrom(bookmark)) {
    if (processed != 0 && mustYield()) {
      outputBookmarkIs(entry.key);
      if (auto t = traceHandle.at(7))
        t << "Output review Yielding, processed " << processed << " vlan groups."
          << " Bookmark: vlan-group " << textOf(entry.key);
      return false;
    }
    if (!overlayGroupExists(entry.key)) {
      if (auto t = traceHandle.at(6))
        t << " Review output deleting overlay vlan group " << textOf(entry.key);
      deleteOverlayGroup(entry.key);
    }
    ++processed;
  }
  outputBookmarkIs({});
  reviewOutputIs(false);
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
