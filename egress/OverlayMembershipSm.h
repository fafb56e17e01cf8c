// What the clients' joins change: each change of a join becomes an entry in the change sets.
// Owns: a machine per client, in it one per vlan; of the MLAG peer's joins also one per group and
// source. Reads: the joins, the SBD vlan of a vlan and back. Writes: change sets, through
// ReviewHelper, and the index of receivers. Runs: in reactors only, one group at a time; a wildcard
// takes all vlan groups of its vlan. Caveat: nothing is judged here. What leaves is reported by
// `handleDel`, while it is still known.
#pragma once

#include <string>

#include "egress/ReceiverIndex.h"
#include "egress/ReviewHelper.h"
#include "runtime/Record.h"

namespace Irb::Multicast::Egress {

/// The joins of one client, local or peer.
class LocalMembershipChangeSm final : public Vesk::Machine {
  VESK_RECORD(Irb::Multicast::Egress::LocalMembershipChangeSm)
  struct Inputs {
    Mode mode;
    Ombra::Ptr<Gmp::MembershipJoinStatus const> membershipJoinStatus;
    Ombra::Ptr<McastIrbStatus const> mcastIrbStatus;
    Ombra::Ptr<SbdToVlanStatus const> sbdToVlanStatus;
    Ombra::Ptr<ReviewHelper const> reviewHelper;
    Ombra::Ptr<ReceiverIndex> receivers;
    bool operator==(const Inputs&) const = default;
  };
  explicit LocalMembershipChangeSm(Inputs inputs)
      : in(std::move(inputs)),
        joiner(in.mode == Mode::groupLevel ? Joiners::local(in.membershipJoinStatus->name())
                                           : Joiners::peer(in.membershipJoinStatus->name())) {
    vlans_.begin();
  }
  const Inputs in;
  const Joiners joiner;
  /// The client goes: reviews all that it has fed.
  void handleDel();

  class VlanSm final : public Vesk::Machine {
    VESK_RECORD(Irb::Multicast::Egress::LocalMembershipChangeSm::VlanSm)
    struct Inputs {
      LocalMembershipChangeSm* parent;
      Ombra::Ptr<Gmp::VlanMembershipJoin const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit VlanSm(Inputs inputs) : in(std::move(inputs)) { handleVlan(); }
    const Inputs in;
    void handleDel();
    void review() override { handleVlan(); }
    /// Asks for the review of whatever a join of this group counts for.
    void groupChanged(Pavlin::IpGenAddr group);
    /// Tells the index.
    void groupJoinedIs(const Pavlin::IpGenAddr& group, bool joined);

    class NestedSm_GroupMembership final : public Vesk::Machine {
      VESK_RECORD(Irb::Multicast::Egress::LocalMembershipChangeSm::VlanSm::NestedSm_GroupMembership)
      struct Inputs {
        VlanSm* parent;
        Ombra::Ptr<Gmp::GroupMembershipJoin const> row;
        bool operator==(const Inputs&) const = default;
      };
      explicit NestedSm_GroupMembership(Inputs inputs) : in(std::move(inputs)) {
        in.parent->groupJoinedIs(in.row->groupAddr(), true);
        sources_.begin();
      }
      const Inputs in;
      void handleDel();

      class NestedSm_SourceMembership final : public Vesk::Machine {
        // A break would stand in the name.
        // clang-format off
        VESK_RECORD(Irb::Multicast::Egress::LocalMembershipChangeSm::VlanSm::NestedSm_GroupMembership::NestedSm_SourceMembership)
        // clang-format on
        struct Inputs {
          NestedSm_GroupMembership* parent;
          Ombra::Ptr<Gmp::SourceMembershipJoin const> row;
          bool operator==(const Inputs&) const = default;
        };
        explicit NestedSm_SourceMembership(Inputs inputs) : in(std::move(inputs)) {
          handleInterfaces();
        }
        const Inputs in;
        void handleDel() { handleInterfaces(); }
        void review() override { handleInterfaces(); }

       private:
        void handleInterface(Pavlin::IntfId intf);
        void handleInterfaces();
        void groupChanged() { in.parent->in.parent->groupChanged(in.parent->in.row->groupAddr()); }

        using Row = Gmp::SourceMembershipJoin;
        using Self = NestedSm_SourceMembership;
        Vesk::Watch firstIntf_ = watch<&Self::handleInterface>(in.row, Row::firstIntfAttr);
        Vesk::Watch secondIntf_ = watch<&Self::handleInterface>(in.row, Row::secondIntfAttr);
      };

      VESK_INSTANCES(Pavlin::IpGenAddr, NestedSm_SourceMembership, sourceMembership)

     private:
      Vesk::Follow sources_ =
          follow(in.row, Gmp::GroupMembershipJoin::sourceAttr, sourceMembershipAttr);
    };

    /// At interface level only.
    VESK_INSTANCES(Pavlin::IpGenAddr, NestedSm_GroupMembership, groupMembership)

   private:
    void handleVlan();
    void handleGroup(Pavlin::IpGenAddr group);
    /// The row if its groups are followed to this depth, else null.
    [[nodiscard]] Ombra::Ptr<Gmp::VlanMembershipJoin const> rowOf(Mode mode) const {
      return in.parent->in.mode == mode ? in.row : nullptr;
    }

    Vesk::Watch group_ =
        watch<&VlanSm::handleGroup>(rowOf(Mode::groupLevel), Gmp::VlanMembershipJoin::groupAttr);
    Vesk::Follow groups_ = follow(rowOf(Mode::interfaceLevel), Gmp::VlanMembershipJoin::groupAttr,
                                  groupMembershipAttr);
  };

  VESK_INSTANCES(Bridging::VlanId, VlanSm, vlanMembership)

 private:
  Vesk::Follow vlans_ =
      follow(in.membershipJoinStatus, Gmp::MembershipJoinStatus::vlanAttr, vlanMembershipAttr);
};

class OverlayMembershipChangeSm final : public Vesk::Machine {
  VESK_RECORD(Irb::Multicast::Egress::OverlayMembershipChangeSm)
  struct Inputs {
    Ombra::Ptr<MembershipJoinStatusColl const> joinStatusColl;
    Ombra::Ptr<McastIrbStatus const> mcastIrbStatus;
    Ombra::Ptr<SbdToVlanStatus const> sbdToVlanStatus;
    Ombra::Ptr<Routing::Multicast::IpTunnelVlanGroupStatus const> tunnelVlanGroupStatus;
    ReviewTarget local;
    ReviewTarget remote;
    Ombra::Ptr<ReceiverIndex> receivers;
    bool operator==(const Inputs&) const = default;
  };
  explicit OverlayMembershipChangeSm(Inputs inputs);
  const Inputs in;

  VESK_INSTANCES(std::string, LocalMembershipChangeSm, localSm)
  VESK_INSTANCES(std::string, LocalMembershipChangeSm, peerSm)

 private:
  void handleInitialized();
  void handleLocalMembership(std::string name);
  void handlePeerMembership(std::string name);
  [[nodiscard]] Ombra::Ptr<ReviewHelper const> createReviewHelper(
      const Gmp::MembershipJoinStatus& membershipJoinStatus) const;
  [[nodiscard]] LocalMembershipChangeSm::Inputs inputsOf(
      Mode mode, const Ombra::Ptr<Gmp::MembershipJoinStatus const>& status) const;

  using Self = OverlayMembershipChangeSm;
  Vesk::Watch localMembership_ = watch<&Self::handleLocalMembership>(
      in.joinStatusColl, MembershipJoinStatusColl::localMembershipAttr);
  Vesk::Watch peerMembership_ = watch<&Self::handlePeerMembership>(
      in.joinStatusColl, MembershipJoinStatusColl::peerMembershipAttr);
};

}  // namespace Irb::Multicast::Egress
