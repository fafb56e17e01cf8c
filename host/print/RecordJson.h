// Record types as JSON: attributes, value types down to their bytes, mounts, and the files of a
// mounted table. With docs/shared-tables.md it is all that a program in another language needs.
// Reads: reflection, the list of mounts, the wiring. Writes: nothing.
#pragma once

#include <string_view>
#include <vector>

#include "agent/MountCatalog.h"
#include "host/Wiring.h"
#include "host/print/EntityJson.h"

namespace Host {

[[nodiscard]] Json recordJson(const Vesk::RecordType& type);

/// The value types of a record and of the entities in it, each after those that it is made of.
[[nodiscard]] std::vector<const Vesk::ValueType*> valueTypesOf(const Vesk::RecordType& type);

// What is told of a mount.
[[nodiscard]] std::string_view storeText(Corvane::Store store);
[[nodiscard]] std::string_view accessText(const Corvane::MountPath& mount);
/// The machines at one end of its wires.
[[nodiscard]] std::vector<std::string_view> machinesAt(const Corvane::MountPath& mount, Wire wire);

}  // namespace Host
