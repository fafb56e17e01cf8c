// Runs one scenario in a process and a directory of its own and judges how that process ends.
// Owns: the child process, the pipes to it, the directory. Reads: what the child prints.
// Writes: the child's report to standard output as it comes; the tables, toggle files and trace
// ring of the scenario.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/play/Report.h"
#include "host/play/Scenario.h"

namespace Host {

/// How many rows each file of a shared table may get.
struct RowLimit {
  std::string path;
  std::uint32_t rows;
};

struct PlayOptions {
  Audience audience = Audience::people;
  std::optional<std::filesystem::path> keep;  ///< the scenario's directory, kept afterwards
  bool resume = false;  ///< start over what a former run left in the kept directory
  bool stay = false;    ///< live on after the story, until the user interrupts
  std::string traceLevels;
  std::optional<std::uint64_t> seed;
  /// Instead of the scenario's questions: does a crash in this write of the agent, counted from 1,
  /// leave a trace in an output; 0 asks for each write in turn.
  std::optional<std::size_t> crashAt;
  std::vector<RowLimit> rowLimits;
  bool floodLists = false;  ///< serve the static flood lists of VXLAN interfaces
  std::optional<std::filesystem::path> wiring;  ///< note who reads and writes what in this file
  std::string explain;  ///< what is to be explained at the end of each file; empty for nothing
};

enum class Outcome { passed, failed, unusable };

[[nodiscard]] Outcome runInChild(const Scenario& scenario, const PlayOptions& options,
                                 Report& report);

}  // namespace Host
