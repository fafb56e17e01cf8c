#include "egress/OverlayMembershipSm.h"

#include "platform/Toggles.h"

namespace Irb::Multicast::Egress {

using Bridging::VlanId;
using ::Multicast::Tunnel::McastTunnelIntfId;
using Pavlin::IntfId;
using Pavlin::IpGenAddr;
using Routing::Multicast::OverlayAddr;

using VlanSm = LocalMembershipChangeSm::VlanSm;
using GroupSm = VlanSm::NestedSm_GroupMembership;
using SourceSm = GroupSm::NestedSm_SourceMembership;

// --- clients

OverlayMembershipChangeSm::OverlayMembershipChangeSm(Inputs inputs) : in(std::move(inputs)) {
  handleInitialized();
}

void OverlayMembershipChangeSm::handleInitialized() {
  assertReduced(*in.tunnelVlanGroupStatus);
  for (const auto& entry : in.joinStatusColl->localMembershipIterator())
    handleLocalMembership(entry.key);
  for (const auto& entry : in.joinStatusColl->peerMembershipIterator())
    handlePeerMembership(entry.key);
}

void OverlayMembershipChangeSm::handleLocalMembership(std::string name) {
  if (const auto old = localSm(name)) old->handleDel();
  localSmDel(name);
  if (const auto status = in.joinStatusColl->localMembership(name))
    localSmIs(name, inputsOf(Mode::groupLevel, status));
}

void OverlayMembershipChangeSm::handlePeerMembership(std::string name) {
  if (const auto old = peerSm(name)) old->handleDel();
  peerSmDel(name);
  if (const auto status = in.joinStatusColl->peerMembership(name))
    peerSmIs(name, inputsOf(Mode::interfaceLevel, status));
}

Ombra::Ptr<ReviewHelper const> OverlayMembershipChangeSm::createReviewHelper(
    const Gmp::MembershipJoinStatus& membershipJoinStatus) const {
  return ReviewHelper::createReviewHelper(
      in.local, in.remote, receiverDomain(App::ClientInstance(membershipJoinStatus.name())));
}

LocalMembershipChangeSm::Inputs OverlayMembershipChangeSm::inputsOf(
    Mode mode, const Ombra::Ptr<Gmp::MembershipJoinStatus const>& status) const {
  return {.mode = mode,
          .membershipJoinStatus = status,
          .mcastIrbStatus = in.mcastIrbStatus,
          .sbdToVlanStatus = in.sbdToVlanStatus,
          .reviewHelper = createReviewHelper(*status),
          .receivers = in.receivers};
}

// --- what a client feeds, from the vlan down

void LocalMembershipChangeSm::handleDel() {
  for (const auto& entry : vlanMembershipIterator())
    entry.value->handleDel();
}

void VlanSm::handleVlan() {
  in.parent->in.receivers->vlanJoinedIs(in.parent->joiner, in.row->vlanId(), true);
  if (in.parent->in.mode == Mode::interfaceLevel) return groups_.begin();
  for (const auto& entry : in.row->groupIterator())
    handleGroup(entry.key);
}

void VlanSm::handleGroup(IpGenAddr group) {
  groupJoinedIs(group, in.row->groupHas(group));
  groupChanged(group);
}

void VlanSm::groupJoinedIs(const IpGenAddr& group, bool joined) {
  in.parent->in.receivers->groupJoinedIs(in.parent->joiner, in.row->vlanId(), group, joined);
}

void VlanSm::handleDel() {
  in.parent->in.receivers->vlanJoinedIs(in.parent->joiner, in.row->vlanId(), false);
  for (const auto& entry : groupMembershipIterator())
    entry.value->handleDel();
  if (in.parent->in.mode == Mode::interfaceLevel) return;
  for (const auto& entry : in.row->groupIterator()) {
    groupJoinedIs(entry.key, false);
    groupChanged(entry.key);
  }
}

void GroupSm::handleDel() {
  in.parent->groupJoinedIs(in.row->groupAddr(), false);
  for (const auto& entry : sourceMembershipIterator())
    entry.value->handleDel();
}

namespace {

/// Receivers behind the peer's tunnels are a gateway's business.
bool isSeen(IntfId intf) {
  return !McastTunnelIntfId::isMcastTunnelIntfId(intf) ||
         ::Multicast::Vpn::toggleOismGatewayEnabled();
}

/// One of the interfaces counts.
template <class Intfs>
bool anySeen(const Intfs& intfs) {
  for (const IntfId intf : intfs)
    if (isSeen(intf)) return true;
  return false;
}

}  // namespace

void SourceSm::handleInterface(IntfId intf) {
  if (isSeen(intf)) groupChanged();
}

void SourceSm::handleInterfaces() {
  if (::Multicast::Vpn::toggleOismGatewayEnabled() || anySeen(in.row->firstIntfIterator()) ||
      anySeen(in.row->secondIntfIterator()))
    groupChanged();
}

void VlanSm::groupChanged(IpGenAddr group) {
  const LocalMembershipChangeSm::Inputs& client = in.parent->in;
  const VlanId vlan = in.row->vlanId();
  const VlanId target = client.mcastIrbStatus->targetOf(vlan);
  if (!group.isUnspecified()) {
    client.reviewHelper->review({target, OverlayAddr(group)});
    // The SBD vlan of others, which is bound itself, counts its own receivers as well.
    if (target != vlan && client.sbdToVlanStatus->sbdStatusHas(vlan))
      client.reviewHelper->review({vlan, OverlayAddr(group)});
    return;
  }
  client.reviewHelper->reviewVlan(vlan);
  client.reviewHelper->reviewVlan(target);
}

}  // namespace Irb::Multicast::Egress

VESK_REGISTER(Irb::Multicast::Egress::OverlayMembershipChangeSm)
VESK_REGISTER(Irb::Multicast::Egress::LocalMembershipChangeSm)
VESK_REGISTER(Irb::Multicast::Egress::LocalMembershipChangeSm::VlanSm)
VESK_REGISTER(Irb::Multicast::Egress::LocalMembershipChangeSm::VlanSm::NestedSm_GroupMembership)
VESK_REGISTER(Irb::Multicast::Egress::LocalMembershipChangeSm::VlanSm::NestedSm_GroupMembership::
                  NestedSm_SourceMembership)
