// Work that is put off to a later turn, and who gets the next turn.
// Owns: the ready queue, the waiting timers, the turn (slice) of the running body.
// Reads: Vesk::System::currentTime for delays. Writes: nothing but its queues.
// Runs: when the host asks it to, between events; never from inside a schedule call.
// Caveat: one thread. A task does not own anything that it works on; see holdOwner.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "runtime/Clock.h"

namespace Sylva {

class Task;
class TimerTask;
class TaskScheduler;

/// 0 to 31; the smaller runs first.
using TaskPriority = int;

/// Says when a body has had its turn. Asked once before each item after the first of a slice.
class YieldPolicy {
 public:
  virtual ~YieldPolicy() = default;
  /// A slice begins.
  virtual void begin() = 0;
  [[nodiscard]] virtual bool mustYield() = 0;
};

/// A slice lasts a budget of seconds.
class TimeYield final : public YieldPolicy {
 public:
  explicit TimeYield(double budget) : budget_(budget) {}
  void begin() override { deadline_ = Vesk::System::currentTime() + budget_; }
  [[nodiscard]] bool mustYield() override { return Vesk::System::currentTime() >= deadline_; }

 private:
  double budget_;
  double deadline_ = 0;
};

/// A slice is n items; 0 is as many as there are.
class ItemYield final : public YieldPolicy {
 public:
  explicit ItemYield(std::size_t items) : items_(items) {}
  void begin() override { asked_ = 0; }
  [[nodiscard]] bool mustYield() override { return items_ != 0 && ++asked_ >= items_; }

 private:
  std::size_t items_;
  std::size_t asked_ = 0;
};

class Task {
 public:
  /// The scheduler outlives the task.
  Task(TaskScheduler* scheduler, TaskPriority priority, std::string name);
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;
  /// Allowed at any time: queued, from another body, from the task's own body.
  virtual ~Task();

  /// Makes the body run on a later turn. Nothing happens if it is queued already, or not active.
  virtual void scheduleTask();

  /// Inactive tasks leave the queue and cannot be scheduled. Coming back does not revive a turn.
  void activeIs(bool active);
  /// A queued task moves behind those that have the new priority already.
  void taskPriorityIs(TaskPriority priority);

  /// True when the running body must return soon. Outside of any body there is no slice: false.
  [[nodiscard]] bool taskShouldYield() const;
  [[nodiscard]] bool taskCurrentlyRunning() const;
  /// Queued to run, or waiting for its time.
  [[nodiscard]] bool taskScheduled() const { return place() != Place::idle; }
  [[nodiscard]] bool active() const { return active_; }
  [[nodiscard]] TaskPriority taskPriority() const { return priority_; }
  [[nodiscard]] const std::string& taskName() const { return name_; }
  [[nodiscard]] TaskScheduler* taskScheduler() const { return scheduler_; }

  /// Accounting: items done since the task was made, items that the body left for the next turn.
  void taskWorkCountInc(std::size_t n) { workCount_ += n; }
  void taskWorkPendingIs(std::size_t n) { workPending_ = n; }
  [[nodiscard]] std::uint64_t taskWorkCount() const { return workCount_; }
  [[nodiscard]] std::size_t taskWorkPending() const { return workPending_; }

 protected:
  /// The body. With work left at its end it schedules itself again.
  virtual void run() = 0;
  /// Called around run(), to keep the object that holds this task alive until the body has ended;
  /// releaseOwner may destroy the task. A task deleted inside of its body gets no releaseOwner:
  /// its own destructor then lets go (taskCurrentlyRunning() is true there).
  virtual void holdOwner() {}
  virtual void releaseOwner() {}

 private:
  friend class TaskScheduler;
  friend class TimerTask;
  enum class Place : std::uint8_t { idle, ready, waiting };

  [[nodiscard]] inline Place place() const;

  TaskScheduler* scheduler_;
  Task* next_ = nullptr;
  Task* previous_ = nullptr;
  std::uint64_t epoch_ = 0;
  TaskPriority priority_;
  Place place_ = Place::idle;
  bool active_ = true;
  std::string name_;
  std::uint64_t workCount_ = 0;
  std::size_t workPending_ = 0;
};

/// A task that becomes runnable after a delay.
class TimerTask : public Task {
 public:
  using Task::Task;
  ~TimerTask() override;

  /// Seconds from now. Replaces a pending expiry, also one that has passed but not run yet. Zero or
  /// less: runnable at once, still on a later turn. Infinite: not at all.
  void scheduleTaskDelay(double seconds);
  /// Runnable at once; a pending delay ends.
  void scheduleTask() override;
  /// Until the body starts. Infinite when idle and inside of the body, unless scheduled anew.
  [[nodiscard]] double currentExpirationTime() const;

 private:
  friend class TaskScheduler;
  double expiry_ = 0;
  std::uint64_t order_ = 0;
};

/// Smaller priority first, first come first served among equals.
class TaskScheduler {
 public:
  static constexpr TaskPriority priorityCount = 32;
  static constexpr double never = std::numeric_limits<double>::infinity();
  static constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

  TaskScheduler() = default;
  TaskScheduler(const TaskScheduler&) = delete;
  TaskScheduler& operator=(const TaskScheduler&) = delete;

  /// Kept by the caller; null never asks a body to yield.
  void yieldPolicyIs(YieldPolicy* policy) { policy_ = policy; }
  /// With a seed, the next of several ready tasks of one priority is drawn; without, in order.
  void shuffleSeedIs(std::optional<std::uint64_t> seed);

  /// Runs one slice of one ready task; false if none is ready.
  bool runOne();
  /// Runs until nothing is ready or the limit is reached; returns the number of slices. Timers that
  /// pass their time meanwhile wait for fireExpired.
  std::size_t runUntilIdle(std::size_t maxSlices = unlimited);
  [[nodiscard]] bool idle() const { return readyMask_ == 0; }

  /// The earliest waiting timer, or never.
  [[nodiscard]] double nextExpiry() const;
  /// Makes every timer runnable whose time is not after now, in order of time; returns how many.
  std::size_t fireExpired(double now);

  /// Ready tasks in the order in which they would run, then waiting timers by time.
  [[nodiscard]] std::vector<std::string> pendingTaskNames() const;

  /// Forgets whatever is queued and touches no task: these may be memory of a process that is
  /// played dead. A task that does live on is idle and can be scheduled anew.
  void reset();

 private:
  friend class Task;
  friend class TimerTask;
  struct Earlier {
    bool operator()(const TimerTask* a, const TimerTask* b) const {
      return a->expiry_ != b->expiry_ ? a->expiry_ < b->expiry_ : a->order_ < b->order_;
    }
  };
  struct Level {
    Task* head = nullptr;
    Task* tail = nullptr;
  };

  void enqueue(Task& task);
  void wait(TimerTask& timer, double expiry);
  void drop(Task& task);
  Task& pick();

  std::array<Level, priorityCount> levels_{};
  std::uint32_t readyMask_ = 0;
  std::set<TimerTask*, Earlier> timers_;
  std::uint64_t timerOrder_ = 0;
  // Queue membership of a task counts only within the epoch in which it was queued.
  std::uint64_t epoch_ = 1;
  Task* running_ = nullptr;
  bool inBody_ = false;
  YieldPolicy* policy_ = nullptr;
  std::optional<std::mt19937_64> shuffle_;
};

inline Task::Place Task::place() const {
  return epoch_ == scheduler_->epoch_ ? place_ : Place::idle;
}

/// The process's one scheduler; it is never destroyed.
class TaskSchedulerRoot {
 public:
  [[nodiscard]] static TaskScheduler* findOrCreateScheduler();
};

}  // namespace Sylva
