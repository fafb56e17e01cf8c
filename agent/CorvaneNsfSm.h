// This agent's share in a staged switchover: it rebuilds its state before forwarding is handed
// over. Two stages: the encapsulating side has rebuilt its status; the decapsulating side has
// reviewed its joins. Reads: the ready flags of every family and domain, and which stages are
// complete already. Writes: `startReview` when the second stage begins, and the completion of each
// stage, once. Runs when a stage begins, and on every change of a ready flag.
#pragma once

#include "platform/StagesHelper.h"
#include "records/ReadyStatus.h"

namespace Multicast::Vpn {

class CorvaneNsfSm;

/// The two ready flags of one encapsulating client.
class EncapReadySm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Vpn::EncapReadySm)
  struct Inputs {
    CorvaneNsfSm* parent;
    Ombra::Ptr<EncapReadyStatus const> row;
    bool operator==(const Inputs&) const = default;
  };
  explicit EncapReadySm(Inputs inputs) : in(std::move(inputs)) {}
  const Inputs in;

 private:
  void handleReady();
  Vesk::Watch group_ =
      watch<&EncapReadySm::handleReady>(in.row, EncapReadyStatus::vlanGroupStatusReadyAttr);
  Vesk::Watch forwarding_ =
      watch<&EncapReadySm::handleReady>(in.row, EncapReadyStatus::forwardingStatusReadyAttr);
};

/// The review flags of one decapsulating client.
class DecapReadySm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Vpn::DecapReadySm)
  struct Inputs {
    CorvaneNsfSm* parent;
    Ombra::Ptr<DecapReadyStatus const> row;
    bool operator==(const Inputs&) const = default;
  };
  explicit DecapReadySm(Inputs inputs) : in(std::move(inputs)) {}
  const Inputs in;

 private:
  void handleReady();
  Vesk::Watch vpn_ =
      watch<&DecapReadySm::handleReady>(in.row, DecapReadyStatus::vpnInjectReadyAttr);
  Vesk::Watch l2_ = watch<&DecapReadySm::handleReady>(in.row, DecapReadyStatus::l2InjectReadyAttr);
};

class CorvaneNsfSm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Vpn::CorvaneNsfSm)
  struct Inputs {
    Ombra::Ptr<EncapReadyStatusColl const> encapReadyStatusColl;
    Ombra::Ptr<DecapReadyStatusColl> decapReadyStatusColl;
    Ombra::Ptr<Orlane::StagesHelper> ssoStagesHelper;
    bool operator==(const Inputs&) const = default;
  };
  static constexpr const char* stageClassName = "switchover";
  static constexpr const char* encapReconcileStage = "CorvaneEncapReconcile";
  static constexpr const char* decapReconcileStage = "CorvaneDecapReconcile";

  explicit CorvaneNsfSm(Inputs inputs);
  const Inputs in;

  /// A stage begins. Another class or stage than those above ends the process.
  void doStage(const std::string& stageClass, const std::string& stage);
  void handleCorvaneEncapReady();
  void handleCorvaneDecapReady();

  VESK_VALUE(bool, corvaneEncapReconcileStarted)
  VESK_VALUE(bool, corvaneEncapReconcileCompleted)
  VESK_VALUE(bool, corvaneDecapReconcileStarted)
  VESK_VALUE(bool, corvaneDecapReconcileCompleted)
  /// Stages that were complete when they were announced.
  VESK_SET(std::string, ignoredStage)
  VESK_INSTANCES(EncapDecapReadyClient, EncapReadySm, encapReady)
  VESK_INSTANCES(EncapDecapReadyClient, DecapReadySm, decapReady)

 private:
  [[nodiscard]] bool complete(const std::string& stage) const;

  Vesk::Follow encap_ = follow<&CorvaneNsfSm::handleCorvaneEncapReady>(
      in.encapReadyStatusColl, EncapReadyStatusColl::statusAttr, encapReadyAttr);
  Vesk::Follow decap_ = follow<&CorvaneNsfSm::handleCorvaneDecapReady>(
      in.decapReadyStatusColl, DecapReadyStatusColl::statusAttr, decapReadyAttr);
};

}  // namespace Multicast::Vpn
