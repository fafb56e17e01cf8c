// The questions that close every scenario: does a full review change anything, does a restart, is
// anything left over. Reads: every output that this agent mounts for writing. Runs: once, after the
// last step. Caveat: the agent is restarted on the way; nothing can be asked of its former life
// afterwards.
#pragma once

#include "host/play/Recorder.h"
#include "host/play/Report.h"

namespace Host {

class Oracles {
 public:
  Oracles(World& world, Recorder& recorder, const Scenario& scenario, Report& report)
      : world_(world), recorder_(recorder), scenario_(scenario), report_(report) {}
  /// True if all answers are as they should be.
  bool ask();

 private:
  [[nodiscard]] std::vector<Failure> review();
  [[nodiscard]] std::vector<Failure> restart();
  bool answered(const std::string& name, const std::vector<Failure>& failures);

  World& world_;
  Recorder& recorder_;
  const Scenario& scenario_;
  Report& report_;
};

}  // namespace Host
