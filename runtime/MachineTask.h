// Tasks and timers as members of a machine: switched with it, and it lives through their bodies.
#pragma once

#include <utility>

#include "runtime/Machine.h"
#include "runtime/Task.h"

namespace Vesk {

/// A Sylva::Task or Sylva::TimerTask whose body is a member function of the machine that holds it.
template <class Base>
class OwnedTask final : public Base, public Part {
 public:
  using Body = void (*)(Machine&);
  OwnedTask(Machine* owner, Sylva::TaskScheduler* scheduler, Sylva::TaskPriority priority,
            std::string name, Body body)
      : Base(scheduler, priority, std::move(name)), Part(owner), owner_(owner), body_(body) {
    Base::activeIs(owner->hasNotificationActive());
  }

 private:
  /// Held from here and not by the scheduler, since the body may drop this task and keep its
  /// machine.
  void run() override {
    Machine& owner = *owner_;
    const HeldMachine alive(&owner);
    body_(owner);
  }
  void activeIs(bool active) override { Base::activeIs(active); }

  Machine* owner_;
  Body body_;
};

using MachineTask = OwnedTask<Sylva::Task>;
using MachineTimer = OwnedTask<Sylva::TimerTask>;

/// A judgement that must not be passed on a state that is on its way: runs a member function of the
/// machine that holds it when the outermost write in progress is through.
class MachineAfterwards final : public Afterwards, public Part {
 public:
  using Body = void (*)(Machine&);
  MachineAfterwards(Machine* owner, Body body) : Part(owner), owner_(owner), body_(body) {}
  void ask() {
    if (owner_->hasNotificationActive()) Afterwards::ask();
  }

 private:
  void run() override {
    Machine& owner = *owner_;
    const HeldMachine alive(&owner);
    body_(owner);
  }
  void activeIs(bool active) override {
    if (!active) forget();
  }

  Machine* owner_;
  Body body_;
};

/// The body argument of an owned task: `taskBody<&Sm::handleTimerExpiry>`.
template <auto Handler>
void taskBody(Machine& machine) {
  runHandler<Handler, void>(machine, nullptr);
}

}  // namespace Vesk
