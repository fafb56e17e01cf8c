// Every path under which this agent meets the rest of the system, with type, store and access.
// Owns: the one table of them; profiles/Corvane.yaml is its state-database part as a data file.
// Read by: the mount layer, the inspection commands, the scenario player. Never changes.
// Caveat: stage paths stand here before the supervisor's cell mapping.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "runtime/Reflect.h"

namespace Corvane {

enum class Store { stateDb, briskel, skarel };
/// `input`: written by others, and not mounted by this agent.
enum class Access { read, write, input };

struct MountPath {
  std::string path;
  std::string type;  ///< name of the record type
  Store store = Store::stateDb;
  Access access = Access::read;
  bool mounted = true;
  std::string
      condition;  ///< toggles of which one must be on ("A or B"), and other demands; empty: always

  /// Null only if the record's module is not part of the program.
  [[nodiscard]] const Vesk::RecordType* recordType() const { return Vesk::RecordType::find(type); }
};

/// In order of mounting, both families expanded.
[[nodiscard]] const std::vector<MountPath>& mountCatalog();
/// Null if there is none.
[[nodiscard]] const MountPath* findMountPath(std::string_view path);
/// The type of a path of the catalogue, or of one below a directory of applications; "" when
/// unknown.
[[nodiscard]] std::string typeNameOfPath(std::string_view path);

}  // namespace Corvane
