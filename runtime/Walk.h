// The base of a machine that does long scans in slices.
// scheduleWalk asks for a walk; later walkStartedNotification says whether there is work; then walk
// runs, slice by slice, until it reports that it did not yield; then walkFinishedNotification.
// Between slices events may run, so a walk keeps the key of its next entry and nothing else.
#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include "runtime/MachineTask.h"
#include "runtime/Slice.h"

namespace Sylva {

class WalkSmBase : public Vesk::Machine {
 public:
  /// Requests a walk; never runs inline. During a walk: a fresh one begins at the next slice if
  /// restarts are allowed, else after this one.
  void scheduleWalk();
  /// Requests a walk after a delay in seconds.
  void scheduleWalkDelay(double seconds);
  [[nodiscard]] bool walkScheduled() const { return task_.taskScheduled(); }

 protected:
  struct WalkResult {
    bool yielded;
    std::size_t processed;  ///< items
  };

  WalkSmBase(TaskScheduler* scheduler, TaskPriority priority, const std::string& name);

  /// Seconds between a request and the walk's first slice.
  [[nodiscard]] virtual double initialScheduleDelay() const { return 0; }
  [[nodiscard]] virtual bool allowWalkRestarts() const { return false; }
  virtual void walkScheduledNotification() {}
  virtual void walkAbortedNotification() {}
  /// A walk begins; false if there is nothing to do.
  virtual bool walkStartedNotification() = 0;
  virtual WalkResult walk() = 0;
  virtual void walkFinishedNotification() {}

  /// Asked between items: true when the slice is used up.
  [[nodiscard]] bool mustYield() const { return task_.taskShouldYield(); }
  /// The slice that begins, which counts its items.
  [[nodiscard]] Slice slice() const { return Slice(task_); }

 private:
  void runSlice();

  Vesk::MachineTask task_;
  Vesk::MachineTimer delay_;
  bool walking_ = false;
  bool again_ = false;
};

}  // namespace Sylva
