// The redundancy state of the supervisor that this agent runs on.
// Written by: the redundancy agent. Read by: the redundancy machine of the frame.
// Held by the agent's base, not mounted with the rest.
#pragma once

#include <string>

#include "records/Enums.h"
#include "runtime/Record.h"

namespace Redundancy {

class RedundancyStatus : public Vesk::Entity {
  VESK_RECORD(Redundancy::RedundancyStatus)
  VESK_VALUE(RedundancyMode, mode)
  VESK_VALUE(std::uint8_t, status)
  /// Stage name to: the switchover has come past it.
  VESK_MAP(std::string, bool, switchoverStage)

  [[nodiscard]] static std::string mountPath() { return "redundancy/status"; }
};

}  // namespace Redundancy
