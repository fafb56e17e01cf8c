// Whether multicast routing runs, and whether this agent does.
// Written by: the multicast configuration agents (AgentStatus), the launcher (AgentRunningStatus).
// Read by: the launcher; the running status also by the agents that depend on this one.
#pragma once

#include <string>

#include <fmt/format.h>

#include "records/Enums.h"
#include "records/Keys.h"
#include "runtime/Record.h"

namespace McastCommon {

class AgentStatus : public Vesk::Entity {
  VESK_RECORD(McastCommon::AgentStatus)
  /// Some VRF routes multicast of this family.
  VESK_VALUE(bool, multicastRouting)

  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af) {
    return fmt::format("multicast/{}/agent/status", Pavlin::stringValue(af));
  }
};

class AgentRunningStatus : public Vesk::Entity {
  VESK_RECORD(McastCommon::AgentRunningStatus)
  VESK_VALUE(AgentState::AgentState, state)
  VESK_VALUE(bool, running)

  /// An agent that serves all families passes AddressFamily{}.
  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af,
                                             const std::string& agentName) {
    return af == Pavlin::AddressFamily{}
               ? "multicast/agent/running/" + agentName
               : fmt::format("multicast/{}/agent/running/{}", Pavlin::stringValue(af), agentName);
  }
};

}  // namespace McastCommon
