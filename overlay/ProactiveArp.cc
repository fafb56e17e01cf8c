#include "overlay/ProactiveArp.h"

#include "overlay/IngressL3RouteSm.h"
#include "runtime/Trace.h"

namespace Multicast::Vpn {

using Pavlin::IpGenAddr;
using Vesk::textOf;

namespace {

const Vesk::TraceHandle traceHandle{"IngressL3RouteSm"};

}  // namespace

ProactiveArp::ProactiveArp(IngressL3RouteSm* owner)
    : owner_(*owner),
      use_(owner->in.proactiveArpUse ? owner->in.proactiveArpUse : Ombra::make<ProactiveArpUse>()) {
  use_->startingIs(use_->starting() + 1);
}

// --- the routes of a VRF

void ProactiveArp::need(const Source& source, const IpGenAddr& group) {
  const bool isNew = !owner_.arpEntryVrfCollHas(source.entry);
  owner_.arpEntryVrfCollIs(source.entry)->vrfIs(source.vrf)->groupIs(group);
  if (isNew) handleArpEntry(source.entry);
}

void ProactiveArp::needNoMore(const Source& source, const IpGenAddr& group) {
  const auto groups = groupsOf(source);
  if (!groups) return;
  groups->groupDel(group);
  if (groups->groupCount() != 0) return;
  fdbKeyIs(source, std::nullopt);
  const auto record = owner_.arpEntryVrfColl(source.entry);
  record->vrfDel(source.vrf);
  if (record->vrfCount() != 0) return;
  owner_.arpEntryVrfCollDel(source.entry);
  handleArpEntry(source.entry);
}

Ombra::Ptr<VrfGroupColl> ProactiveArp::groupsOf(const Source& source) const {
  const auto record = owner_.arpEntryVrfColl(source.entry);
  return record ? record->vrf(source.vrf) : nullptr;
}

void ProactiveArp::fdbKeyIs(const Source& source, const std::optional<FdbKey>& fdbKey) {
  if (const FdbKey* const known = fdbKeyOfSource_.find(source)) {
    if (fdbKey == *known) return;
    sourcesOfFdbKey_.remove(FdbKey(*known), source);
    fdbKeyOfSource_.erase(source);
    entriesOfVrf_.remove(source.vrf, source.entry);
  }
  if (!fdbKey) return;
  fdbKeyOfSource_.insert(source, *fdbKey);
  sourcesOfFdbKey_.add(*fdbKey, source);
  entriesOfVrf_.add(source.vrf, source.entry);
}

void ProactiveArp::vrfGoes(const L3::VrfName& vrf) {
  for (const Entry& entry : entriesOfVrf_.of(vrf))
    fdbKeyIs({vrf, entry}, std::nullopt);
}

std::vector<ProactiveArp::Entry> ProactiveArp::entriesOf(const IpGenAddr& addr) const {
  std::vector<Entry> entries;
  for (const Pavlin::IntfId& intf : intfsOfAddr_.of(addr))
    entries.push_back({addr, intf});
  return entries;
}

// --- requests

void ProactiveArp::start() {
  if (started_) return;
  started_ = true;
  use_->startingIs(use_->starting() - 1);
}

void ProactiveArp::handleArpEntry(const Entry& entry) {
  const std::uint32_t users = use_->users(entry);
  auto& config = *owner_.in.proactiveArpConfig;
  if (owner_.arpEntryVrfCollHas(entry)) {
    if (auto t = traceHandle.at(6))
      t << " Adding arp config entry (source " << entry.addr << ", intfId " << entry.intfId << ")";
    intfsOfAddr_.add(entry.addr, entry.intfId);
    use_->usersIs(entry, users + 1);
    config.requestIs(Arp::ProactiveArp::Request{.entry = entry});
    return;
  }
  intfsOfAddr_.remove(entry.addr, entry.intfId);
  if (users > 1) {
    use_->usersIs(entry, users - 1);
    return;
  }
  if (auto t = traceHandle.at(6))
    t << " Deleting arp config entry (source " << entry.addr << ", intfId " << entry.intfId << ")";
  use_->usersDel(entry);
  config.requestDel(entry);
}

bool ProactiveArp::review(Sylva::Slice& slice) {
  // The machine of the other domain may want what nobody wants so far; its word wakes the owner.
  if (use_->starting() != 0) return true;
  auto& pass = owner_.arpReview_;
  if (!pass.begins()) return true;
  auto& config = *owner_.in.proactiveArpConfig;
  const std::size_t before = slice.items();
  for (const auto& request : config.requestIteratorFrom(pass.place())) {
    const Entry entry = request.key;
    if (!slice.take()) {
      pass.stopAt(entry);
      if (auto t = traceHandle.at(7))
        t << "Yielding, processed " << before << " routes, " << slice.items() - before
          << " arp entries "
          << " Bookmark: Arp Entry " << textOf(entry);
      return false;
    }
    if (owner_.arpEntryVrfCollHas(entry)) {
      dropVrfsWithoutSm(entry);
    } else if (use_->users(entry) == 0) {
      if (auto t = traceHandle.at(6))
        t << " Review deleting arp config entry (source " << entry.addr << ", intfId  "
          << entry.intfId << ")";
      config.requestDel(entry);
    }
  }
  pass.ends();
  return true;
}

void ProactiveArp::dropVrfsWithoutSm(const Entry& entry) {
  const auto record = owner_.arpEntryVrfColl(entry);
  for (const auto& vrf : record->vrfIterator())
    if (!owner_.vrfSmHas(vrf.key)) record->vrfDel(vrf.key);
  if (record->vrfCount() != 0) return;
  owner_.arpEntryVrfCollDel(entry);
  handleArpEntry(entry);
}

void ProactiveArp::withdraw() {
  start();
  for (const auto& record : owner_.arpEntryVrfCollIterator()) {
    owner_.arpEntryVrfCollDel(record.key);
    handleArpEntry(record.key);
  }
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::ProactiveArpUse)
