// Staged switchover: an agent declares stages that it takes part in, is told when one begins, and
// reports when it is done. Written by: the stage manager; AgentConfig by this agent. Read by: the
// stages helper and the switchover machine. Mounted only by a standby agent. Each path goes through
// the supervisor's cell mapping before it is mounted.
#pragma once

#include <string>

#include "records/Keys.h"
#include "records/Rows.h"
#include "runtime/Record.h"

namespace Stage {

/// Which agents have completed which stages.
class AgentStatus : public Vesk::Entity {
  VESK_RECORD(Stage::AgentStatus)
  VESK_ROWS(AgentStatusKey, AgentStageStatus, status)

  [[nodiscard]] static std::string mountPath() { return "stageAgentStatus/switchover/Corvane"; }
};

class ProgressDir : public Vesk::Entity {
  VESK_RECORD(Stage::ProgressDir)
  /// Stage name to: it has begun.
  VESK_MAP(std::string, bool, stage)

  [[nodiscard]] static std::string mountPath() { return "stage/switchover/progress"; }
};

class CompletionStatusDir : public Vesk::Entity {
  VESK_RECORD(Stage::CompletionStatusDir)
  VESK_MAP(AgentStatusKey, bool, completion)

  [[nodiscard]] static std::string mountPath() { return "stage/switchover/completionstatus"; }
};

/// What this agent declares and reports.
class AgentConfig : public Vesk::Entity {
  VESK_RECORD(Stage::AgentConfig)
  VESK_SET(std::string, waitForStage)
  VESK_SET(std::string, stageComplete)

  [[nodiscard]] static std::string mountPath() { return "stageInput/switchover/Corvane"; }
};

}  // namespace Stage
