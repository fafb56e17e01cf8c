// The clocks of the measurements, and how work is kept from being optimized away.
#pragma once

#include <cstddef>
#include <cstdint>
#include <time.h>

#include <benchmark/benchmark.h>

namespace Peers {

using benchmark::DoNotOptimize;

inline std::uint64_t clockNs(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(time.tv_nsec);
}

/// Nanoseconds of the monotonic clock; all processes read the same one.
inline std::uint64_t nowNs() {
  return clockNs(CLOCK_MONOTONIC);
}

/// Nanoseconds of `action` for each of `items`, in processor time of this thread: nothing that is
/// measured this way sleeps, and the turns of other processes do not count.
template <class Action>
double nsPer(std::size_t items, Action action) {
  const std::uint64_t start = clockNs(CLOCK_THREAD_CPUTIME_ID);
  action();
  return static_cast<double>(clockNs(CLOCK_THREAD_CPUTIME_ID) - start) / static_cast<double>(items);
}

}  // namespace Peers
