#include "egress/ReceiverIndex.h"

namespace Irb::Multicast::Egress {

using Bridging::VlanId;
using Pavlin::IpGenAddr;
using Routing::Multicast::OverlayAddr;

/// The change machines come after it and report every join that is there.
ReceiverIndex::ReceiverIndex(Inputs inputs) : in(std::move(inputs)) {
  for (const VlanId& vlan : in.mcastIrbStatus->vlanToSbdKeys())
    if (const auto sbdVlan = in.mcastIrbStatus->sbdOf(vlan)) sbdOf_.insert(vlan, *sbdVlan);
}

void ReceiverIndex::groupJoinedIs(Joiners joiner, VlanId vlan, const IpGenAddr& group,
                                  bool joined) {
  if (const VlanId* const sbdVlan = sbdOf_.find(vlan))
    enter(groups_, {*sbdVlan, OverlayAddr(group)}, vlan, joiner, joined);
}

void ReceiverIndex::vlanJoinedIs(Joiners joiner, VlanId vlan, bool joined) {
  if (const VlanId* const sbdVlan = sbdOf_.find(vlan))
    enter(vlans_, *sbdVlan, vlan, joiner, joined);
}

template <class Key>
void ReceiverIndex::enter(MembersOf<Key>& index, const Key& key, VlanId vlan, Joiners joiner,
                          bool joined) {
  if (joiner.empty()) return;
  Members* members = index.find(key);
  if (members == nullptr) {
    if (joined) index.insert(key, Members{{vlan, joiner}});
    return;
  }
  const auto place =
      std::lower_bound(members->begin(), members->end(), vlan,
                       [](const Member& member, VlanId other) { return member.vlan < other; });
  const bool present = place != members->end() && place->vlan == vlan;
  if (joined) {
    present ? place->joiners.add(joiner) : void(members->insert(place, {vlan, joiner}));
    return;
  }
  if (!present) return;
  place->joiners.remove(joiner);
  if (!place->joiners.empty()) return;
  members->erase(place);
  if (members->empty()) index.erase(key);
}

void ReceiverIndex::handleVlanToSbd(VlanId vlan) {
  const auto present = in.mcastIrbStatus->sbdOf(vlan);
  const VlanId* const last = sbdOf_.find(vlan);
  if (last != nullptr && *last == present) return;
  if (last != nullptr) {
    joinsOf(vlan, false);
    sbdOf_.erase(vlan);
  }
  if (!present) return;
  sbdOf_.insert(vlan, *present);
  joinsOf(vlan, true);
}

void ReceiverIndex::joinsOf(VlanId vlan, bool joined) {
  for (const auto& [name, status] : in.joinStatusColl->localMembershipIterator())
    joinsOf(Joiners::local(name), *status, vlan, joined);
  for (const auto& [name, status] : in.joinStatusColl->peerMembershipIterator())
    joinsOf(Joiners::peer(name), *status, vlan, joined);
}

void ReceiverIndex::joinsOf(Joiners joiner, const Gmp::MembershipJoinStatus& status, VlanId vlan,
                            bool joined) {
  const auto membership = status.vlan(vlan);
  if (!membership) return;
  vlanJoinedIs(joiner, vlan, joined);
  for (const auto& [group, join] : membership->groupIterator())
    groupJoinedIs(joiner, vlan, group, joined);
}

}  // namespace Irb::Multicast::Egress

VESK_REGISTER(Irb::Multicast::Egress::ReceiverIndex)
