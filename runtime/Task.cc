#include "runtime/Task.h"

#include <bit>
#include <utility>

#include "runtime/Assert.h"

namespace Sylva {
namespace {

void checkPriority(TaskPriority priority) {
  Ombra::assertThat(priority >= 0 && priority < TaskScheduler::priorityCount,
                    "0 <= priority < TaskScheduler::priorityCount");
}

}  // namespace

Task::Task(TaskScheduler* scheduler, TaskPriority priority, std::string name)
    : scheduler_(scheduler), priority_(priority), name_(std::move(name)) {
  Ombra::assertThat(scheduler != nullptr, "scheduler");
  checkPriority(priority);
}

Task::~Task() {
  scheduler_->drop(*this);
  if (scheduler_->running_ == this) scheduler_->running_ = nullptr;
}

void Task::scheduleTask() {
  if (active_ && place() == Place::idle) scheduler_->enqueue(*this);
}

void Task::activeIs(bool active) {
  active_ = active;
  if (!active) scheduler_->drop(*this);
}

void Task::taskPriorityIs(TaskPriority priority) {
  checkPriority(priority);
  if (priority == priority_) return;
  bool ready = place() == Place::ready;
  if (ready) scheduler_->drop(*this);
  priority_ = priority;
  if (ready) scheduler_->enqueue(*this);
}

bool Task::taskShouldYield() const {
  return scheduler_->inBody_ && scheduler_->policy_ && scheduler_->policy_->mustYield();
}

bool Task::taskCurrentlyRunning() const {
  return scheduler_->running_ == this;
}

// The waiting set compares by members of this class: leave it while they still exist.
TimerTask::~TimerTask() {
  scheduler_->drop(*this);
}

void TimerTask::scheduleTaskDelay(double seconds) {
  if (!active_) return;
  scheduler_->drop(*this);
  double now = Vesk::System::currentTime();
  if (seconds > 0) {
    if (seconds < TaskScheduler::never) scheduler_->wait(*this, now + seconds);
    return;
  }
  expiry_ = now;
  scheduler_->enqueue(*this);
}

void TimerTask::scheduleTask() {
  if (place() != Place::ready) scheduleTaskDelay(0);
}

double TimerTask::currentExpirationTime() const {
  return place() == Place::idle ? TaskScheduler::never : expiry_;
}

void TaskScheduler::shuffleSeedIs(std::optional<std::uint64_t> seed) {
  shuffle_.reset();
  if (seed) shuffle_.emplace(*seed);
}

void TaskScheduler::enqueue(Task& task) {
  auto& level = levels_[static_cast<std::size_t>(task.priority_)];
  task.epoch_ = epoch_;
  task.place_ = Task::Place::ready;
  task.next_ = nullptr;
  task.previous_ = level.tail;
  (level.tail ? level.tail->next_ : level.head) = &task;
  level.tail = &task;
  readyMask_ |= 1U << task.priority_;
}

void TaskScheduler::wait(TimerTask& timer, double expiry) {
  timer.epoch_ = epoch_;
  timer.place_ = Task::Place::waiting;
  timer.expiry_ = expiry;
  timer.order_ = ++timerOrder_;
  timers_.insert(&timer);
}

void TaskScheduler::drop(Task& task) {
  auto place = task.place();
  task.place_ = Task::Place::idle;
  if (place == Task::Place::waiting) {
    timers_.erase(static_cast<TimerTask*>(&task));
  } else if (place == Task::Place::ready) {
    auto& level = levels_[static_cast<std::size_t>(task.priority_)];
    (task.previous_ ? task.previous_->next_ : level.head) = task.next_;
    (task.next_ ? task.next_->previous_ : level.tail) = task.previous_;
    if (!level.head) readyMask_ &= ~(1U << task.priority_);
  }
}

Task& TaskScheduler::pick() {
  Task* first = levels_[static_cast<std::size_t>(std::countr_zero(readyMask_))].head;
  if (!shuffle_) return *first;
  std::size_t count = 0;
  for (Task* task = first; task; task = task->next_)
    ++count;
  for (auto skip = (*shuffle_)() % count; skip > 0; --skip)
    first = first->next_;
  return *first;
}

bool TaskScheduler::runOne() {
  Ombra::assertThat(!inBody_, "a task body runs the scheduler");
  if (idle()) return false;
  Task& task = pick();
  drop(task);
  running_ = &task;
  inBody_ = true;
  if (policy_) policy_->begin();
  task.holdOwner();
  task.run();
  inBody_ = false;
  // Null when the task died in its body, or when the process was played dead meanwhile.
  if (std::exchange(running_, nullptr)) task.releaseOwner();
  return true;
}

std::size_t TaskScheduler::runUntilIdle(std::size_t maxSlices) {
  std::size_t slices = 0;
  while (slices < maxSlices && runOne())
    ++slices;
  return slices;
}

double TaskScheduler::nextExpiry() const {
  return timers_.empty() ? never : (*timers_.begin())->expiry_;
}

std::size_t TaskScheduler::fireExpired(double now) {
  std::size_t fired = 0;
  for (; !timers_.empty() && nextExpiry() <= now; ++fired) {
    TimerTask& timer = **timers_.begin();
    timers_.erase(timers_.begin());
    enqueue(timer);
  }
  return fired;
}

std::vector<std::string> TaskScheduler::pendingTaskNames() const {
  std::vector<std::string> names;
  for (const auto& level : levels_) {
    for (const Task* task = level.head; task; task = task->next_)
      names.push_back(task->name_);
  }
  for (const TimerTask* timer : timers_)
    names.push_back(timer->name_);
  return names;
}

void TaskScheduler::reset() {
  ++epoch_;
  levels_ = {};
  readyMask_ = 0;
  timers_.clear();
  running_ = nullptr;
  inBody_ = false;  // that body may be one that never returns
}

TaskScheduler* TaskSchedulerRoot::findOrCreateScheduler() {
  static auto* scheduler = new TaskScheduler;
  return scheduler;
}

}  // namespace Sylva
