// Kills the agent of a scenario inside each of its writes in turn, and asks whether the agent that
// comes after it brings every output to where an agent that never died has it. Owns: one process
// for each story that it has told. Reads: what those processes found in their outputs. Writes:
// tables below its directory, removed story by story.
#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>

#include "host/play/MortalStory.h"
#include "host/play/Report.h"

namespace Host {

class CrashLoop {
 public:
  CrashLoop(const Scenario& scenario, Report& report, std::filesystem::path directory)
      : scenario_(scenario), report_(report), directory_(std::move(directory)) {}
  /// After this write only, counted from 1; after each in turn if it is 0. True if no death made a
  /// difference.
  bool ask(std::size_t write);

 private:
  [[nodiscard]] std::vector<Failure> die(std::size_t write, std::string& where);
  /// What is published when so many steps have been told and the agent dies at rest.
  const Outputs& wanted(std::size_t steps);
  [[nodiscard]] MortalStory::Result told(std::size_t steps, std::size_t deadlyWrite) const;

  const Scenario& scenario_;
  Report& report_;
  std::filesystem::path directory_;
  std::map<std::size_t, Outputs> wanted_;
  Outputs end_;
};

}  // namespace Host
