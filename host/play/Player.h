// Plays one scenario, step by step, in this process.
// Owns: the world of the scenario. Reads: the scenario. Writes: the report.
// Caveat: once per process: the stores, toggles and clocks are the process's. See ChildRun.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "host/play/Oracles.h"
#include "host/play/Recorder.h"
#include "host/play/Report.h"
#include "host/play/WiringNotes.h"
#include "host/play/World.h"

namespace Host {

class Player {
 public:
  /// `begins` is told each step's index before it runs, and one more before the closing questions.
  /// With `stays` the agent lives on after the last step, in real time, until the user interrupts.
  Player(const Scenario& scenario, Report& report, bool stays,
         std::function<void(std::size_t)> begins)
      : scenario_(scenario),
        report_(report),
        stays_(stays),
        begins_(std::move(begins)),
        world_(scenario.slice),
        recorder_(world_, scenario) {}
  /// The story goes on over what others have written meanwhile: its steps act, and what they expect
  /// is not asked.
  void actsOnly() { asks_ = false; }
  /// Notes who reads and writes what into this file.
  void wiringIs(const std::filesystem::path& file) { wiring_.emplace(world_, file); }
  /// True if the scenario passes.
  bool play();

 private:
  std::vector<Failure> run(const Step& step, Told& told);
  std::vector<Failure> done(const Step& step, Told& told);
  std::vector<Failure> compare(const Step& step, bool exact);
  void start();
  void crash();
  void stay();

  const Scenario& scenario_;
  Report& report_;
  bool stays_;
  bool asks_ = true;
  std::function<void(std::size_t)> begins_;
  World world_;
  Recorder recorder_;
  std::optional<WiringNotes> wiring_;
};

}  // namespace Host
