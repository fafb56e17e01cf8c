// Drives an agent in real time: due timers, tables that other processes have changed, ready tasks.
// Owns: nothing but the budget of a slice. Reads: the process's clock and scheduler, the tables
// that are mounted to be read. Writes: what the logic writes. Runs: one portion of changes and one
// task slice in turn, so that neither starves the other; sleeps when there is neither, until a
// table changes or the next timer is due.
#pragma once

#include <functional>

#include "runtime/Task.h"

namespace Host {

class EventLoop {
 public:
  EventLoop();
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  /// Until `isOver` says so; it is asked at each turn, and after a signal.
  void run(const std::function<bool()>& isOver);

 private:
  /// True if nothing is left to do at this moment.
  bool turn();
  void sleep();

  Sylva::TimeYield yield_;
  Sylva::TaskScheduler& scheduler_;
};

}  // namespace Host
