// Removes the membership rows of an earlier process that nobody has claimed.
// Owns: the keys that look stale. Reads: whether all first reviews are through, who holds a row.
// Writes: deletes rows of one membership table. Runs: in a task that yields, first over the rows of
// the table, then over those without a holder; nothing is deleted before all reviews are through.
// Caveat: the pass over the rows ends at a damaged one, and those behind it stay.
#pragma once

#include <optional>

#include "egress/MembershipDedup.h"
#include "records/ReadyStatus.h"
#include "runtime/MachineTask.h"
#include "runtime/Review.h"

namespace Irb::Multicast::Egress {

class MembershipReconcileSm final : public Vesk::Machine {
  VESK_RECORD(Irb::Multicast::Egress::MembershipReconcileSm)
  using RouteIntfKey = Routing::Gmp::Briskel::RouteIntfKey;
  using DecapReadyStatus = ::Multicast::Vpn::DecapReadyStatus;
  using DecapReadyStatusColl = ::Multicast::Vpn::DecapReadyStatusColl;

  struct Inputs {
    Ombra::Ptr<DecapReadyStatusColl const> decapReadyStatusColl;
    Ombra::Ptr<Routing::Gmp::MembershipDedupTable const> inputStatus;
    Ombra::Ptr<Routing::Gmp::Briskel::Status> outputStatus;
    Sylva::TaskScheduler* scheduler;
    bool operator==(const Inputs&) const = default;
  };
  explicit MembershipReconcileSm(Inputs inputs);
  const Inputs in;

  /// Hears when the reviews of one family and domain are through.
  class DecapReadyStatusSm final : public Vesk::Machine {
    VESK_RECORD(Irb::Multicast::Egress::MembershipReconcileSm::DecapReadyStatusSm)
    struct Inputs {
      MembershipReconcileSm* parent;
      Ombra::Ptr<DecapReadyStatus const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit DecapReadyStatusSm(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;

   private:
    void handleReady() { in.parent->handleCorvaneDecapReady(); }
    Vesk::Watch vpnInjectReady_ =
        watch<&DecapReadyStatusSm::handleReady>(in.row, DecapReadyStatus::vpnInjectReadyAttr);
    Vesk::Watch l2InjectReady_ =
        watch<&DecapReadyStatusSm::handleReady>(in.row, DecapReadyStatus::l2InjectReadyAttr);
  };

  VESK_INSTANCES(::Multicast::Vpn::EncapDecapReadyClient, DecapReadyStatusSm, decapReadyStatus)
  /// Rows that nobody held when the pass came by.
  VESK_SET(RouteIntfKey, changeSet)
  VESK_VALUE(std::optional<RouteIntfKey>, changeSetBookmark)
  /// A pass over the rows is asked for, and where the one under way has stopped.
  VESK_VALUE(bool, rowsDue)
  VESK_VALUE(std::optional<RouteIntfKey>, rowBookmark)

  void review() override { handleCorvaneDecapReady(); }

 private:
  void handleCorvaneDecapReady();
  void changeSetTaskRunTopLevel();
  /// These return false if they yielded.
  [[nodiscard]] bool collectUnclaimed(Sylva::Slice& slice);
  [[nodiscard]] bool reconcileAll(Sylva::Slice& slice);
  void reconcile(const RouteIntfKey& key);

  Sylva::ReviewPass<rowsDueTag, rowBookmarkTag> rows_{this};
  Vesk::MachineTask changeSetTask_{
      this, in.scheduler, 4, "MembershipReconcileSm",
      &Vesk::taskBody<&MembershipReconcileSm::changeSetTaskRunTopLevel>};
  Vesk::Follow statuses_ = follow<&MembershipReconcileSm::handleCorvaneDecapReady>(
      in.decapReadyStatusColl, DecapReadyStatusColl::statusAttr, decapReadyStatusAttr);
};

}  // namespace Irb::Multicast::Egress
