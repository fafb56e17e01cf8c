#include "runtime/Walk.h"

namespace Sylva {

WalkSmBase::WalkSmBase(TaskScheduler* scheduler, TaskPriority priority, const std::string& name)
    : task_(this, scheduler, priority, name, Vesk::taskBody<&WalkSmBase::runSlice>),
      delay_(this, scheduler, priority, name + "Delay", Vesk::taskBody<&WalkSmBase::scheduleWalk>) {
}

void WalkSmBase::scheduleWalk() {
  if (walking_) {
    again_ = true;
    // A machine that was silenced between two slices has lost its turn.
    if (!task_.taskCurrentlyRunning()) task_.scheduleTask();
    return;
  }
  if (task_.taskScheduled()) return;
  walkScheduledNotification();
  const double delay = delay_.taskCurrentlyRunning() ? 0 : initialScheduleDelay();
  if (delay <= 0) {
    task_.scheduleTask();
  } else if (delay_.currentExpirationTime() > Vesk::System::currentTime() + delay) {
    delay_.scheduleTaskDelay(delay);
  }
}

void WalkSmBase::scheduleWalkDelay(double seconds) {
  delay_.scheduleTaskDelay(seconds);
}

void WalkSmBase::runSlice() {
  if (walking_ && again_ && allowWalkRestarts()) {
    walkAbortedNotification();
    walking_ = false;
  }
  if (!walking_) {
    again_ = false;
    if (!walkStartedNotification() || !hasNotificationActive()) return;
    walking_ = true;
  }
  const WalkResult result = walk();
  task_.taskWorkCountInc(result.processed);
  if (!hasNotificationActive()) {
    walking_ = false;
    return;
  }
  if (!result.yielded) {
    walking_ = false;
    walkFinishedNotification();
  }
  if (result.yielded || again_) task_.scheduleTask();
}

}  // namespace Sylva
