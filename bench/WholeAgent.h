// What the measurements of a whole agent share: from its start to the last forwarding row, and
// figures per row.
#pragma once

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

}  // namespace Bench
