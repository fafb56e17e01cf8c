// Where the time comes from: real or played.
// Owns: the process's clock slot. Reads: the operating system's clocks. Writes: nothing.
// Runs: on every question for the time.
// Caveat: a clock given to System::clockIs must outlive its use. All times are seconds.
#pragma once

#include <chrono>
#include <time.h>

#include "runtime/Assert.h"

namespace Vesk {

class Clock {
 public:
  virtual ~Clock() = default;
  /// Seconds; never less than an earlier answer of the same clock.
  [[nodiscard]] virtual double now() const = 0;
  /// As now(), but may lag by a few milliseconds: for stamps that must cost little.
  [[nodiscard]] virtual double coarseNow() const { return now(); }
};

/// Seconds since 1970. The wall clock is read once and carried on by the monotonic clock, so that
/// an operator who sets the date back does not hold up timers.
class RealClock final : public Clock {
 public:
  [[nodiscard]] double now() const override {
    return base_ + seconds(std::chrono::steady_clock::now().time_since_epoch());
  }
  [[nodiscard]] double coarseNow() const override {
    timespec tick{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &tick);
    return base_ + static_cast<double>(tick.tv_sec) + 1e-9 * static_cast<double>(tick.tv_nsec);
  }

 private:
  template <class Duration>
  static double seconds(Duration duration) {
    return std::chrono::duration<double>(duration).count();
  }

  double base_ = seconds(std::chrono::system_clock::now().time_since_epoch()) -
                 seconds(std::chrono::steady_clock::now().time_since_epoch());
};

/// Stands still until told to move.
class ManualClock final : public Clock {
 public:
  explicit ManualClock(double start = 1000) : now_(start) {}
  [[nodiscard]] double now() const override { return now_; }
  /// The time must not lie before the present one.
  void advanceTo(double time) {
    Ombra::assertThat(time >= now_, "a clock does not run back");
    now_ = time;
  }

 private:
  double now_;
};

class System {
 public:
  [[nodiscard]] static double currentTime() { return clock().now(); }
  [[nodiscard]] static double coarseTime() { return clock().coarseNow(); }
  /// The process's clock from here on; null brings back the real one.
  static void clockIs(const Clock* clock) { clock_ = clock; }

 private:
  static const Clock& clock() {
    static const RealClock realClock;
    return clock_ ? *clock_ : realClock;
  }
  inline static const Clock* clock_ = nullptr;
};

}  // namespace Vesk
