// What this agent publishes in the state database, in files, so that a player that resumes finds
// what the killed one had published: on a switch the database outlives the agent, in the player it
// dies with it. Owns: the claim on the files. Reads: every change of those records, before any
// machine hears of it. Throws: TableError. Caveat: directories, and records with keys of no fixed
// size, are not kept.
#pragma once

#include <filesystem>
#include <list>
#include <vector>

#include "runtime/EntityWriter.h"

namespace Host {

class KeptDatabase {
 public:
  /// Enters what the files hold into the database, and keeps it from here on.
  explicit KeptDatabase(const std::filesystem::path& directory);

 private:
  std::list<std::vector<VeskSharedMem::RowFile>> files_;  ///< stay in place for the writers
  std::list<VeskSharedMem::EntityWriter> writers_;
};

}  // namespace Host
