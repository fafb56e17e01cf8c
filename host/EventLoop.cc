#include "host/EventLoop.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "runtime/Clock.h"
#include "runtime/SharedMem.h"

namespace Host {
namespace {

/// Seconds that one slice may take: what an operator's command or another timer has to wait.
constexpr double sliceBudget = 0.010;
/// A writer that is killed may wake nobody: how long its last change may go unnoticed.
constexpr double longestSleep = 0.5;

VeskSharedMem::EntityManager& tables() {
  return *VeskSharedMem::EntityManager::getEntityManager();
}

}  // namespace

EventLoop::EventLoop()
    : yield_(sliceBudget), scheduler_(*Sylva::TaskSchedulerRoot::findOrCreateScheduler()) {
  scheduler_.yieldPolicyIs(&yield_);
}

EventLoop::~EventLoop() {
  scheduler_.yieldPolicyIs(nullptr);
}

void EventLoop::run(const std::function<bool()>& isOver) {
  while (!isOver())
    if (turn()) sleep();
}

bool EventLoop::turn() {
  scheduler_.fireExpired(Vesk::System::currentTime());
  yield_.begin();
  const bool isUpToDate = tables().takeUpChanges([this] { return yield_.mustYield(); });
  scheduler_.runOne();
  tables().wakeReaders();
  return isUpToDate && scheduler_.idle();
}

void EventLoop::sleep() {
  const double untilTimer = scheduler_.nextExpiry() - Vesk::System::currentTime();
  const double seconds = std::clamp(untilTimer, 0.0, longestSleep);
  // Rounded up: a timer that is not quite due would only be looked at again.
  tables().waitForChanges(std::chrono::milliseconds(std::lround(std::ceil(seconds * 1000))));
}

}  // namespace Host
