// Which overlay vlan groups have receivers in one domain: for these it holds the membership of each
// of their underlay routes.
// Owns: a nested machine per vlan group with the handles of its routes. Reads: the change set, the
// reduced status of the domain, the clients' joins, the members of SBD vlans. Writes: handles, and
// `vpnInjectReady` when both walks have been through once. Runs: routes that come and go at once,
// judgements in two tasks that yield after every member. Caveat: a member leaves the change set
// before it is judged, so that one that judging adds is judged as well.
#pragma once

#include <optional>

#include "egress/MembershipDedup.h"
#include "egress/ReceiverIndex.h"
#include "records/Egress.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/ReadyStatus.h"
#include "runtime/MachineTask.h"
#include "runtime/Record.h"

namespace Irb::Multicast::Egress {

class VpnInjectReviewSm final : public Vesk::Machine {
  VESK_RECORD(Irb::Multicast::Egress::VpnInjectReviewSm)
  using OverlayVlanGroup = Routing::Multicast::OverlayVlanGroup;
  using UnderlayRoute = Routing::Multicast::UnderlayRoute;
  using IpTunnelVlanGroupStatus = Routing::Multicast::IpTunnelVlanGroupStatus;
  using MembershipDedupTable = Routing::Gmp::MembershipDedupTable;

  struct Inputs {
    Sylva::TaskScheduler* taskScheduler;
    Pavlin::AddressFamily af;
    Domain domain;
    Ombra::Ptr<MembershipJoinStatusColl const> joinStatusColl;
    Ombra::Ptr<IpTunnelVlanGroupStatus const> tunnelVlanGroupStatus;
    Ombra::Ptr<OverlayChangeSet> changeSet;
    Ombra::Ptr<SbdToVlanStatus const> sbdToVlanStatus;
    Ombra::Ptr<MembershipDedupTable> underlayInjectDedupTable;
    Ombra::Ptr<::Multicast::Vpn::DecapReadyStatus> decapReadyStatus;
    Ombra::Ptr<ReceiverIndex const> receivers;
    bool operator==(const Inputs&) const = default;
  };
  explicit VpnInjectReviewSm(Inputs inputs);
  const Inputs in;

  /// One vlan group: whether it counts as having receivers, and the rows that it holds for it.
  class VlanToMulticastGroup final : public Vesk::Machine {
    VESK_RECORD(Irb::Multicast::Egress::VpnInjectReviewSm::VlanToMulticastGroup)
    struct Inputs {
      VpnInjectReviewSm* parent;
      Ombra::Ptr<Routing::Multicast::VlanToMulticastGroup const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit VlanToMulticastGroup(Inputs inputs);
    const Inputs in;

    VESK_VALUE(bool, overlayMembership)
    VESK_MAP(UnderlayRoute, MembershipDedupTable::Handle, injectRoute)

    /// Takes or drops the handles if this is news.
    void judgedAs(bool joined);
    void review() override { handleOverlayMembership(); }

   private:
    void handleVlanToMulticastGroup();
    void handleOverlayMembership();
    void handleMulticastGroup(UnderlayRoute route);

    const Pavlin::IntfId vlanIntf_;
    Vesk::Watch multicastGroup_ = watch<&VlanToMulticastGroup::handleMulticastGroup>(
        in.row, Routing::Multicast::VlanToMulticastGroup::multicastGroupAttr);
  };

  VESK_VALUE(std::optional<Bridging::VlanId>, vlanBookmark)
  VESK_VALUE(bool, vlanReviewed)
  VESK_VALUE(std::optional<OverlayVlanGroup>, vlanGroupBookmark)
  VESK_VALUE(bool, vlanGroupReviewed)
  VESK_INSTANCES(OverlayVlanGroup, VlanToMulticastGroup, vlanToMulticastGroup)

  /// Receivers with this mask make the domain join.
  [[nodiscard]] bool joinDomain(ReceiverDomain receiverDomain) const {
    return Multicast::joinDomain(receiverDomain, in.domain);
  }
  /// Every entry has been judged once since this machine came.
  [[nodiscard]] bool firstReviewComplete() const { return vlanReviewed() && vlanGroupReviewed(); }
  /// The vlan group, or the vlan if it is an any group, waits for its judgement.
  [[nodiscard]] bool isDue(const OverlayVlanGroup& vlanGroup) const;

  void review() override;

 private:
  void handleInitialized();
  void handleChangeSet();
  void handleReviewComplete();
  void scheduleWalks();

  void walkVlanGroupBacklog();
  void walkVlanBacklog();
  /// Works off one set of the change set; `review` judges a member.
  template <class SetTag, class BookmarkTag, class ReviewedTag, class Review>
  void walkBacklog(const char* name, Vesk::MachineTask& task, Review review);

  void reviewVlanGroup(const OverlayVlanGroup& vlanGroup);
  void reviewVlan(Bridging::VlanId vlan);
  /// `wants` tells whether the receivers of one vlan make the domain join, `anyMember` whether it
  /// does so for a member of the SBD vlan in which there may be some.
  template <class Wants, class AnyMember>
  void judge(const OverlayVlanGroup& vlanGroup, Wants wants, AnyMember anyMember);

  using Self = VpnInjectReviewSm;
  Vesk::MachineTask vlanTask_{this, in.taskScheduler, 3, "VpnInjectReview-Vlan",
                              &Vesk::taskBody<&Self::walkVlanBacklog>};
  Vesk::MachineTask vlanGroupTask_{this, in.taskScheduler, 3, "VpnInjectReview-VlanGroup",
                                   &Vesk::taskBody<&Self::walkVlanGroupBacklog>};
  Vesk::Follow vlanGroups_ =
      follow(in.tunnelVlanGroupStatus, IpTunnelVlanGroupStatus::vlanToMulticastGroupAttr,
             vlanToMulticastGroupAttr);
  Vesk::Watch changed_ = watch<&Self::handleChangeSet>(in.changeSet, OverlayChangeSet::changedAttr);
};

}  // namespace Irb::Multicast::Egress
