// What the measurements of a whole agent share: from its start to the last forwarding row, figures
// per row, and the longest time without yielding.
#pragma once

#include <algorithm>
#include <ctime>

#include <benchmark/benchmark.h>

#include "tests/history/AgentWorld.h"

namespace Bench {

/// Reports the rows, and the time for each of `units`.
inline void count(benchmark::State& state, std::size_t rows, const char* unit, double units) {
  state.counters["rows"] = static_cast<double>(rows);
  state.counters[unit] = benchmark::Counter(
      units, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// Starts an agent over the configured world until its last row stands, and clears both, as often
/// as asked. Returns the rows of the local IPv4 domain.
inline std::size_t startUntilLastRow(benchmark::State& state, History::AgentWorld& world) {
  std::size_t rows = 0;
  for (auto _ : state) {
    world.begin(0);
    world.settle();
    state.PauseTiming();
    rows = History::publishedRows(History::domains[0]).size();
    world.clearRows();
    state.ResumeTiming();
  }
  return rows;
}

/// Of this thread: what others do on the machine does not count.
inline double processorSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Ten milliseconds of processor time, whatever the agent's clock says.
class ProcessorTimeYield final : public Sylva::YieldPolicy {
 public:
  void begin() override { deadline_ = processorSeconds() + 0.010; }
  [[nodiscard]] bool mustYield() override { return processorSeconds() >= deadline_; }

 private:
  double deadline_ = 0;
};

inline double seconds(auto&& action) {
  const double start = processorSeconds();
  action();
  return processorSeconds() - start;
}

/// The longest of all slices until nothing is left to do.
inline double longestSlice() {
  double longest = 0;
  Sylva::TaskScheduler& scheduler = *Sylva::TaskSchedulerRoot::findOrCreateScheduler();
  for (bool ran = true; ran;)
    longest = std::max(longest, seconds([&] { ran = scheduler.runOne(); }));
  return longest;
}

}  // namespace Bench
