#include "egress/VpnInjectReviewSm.h"

#include "platform/Toggles.h"
#include "runtime/Slice.h"
#include "runtime/Trace.h"

namespace Irb::Multicast::Egress {

using Bridging::VlanId;
using Routing::Multicast::OverlayVlanGroup;
using Routing::Multicast::UnderlayRoute;
using Vesk::textOf;

namespace {

const Vesk::TraceHandle traceHandle{"VpnInjectReviewSm"};

}  // namespace

VpnInjectReviewSm::VpnInjectReviewSm(Inputs inputs) : in(std::move(inputs)) {
  vlanGroups_.begin();
  handleInitialized();
}

/// Each entry has put itself into the change set when its nested machine was made: the first pass
/// is a full review.
void VpnInjectReviewSm::handleInitialized() {
  scheduleWalks();
}

void VpnInjectReviewSm::review() {
  for (const auto& entry : in.tunnelVlanGroupStatus->vlanToMulticastGroupIterator()) {
    in.changeSet->vlanGroupIs(entry.key);
    in.changeSet->vlanIs(entry.key.vlan);
  }
  scheduleWalks();
}

void VpnInjectReviewSm::handleChangeSet() {
  scheduleWalks();
}

void VpnInjectReviewSm::scheduleWalks() {
  vlanBookmarkIs({});
  vlanGroupBookmarkIs({});
  vlanGroupTask_.scheduleTask();
  vlanTask_.scheduleTask();
}

bool VpnInjectReviewSm::isDue(const OverlayVlanGroup& vlanGroup) const {
  return vlanGroup.group.isUnspecified() ? in.changeSet->vlanHas(vlanGroup.vlan)
                                         : in.changeSet->vlanGroupHas(vlanGroup);
}

void VpnInjectReviewSm::handleReviewComplete() {
  if (auto t = traceHandle.at(8))
    t << "Vlan:" << vlanReviewed() << " VlanGroup:" << vlanGroupReviewed();
  if (!firstReviewComplete() || !::Multicast::Vpn::toggleEvpnMulticastSSOEnabled() ||
      in.decapReadyStatus->vpnInjectReady())
    return;
  if (auto t = traceHandle.at(8)) t << "First vpn inject review complete, setting vpnInjectReady";
  in.decapReadyStatus->vpnInjectReadyIs(true);
}

// --- the walks

void VpnInjectReviewSm::walkVlanGroupBacklog() {
  walkBacklog<OverlayChangeSet::vlanGroupTag, vlanGroupBookmarkTag, vlanGroupReviewedTag>(
      "VlanGroup", vlanGroupTask_, &VpnInjectReviewSm::reviewVlanGroup);
}

void VpnInjectReviewSm::walkVlanBacklog() {
  walkBacklog<OverlayChangeSet::vlanTag, vlanBookmarkTag, vlanReviewedTag>(
      "Vlan", vlanTask_, &VpnInjectReviewSm::reviewVlan);
}

template <class SetTag, class BookmarkTag, class ReviewedTag, class Review>
void VpnInjectReviewSm::walkBacklog(const char* name, Vesk::MachineTask& task, Review review) {
  auto& set = SetTag::attr(*in.changeSet);
  auto& bookmark = BookmarkTag::attr(*this);
  auto& reviewed = ReviewedTag::attr(*this);

  const auto place = bookmark.get();
  if (auto t = traceHandle.at(8)) {
    t << name << " Review: ";
    place ? t << "resuming:" << textOf(*place) : t << "starting";
  }
  bookmark.is(*this, BookmarkTag::id, {});

  Sylva::Slice slice(task);
  auto member = set.map().from(place);
  while (!member.atEnd() && slice.take()) {
    const auto key = member.key();
    set.del(*in.changeSet, SetTag::id, key);
    (this->*review)(key);
    member.advance();
  }
  task.taskWorkCountInc(slice.items());

  // What was added behind the walk is its business too: it goes round until nothing is left.
  const bool finished = set.count() == 0;
  if (finished) {
    if (!reviewed.get()) {
      reviewed.is(*this, ReviewedTag::id, true);
      handleReviewComplete();
    }
  } else {
    if (!member.atEnd()) bookmark.is(*this, BookmarkTag::id, member.key());
    task.scheduleTask();
  }
  if (auto t = traceHandle.at(8))
    t << name << " Review: finished:" << finished << ": processed:" << slice.items()
      << " remaining:" << set.count();
}

// --- the judgements

void VpnInjectReviewSm::reviewVlanGroup(const OverlayVlanGroup& vlanGroup) {
  const Pavlin::IpGenAddr& group = vlanGroup.group.genAddr();
  if (group.isUnspecified()) {
    if (auto t = traceHandle.at(8)) t << "VlanGroup Review: skipping any group";
    return;
  }
  judge(
      vlanGroup,
      [&](VlanId vlan, Joiners among) {
        return joinDomain(in.joinStatusColl->groupActive(vlan, group, among));
      },
      [&](auto wants) { return in.receivers->anyJoined(vlanGroup.vlan, group, wants); });
}

void VpnInjectReviewSm::reviewVlan(VlanId vlan) {
  judge(
      OverlayVlanGroup::anyGroup(vlan, in.af),
      [&](VlanId member, Joiners among) {
        return joinDomain(in.joinStatusColl->vlanActive(member, among));
      },
      [&](auto wants) { return in.receivers->anyJoined(vlan, wants); });
}

/// A mask joins if any of its bits does, so the members of an SBD vlan can be asked one by one.
template <class Wants, class AnyMember>
void VpnInjectReviewSm::judge(const OverlayVlanGroup& vlanGroup, Wants wants, AnyMember anyMember) {
  const auto entry = vlanToMulticastGroup(vlanGroup);
  if (!entry) {
    if (auto t = traceHandle.at(9)) t << "No VlanToMulticastGroup " << textOf(vlanGroup);
    return;
  }
  if (wants(vlanGroup.vlan, Joiners::all())) return entry->judgedAs(true);
  const auto sbd = in.sbdToVlanStatus->sbdStatus(vlanGroup.vlan);
  entry->judgedAs(sbd && anyMember([&](VlanId member, Joiners among) {
                    return sbd->vlanIdHas(member) && wants(member, among);
                  }));
}

// --- one vlan group

VpnInjectReviewSm::VlanToMulticastGroup::VlanToMulticastGroup(Inputs inputs)
    : in(std::move(inputs)),
      vlanIntf_(Pavlin::VlanIntfId::vlanIdToIntfId(in.row->overlayVlanGroup().vlan)) {
  handleVlanToMulticastGroup();
}

void VpnInjectReviewSm::VlanToMulticastGroup::handleVlanToMulticastGroup() {
  OverlayChangeSet& changeSet = *in.parent->in.changeSet;
  changeSet.vlanGroupIs(in.row->overlayVlanGroup());
  changeSet.vlanIs(in.row->overlayVlanGroup().vlan);
  changeSet.changedInc(1);
}

void VpnInjectReviewSm::VlanToMulticastGroup::judgedAs(bool joined) {
  if (joined == overlayMembership()) return;
  overlayMembershipIs(joined);
  handleOverlayMembership();
}

void VpnInjectReviewSm::VlanToMulticastGroup::handleOverlayMembership() {
  if (auto t = traceHandle.at(8)) {
    const auto& [vlan, group] = in.row->overlayVlanGroup();
    t << "Vlan " << vlan << ", Group " << group << "=> " << overlayMembership();
  }
  for (const UnderlayRoute& route : in.row->multicastGroupIterator())
    handleMulticastGroup(route);
}

void VpnInjectReviewSm::VlanToMulticastGroup::handleMulticastGroup(UnderlayRoute route) {
  if (overlayMembership() && in.row->multicastGroupHas(route)) {
    injectRouteIs(route, in.parent->in.underlayInjectDedupTable->dedup(
                             Routing::Gmp::Briskel::createRouteIntfKey(vlanIntf_, route)));
  } else {
    injectRouteDel(route);
  }
}

}  // namespace Irb::Multicast::Egress

VESK_REGISTER(Irb::Multicast::Egress::VpnInjectReviewSm)
VESK_REGISTER(Irb::Multicast::Egress::VpnInjectReviewSm::VlanToMulticastGroup)
