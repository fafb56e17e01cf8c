// The decapsulating side's own records: what has to be reviewed, and who has receivers.
// Written by: the frame (MembershipJoinStatusColl, McastVrfLeakCtx), the change machines
// (OverlayChangeSet). Read by: the membership machines and the injection review. All in-process,
// rebuilt at every start. Caveat: a client's receivers count for the domains that its number stands
// for.
#pragma once

#include <string>

#include "records/Enums.h"
#include "records/Keys.h"
#include "records/McastIrbStatus.h"
#include "records/MembershipJoin.h"
#include "records/ReferenceMap.h"
#include "records/VrfLeak.h"
#include "records/Vxlan.h"
#include "runtime/Record.h"

namespace Irb::Multicast::Egress {

/// Vlans and groups that wait for a review. A walker deletes the run up to its bookmark in one
/// call.
class OverlayChangeSet : public Vesk::Entity {
  VESK_RECORD(Irb::Multicast::Egress::OverlayChangeSet)
  VESK_SET(Routing::Multicast::OverlayVlanGroup, vlanGroup)
  VESK_SET(Bridging::VlanId, vlan)
  /// Raised after members were added.
  VESK_VALUE(std::uint32_t, changed)

  void changedInc(std::uint32_t n) { changedIs(changed() + n); }
};

/// What it takes to tell whether a group leaks into another VRF.
class McastVrfLeakCtx : public Vesk::Entity {
  VESK_RECORD(Irb::Multicast::Egress::McastVrfLeakCtx)
  VESK_REF(McastIrbStatus const, mcastIrbStatus)
  VESK_REF(Vxlan::EnabledStatus const, vxlanEnabledStatus)
  VESK_REF(Routing::Multicast::VrfLeak::VrfLeakMatcherStatus const, vrfLeakMatcherStatus)
  VESK_REF(Routing::Multicast::VrfLeak::McastVrfLeakConfig const, vrfLeakConfig)
};

/// A set of clients of this switch and of its MLAG peer. One whose name is not known is in none:
/// its joins count for nothing.
class Joiners {
 public:
  [[nodiscard]] static Joiners all() { return Joiners(~0U); }
  [[nodiscard]] static Joiners local(std::string_view name) { return Joiners(bit(name)); }
  [[nodiscard]] static Joiners peer(std::string_view name) { return Joiners(bit(name) << 16); }

  [[nodiscard]] bool empty() const { return bits_ == 0; }
  [[nodiscard]] bool intersects(Joiners other) const { return (bits_ & other.bits_) != 0; }
  void add(Joiners other) { bits_ |= other.bits_; }
  void remove(Joiners other) { bits_ &= ~other.bits_; }

 private:
  explicit Joiners(std::uint32_t bits) : bits_(bits) {}
  static std::uint32_t bit(std::string_view name) {
    const App::Client client = App::ClientInstance(name);
    return client == App::Client::unknown ? 0 : 1U << static_cast<unsigned>(client);
  }
  std::uint32_t bits_;
};

/// The joins of all clients of one family, by client name.
class MembershipJoinStatusColl : public Vesk::Entity {
  VESK_RECORD(Irb::Multicast::Egress::MembershipJoinStatusColl)
  VESK_REF(McastVrfLeakCtx const, mcastVrfLeakCtx)
  VESK_REFERENCES(std::string, Gmp::MembershipJoinStatus const, localMembership)
  /// Joins of the MLAG peer.
  VESK_REFERENCES(std::string, Gmp::MembershipJoinStatus const, peerMembership)

  /// Under the record's own name.
  void localMembershipIs(const Ombra::Ptr<Gmp::MembershipJoinStatus const>& status) {
    localMembershipIs(status->name(), status);
  }
  void peerMembershipIs(const Ombra::Ptr<Gmp::MembershipJoinStatus const>& status) {
    peerMembershipIs(status->name(), status);
  }

  /// For which domains these clients have receivers of the group in the vlan; 0 if they have none.
  [[nodiscard]] ReceiverDomain groupActive(const Bridging::VlanId& vlan,
                                           const Pavlin::IpGenAddr& group,
                                           Joiners among = Joiners::all()) const;
  /// For which domains they have receivers of any group in the vlan.
  [[nodiscard]] ReceiverDomain vlanActive(const Bridging::VlanId& vlan,
                                          Joiners among = Joiners::all()) const;
  /// True if another VRF serves the group, so that a join of it is no reason to pull it through
  /// this vlan's SBD.
  [[nodiscard]] bool leakedGroup(const Bridging::VlanId& vlan,
                                 const Pavlin::IpGenAddr& group) const;
  /// The part of the peer's mask that the receivers of one group stand for: those behind tunnels
  /// for the remote and the local-only domain, all others for the plain one.
  [[nodiscard]] ReceiverDomain groupDomainHelper(const Gmp::GroupMembershipJoin& groupMembership,
                                                 ReceiverDomain currentDomain) const;
};

}  // namespace Irb::Multicast::Egress
