// A history that begins on the standby supervisor: the stages of a switchover, one after the other.
// What the agent may do follows from the stage; one that dies after it may write awaits no stage.
#pragma once

#include <string>
#include <utility>

#include "records/Redundancy.h"
#include "records/Stage.h"
#include "tests/history/Inputs.h"

namespace History {

class Switchover {
 public:
  /// One that is over, or never was.
  Switchover() = default;
  /// One that begins: until the first stage nothing runs.
  [[nodiscard]] static Switchover fromTheStart() {
    input<Redundancy::RedundancyStatus>()->modeIs(Redundancy::RedundancyMode::standby);
    Switchover switchover;
    switchover.stage_ = 0;
    switchover.isStaged_ = true;
    return switchover;
  }
  [[nodiscard]] bool isUnderWay() const { return stage_ < 3; }
  [[nodiscard]] bool mayWrite() const { return stage_ >= 1; }
  [[nodiscard]] bool mayReview() const { return stage_ >= 3; }
  /// What a stage that has begun must have reported, once the agent runs and is at rest.
  [[nodiscard]] std::string difference() const {
    if (!isStaged_) return {};
    const auto report = input<Stage::AgentConfig>();
    for (const auto& [stage, name] :
         {std::pair(2, "CorvaneEncapReconcile"), std::pair(3, "CorvaneDecapReconcile")})
      if ((stage_ >= stage) != report->stageCompleteHas(name))
        return std::string(name) + (stage_ >= stage ? " is not complete" : " is complete too soon");
    return {};
  }
  /// The next stage begins.
  std::string next() {
    const auto progress = input<Stage::ProgressDir>();
    switch (++stage_) {
      case 1:
        input<Redundancy::RedundancyStatus>()->switchoverStageIs("McastWritable", true);
        return "McastWritable";
      case 2:
        progress->stageIs("CorvaneEncapReconcile", true);
        return "CorvaneEncapReconcile";
      default:
        progress->stageIs("CorvaneDecapReconcile", true);
        return "CorvaneDecapReconcile";
    }
  }
  void restarted() {
    if (mayWrite()) *this = Switchover();
  }

 private:
  int stage_ = 3;
  bool isStaged_ = false;  ///< the process awaits the stages
};

}  // namespace History
