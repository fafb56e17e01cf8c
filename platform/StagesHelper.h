// This agent's part in the switchover stage protocol.
// Reads: which stages have begun. Writes: which stages this agent takes part in, and which it has
// completed. Runs: when a stage begins that the agent waits for; it then calls doStage on the
// agent, once per beginning.
#pragma once

#include <string>

#include "platform/CAgent.h"
#include "records/Stage.h"

namespace Orlane {

class StagesHelper final : public Vesk::Machine {
  VESK_RECORD(Orlane::StagesHelper)
  struct Inputs {
    std::string name;  ///< the stage class
    Ombra::Ptr<Stage::AgentStatus const> status;
    Ombra::Ptr<Stage::ProgressDir const> progressDir;
    Ombra::Ptr<Stage::AgentConfig> agentConfig;
    CAgent* agent;
    bool operator==(const Inputs&) const = default;
  };
  explicit StagesHelper(Inputs inputs) : in(std::move(inputs)) {}
  const Inputs in;

  [[nodiscard]] const Ombra::Ptr<Stage::AgentStatus const>& status() const { return in.status; }
  [[nodiscard]] const CAgent& agent() const { return *in.agent; }
  /// Declares that the stage waits for this agent. A stage that has begun already starts at once.
  void waitForStage(const std::string& stage);
  /// Reports the stage done.
  void doStageComplete(const std::string& stage);
  /// Where the completion of each instance shows.
  void setInstanceCompletionStatusDir(const Ombra::Ptr<Stage::CompletionStatusDir const>& dir) {
    instanceCompletionStatusDirIs(dir);
  }

  VESK_REF(Stage::CompletionStatusDir const, instanceCompletionStatusDir)

 private:
  void handleStage(const std::string& stage);
  Vesk::Watch stageWatch_ =
      watch<&StagesHelper::handleStage>(in.progressDir, Stage::ProgressDir::stageAttr);
};

}  // namespace Orlane
