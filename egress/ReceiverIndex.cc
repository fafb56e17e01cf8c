#include "egress/ReceiverIndex.h"

#include <algorithm>

namespace Irb::Multicast::Egress {

using Bridging::VlanId;
using Pavlin::IpGenAddr;
using Routing::Multicast::OverlayAddr;

Joiner::Joiner(std::string_view name, Egress::Mode mode) {
  const App::Client client = App::ClientInstance(name);
  const unsigned number = static_cast<unsigned>(client) + (mode == Mode::interfaceLevel ? 16U : 0U);
  bit_ = client == App::Client::unknown ? 0 : 1U << number;
}

ReceiverIndex::ReceiverIndex(Inputs inputs) : in(std::move(inputs)) {
  for (const VlanId& vlan : in.mcastIrbStatus->vlanToSbdKeys())
    handleVlanToSbd(vlan);
}

void ReceiverIndex::groupJoinedIs(Joiner joiner, VlanId vlan, const IpGenAddr& group, bool joined) {
  if (const VlanId* const sbdVlan = sbdOf_.find(vlan))
    enter(groups_, {*sbdVlan, OverlayAddr(group)}, vlan, joiner.bit(), joined);
}

void ReceiverIndex::vlanJoinedIs(Joiner joiner, VlanId vlan, bool joined) {
  if (const VlanId* const sbdVlan = sbdOf_.find(vlan))
    enter(vlans_, *sbdVlan, vlan, joiner.bit(), joined);
}

template <class Key>
void ReceiverIndex::enter(MembersOf<Key>& index, const Key& key, VlanId vlan, std::uint32_t joiner,
                          bool joined) {
  Members* members = index.find(key);
  if (members == nullptr) {
    if (joined && joiner != 0) index.insert(key, Members{{vlan, joiner}});
    return;
  }
  const auto place =
      std::lower_bound(members->begin(), members->end(), vlan,
                       [](const Member& member, VlanId other) { return member.vlan < other; });
  const bool present = place != members->end() && place->vlan == vlan;
  if (joined) {
    if (present) {
      place->joiners |= joiner;
    } else if (joiner != 0) {
      members->insert(place, {vlan, joiner});
    }
    return;
  }
  if (!present || (place->joiners &= ~joiner) != 0) return;
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
    joinsOf(Joiner(name, Mode::groupLevel), *status, vlan, joined);
  for (const auto& [name, status] : in.joinStatusColl->peerMembershipIterator())
    joinsOf(Joiner(name, Mode::interfaceLevel), *status, vlan, joined);
}

void ReceiverIndex::joinsOf(Joiner joiner, const Gmp::MembershipJoinStatus& status, VlanId vlan,
                            bool joined) {
  const auto membership = status.vlan(vlan);
  if (!membership) return;
  vlanJoinedIs(joiner, vlan, joined);
  for (const auto& [group, join] : membership->groupIterator())
    groupJoinedIs(joiner, vlan, group, joined);
}

}  // namespace Irb::Multicast::Egress

VESK_REGISTER(Irb::Multicast::Egress::ReceiverIndex)
