// What the agent publishes, as text that can be compared. Reads: every path that this agent mounts
// for writing, tables and state database alike.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "agent/MountCatalog.h"
#include "host/play/World.h"

namespace Host {

/// Every output as notes of its content, by path.
using Outputs = std::map<std::string, std::vector<std::string>>;

[[nodiscard]] bool isOutput(const Corvane::MountPath& mount);
/// What lies there; made if nobody has been there yet.
[[nodiscard]] Ombra::Ptr<Vesk::Entity> outputEntity(const Corvane::MountPath& mount);
[[nodiscard]] Outputs outputsOf(const World& world);
/// One failure per note that is only on one side.
[[nodiscard]] std::vector<Failure> differences(const Outputs& before, const Outputs& after);

}  // namespace Host
