#include "egress/MembershipReconcileSm.h"

#include "runtime/Slice.h"
#include "runtime/Trace.h"

namespace Irb::Multicast::Egress {

namespace {

const Vesk::TraceHandle traceHandle{"MembershipReconcileSm"};

}  // namespace

MembershipReconcileSm::MembershipReconcileSm(Inputs inputs) : in(std::move(inputs)) {
  statuses_.begin();
  handleCorvaneDecapReady();
}

void MembershipReconcileSm::handleCorvaneDecapReady() {
  if (!in.decapReadyStatusColl->reviewComplete()) return;
  if (auto t = traceHandle.at(8)) t << "Decap ready, reconciling";
  rows_.ask();
  changeSetTask_.scheduleTask();
}

void MembershipReconcileSm::changeSetTaskRunTopLevel() {
  if (auto t = traceHandle.at(8))
    t << "MembershipReconcileSm::changeSetTaskRunTopLevel " << changeSetCount();
  // A family or domain that has come since has to be through first, and asks again.
  if (!in.decapReadyStatusColl->reviewComplete()) return;
  Sylva::Slice slice(changeSetTask_);
  if (!collectUnclaimed(slice) || !reconcileAll(slice)) changeSetTask_.scheduleTask();
  changeSetTask_.taskWorkCountInc(slice.items());
}

bool MembershipReconcileSm::collectUnclaimed(Sylva::Slice& slice) {
  if (!rows_.begins()) return true;
  for (const auto& row : in.outputStatus->membershipIteratorFrom(rows_.place())) {
    if (!slice.take()) {
      rows_.stopAt(row.key);
      return false;
    }
    if (!in.inputStatus->lookup(row.key)) changeSetIs(row.key);
  }
  rows_.ends();
  return true;
}

bool MembershipReconcileSm::reconcileAll(Sylva::Slice& slice) {
  const auto place = changeSetBookmark();
  changeSetBookmarkIs({});
  for (const RouteIntfKey& key : changeSetIteratorFrom(place)) {
    if (!slice.take()) {
      changeSetBookmarkIs(key);
      return false;
    }
    changeSetDel(key);
    reconcile(key);
  }
  return changeSetCount() == 0;
}

void MembershipReconcileSm::reconcile(const RouteIntfKey& key) {
  if (in.inputStatus->lookup(key)) return;
  if (auto t = traceHandle.at(8)) t << "Cleanup stale membership " << Vesk::textOf(key);
  in.outputStatus->membershipDel(key);
}

}  // namespace Irb::Multicast::Egress

VESK_REGISTER(Irb::Multicast::Egress::MembershipReconcileSm)
VESK_REGISTER(Irb::Multicast::Egress::MembershipReconcileSm::DecapReadyStatusSm)
