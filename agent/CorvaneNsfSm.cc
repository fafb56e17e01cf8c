#include "agent/CorvaneNsfSm.h"

#include "runtime/Trace.h"

namespace Multicast::Vpn {
namespace {

Vesk::TraceHandle trace("CorvaneNsfSm");

}  // namespace

void EncapReadySm::handleReady() {
  in.parent->handleCorvaneEncapReady();
}
void DecapReadySm::handleReady() {
  in.parent->handleCorvaneDecapReady();
}

CorvaneNsfSm::CorvaneNsfSm(Inputs inputs) : in(std::move(inputs)) {
  encap_.beginWithHandler();
  decap_.beginWithHandler();
}

bool CorvaneNsfSm::complete(const std::string& stage) const {
  return in.ssoStagesHelper->status()
      ->status(
          {.agent = in.ssoStagesHelper->agent().agentName(), .stage = stage, .instance = "default"})
      .complete;
}

void CorvaneNsfSm::doStage(const std::string& stageClass, const std::string& stage) {
  if (auto t = trace.at(8)) t << "doStage StageClass: " << stageClass << ", Stage: " << stage;
  Ombra::assertThat(stageClass == stageClassName, "stageClass == \"switchover\"");
  Ombra::assertThat(
      stage == encapReconcileStage || stage == decapReconcileStage,
      "stage == CORVANE_ENCAP_RECONCILE_STAGE || stage == CORVANE_DECAP_RECONCILE_STAGE");
  if (complete(stage)) {
    if (auto t = trace.at(8))
      t << "doStage Stage " << stage << " already complete. Ignoring this notification";
    ignoredStageIs(stage);
    return;
  }
  if (stage == encapReconcileStage) {
    if (corvaneEncapReconcileStarted()) return;
    corvaneEncapReconcileStartedIs(true);
    handleCorvaneEncapReady();
    return;
  }
  for (const auto& [client, status] : in.decapReadyStatusColl->statusIterator())
    status->startReviewIs(true);
  if (corvaneDecapReconcileStarted()) return;
  corvaneDecapReconcileStartedIs(true);
  handleCorvaneDecapReady();
}

void CorvaneNsfSm::handleCorvaneEncapReady() {
  if (!corvaneEncapReconcileStarted() || corvaneEncapReconcileCompleted()) return;
  bool ready = true;
  for (const auto& [client, status] : in.encapReadyStatusColl->statusIterator())
    ready = ready && status->ready();
  if (auto t = trace.at(8))
    t << "handleCorvaneEncapReady"
      << ", corvaneEncapReconcileCompleted: " << corvaneEncapReconcileCompleted()
      << " ready: " << ready;
  if (!ready) return;
  corvaneEncapReconcileCompletedIs(true);
  if (auto t = trace.at(8)) t << ": doStageComplete( " << encapReconcileStage << " )";
  in.ssoStagesHelper->doStageComplete(encapReconcileStage);
}

void CorvaneNsfSm::handleCorvaneDecapReady() {
  if (!corvaneDecapReconcileStarted() || corvaneDecapReconcileCompleted()) return;
  const bool ready = in.decapReadyStatusColl->reviewComplete();
  if (auto t = trace.at(8))
    t << "handleCorvaneDecapReady"
      << ", corvaneDecapReconcileCompleted: " << corvaneDecapReconcileCompleted()
      << " ready: " << ready;
  if (!ready) return;
  corvaneDecapReconcileCompletedIs(true);
  if (auto t = trace.at(8)) t << ": doStageComplete( " << decapReconcileStage << " )";
  in.ssoStagesHelper->doStageComplete(decapReconcileStage);
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::EncapReadySm)
VESK_REGISTER(Multicast::Vpn::DecapReadySm)
VESK_REGISTER(Multicast::Vpn::CorvaneNsfSm)
