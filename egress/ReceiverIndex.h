// Which members of an SBD vlan are worth asking for receivers of a group: those in which a client
// has joined it, or everything. Whether such a join counts, the clients' tables tell.
// Owns: the joins of vlans that are bound, by SBD vlan and group, with a bit for each client.
// Reads: the SBD vlan of a vlan; the joins of one that moves. Writes: nothing. Runs: in the
// reactors of the change machines, which report each join. Caveat: vlans that are not bound have no
// place here.
#pragma once

#include <algorithm>

#include <absl/container/inlined_vector.h>

#include "records/Egress.h"
#include "runtime/KeyedMap.h"
#include "runtime/Record.h"

namespace Irb::Multicast::Egress {

class ReceiverIndex final : public Vesk::Machine {
  VESK_RECORD(Irb::Multicast::Egress::ReceiverIndex)
  struct Inputs {
    Ombra::Ptr<MembershipJoinStatusColl const> joinStatusColl;
    Ombra::Ptr<McastIrbStatus const> mcastIrbStatus;
    bool operator==(const Inputs&) const = default;
  };
  explicit ReceiverIndex(Inputs inputs);
  const Inputs in;

  /// The client has a join of the group in the vlan, or has it no longer.
  void groupJoinedIs(Joiners joiner, Bridging::VlanId vlan, const Pavlin::IpGenAddr& group,
                     bool joined);
  /// The client has joins in the vlan, or has none.
  void vlanJoinedIs(Joiners joiner, Bridging::VlanId vlan, bool joined);

  /// True as soon as the test holds for a member of the SBD vlan in which the group, or everything,
  /// is joined, and for those who have joined. The test must not change the index.
  template <class Test>
  [[nodiscard]] bool anyJoined(Bridging::VlanId sbdVlan, const Pavlin::IpGenAddr& group,
                               Test test) const {
    for (const auto& joined : {group, IpGenAddr(Pavlin::ipv4()), IpGenAddr(Pavlin::ipv6())})
      if (holds(groups_.find({sbdVlan, Routing::Multicast::OverlayAddr(joined)}), test))
        return true;
    return false;
  }
  /// The same for a member in which any group is joined.
  template <class Test>
  [[nodiscard]] bool anyJoined(Bridging::VlanId sbdVlan, Test test) const {
    return holds(vlans_.find(sbdVlan), test);
  }

 private:
  using IpGenAddr = Pavlin::IpGenAddr;

  struct Member {
    Bridging::VlanId vlan;
    Joiners joiners;
  };
  /// In order of the vlans.
  using Members = absl::InlinedVector<Member, 2>;
  template <class Key>
  using MembersOf = Vesk::KeyedMap<Key, Members>;

  template <class Test>
  [[nodiscard]] static bool holds(const Members* members, Test test) {
    if (members == nullptr) return false;
    return std::any_of(members->begin(), members->end(),
                       [&](const Member& member) { return test(member.vlan, member.joiners); });
  }
  template <class Key>
  static void enter(MembersOf<Key>& index, const Key& key, Bridging::VlanId vlan, Joiners joiner,
                    bool joined);

  void handleVlanToSbd(Bridging::VlanId vlan);
  /// Enters or takes out all joins of the vlan, under the SBD vlan that it is bound to.
  void joinsOf(Bridging::VlanId vlan, bool joined);
  void joinsOf(Joiners joiner, const Gmp::MembershipJoinStatus& status, Bridging::VlanId vlan,
               bool joined);

  MembersOf<Routing::Multicast::OverlayVlanGroup> groups_;
  MembersOf<Bridging::VlanId> vlans_;
  Vesk::KeyedMap<Bridging::VlanId, Bridging::VlanId> sbdOf_;
  Vesk::Watch vlanToSbd_ =
      watch<&ReceiverIndex::handleVlanToSbd>(in.mcastIrbStatus, McastIrbStatus::vlanToSbdAttr);
};

}  // namespace Irb::Multicast::Egress
