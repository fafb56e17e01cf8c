#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include <gtest/gtest.h>

#include "runtime/Assert.h"
#include "runtime/Task.h"

using namespace Sylva;
using Names = std::vector<std::string>;

namespace {

template <class Base>
class Scripted : public Base {
 public:
  using Base::Base;
  std::function<void()> body;

 protected:
  void run() override {
    if (body) body();
  }
};

class TaskTest : public testing::Test {
 protected:
  TaskTest() { Vesk::System::clockIs(&clock); }
  ~TaskTest() override { Vesk::System::clockIs(nullptr); }

  template <class T = Task>
  std::unique_ptr<Scripted<T>> make(const std::string& name, TaskPriority priority = 3) {
    auto task = std::make_unique<Scripted<T>>(&scheduler, priority, name);
    task->body = [this, name] { ran.push_back(name); };
    return task;
  }
  Names takeRan() { return std::exchange(ran, {}); }
  void passTo(double time) {
    clock.advanceTo(time);
    scheduler.fireExpired(time);
    scheduler.runUntilIdle();
  }

  Vesk::ManualClock clock{1000};
  TaskScheduler scheduler;
  Names ran;
};

TEST_F(TaskTest, runsBySmallerPriorityThenFirstComeAndNeverInline) {
  auto a = make("a"), b = make("b"), late = make("late", 4), urgent = make("urgent", 0);
  for (auto* task : {late.get(), b.get(), a.get(), b.get(), urgent.get()})
    task->scheduleTask();
  EXPECT_TRUE(ran.empty());
  EXPECT_EQ(scheduler.pendingTaskNames(), (Names{"urgent", "b", "a", "late"}));
  a->taskPriorityIs(5);
  EXPECT_EQ(scheduler.runUntilIdle(3), 3U);
  EXPECT_EQ(takeRan(), (Names{"urgent", "b", "late"}));
  EXPECT_FALSE(scheduler.idle());
  EXPECT_EQ(scheduler.runUntilIdle(), 1U);
  EXPECT_FALSE(scheduler.runOne());
}

TEST_F(TaskTest, tasksDieQueuedInAnotherBodyOrInTheirOwn) {
  auto first = make("first"), second = make("second"), third = make("third");
  auto timer = make<TimerTask>("timer");
  for (auto* task : {first.get(), second.get(), third.get()})
    task->scheduleTask();
  timer->scheduleTaskDelay(1);
  bool shouldYield = true;
  auto witness = make("witness");
  ItemYield everyItem(1);
  scheduler.yieldPolicyIs(&everyItem);
  first->body = [&] {
    second.reset();
    timer.reset();
    // A new task at the address of the one that runs must not pass for it.
    auto keep = std::move(first->body);
    first.reset();
    first = make("reborn");
    EXPECT_FALSE(first->taskCurrentlyRunning());
    first->scheduleTask();
    shouldYield = witness->taskShouldYield();
  };
  scheduler.runUntilIdle();
  EXPECT_EQ(ran, (Names{"third", "reborn"}));
  EXPECT_TRUE(shouldYield);
  EXPECT_EQ(scheduler.nextExpiry(), TaskScheduler::never);
  EXPECT_TRUE(scheduler.pendingTaskNames().empty());
}

TEST_F(TaskTest, timersRunInOrderOfTimeAndReplaceTheirExpiry) {
  auto a = make<TimerTask>("a"), b = make<TimerTask>("b"), c = make<TimerTask>("c");
  double inBody = 0;
  c->body = [&] {
    inBody = c->currentExpirationTime();
    ran.push_back("c");
    if (clock.now() < 1009) c->scheduleTaskDelay(5);
  };
  EXPECT_EQ(a->currentExpirationTime(), TaskScheduler::never);
  a->scheduleTaskDelay(3);
  b->scheduleTaskDelay(2);
  c->scheduleTaskDelay(3);
  a->scheduleTaskDelay(3);  // moves behind c, which has the same time
  EXPECT_EQ(scheduler.nextExpiry(), 1002);
  passTo(1001);
  EXPECT_TRUE(ran.empty());
  passTo(1004);
  EXPECT_EQ(takeRan(), (Names{"b", "c", "a"}));
  EXPECT_EQ(inBody, TaskScheduler::never);
  EXPECT_EQ(c->currentExpirationTime(), 1009);

  // Fired but not run yet: the time stays to be read, and a new delay still replaces it.
  clock.advanceTo(1009);
  EXPECT_EQ(scheduler.fireExpired(1009), 1U);
  EXPECT_EQ(c->currentExpirationTime(), 1009);
  c->scheduleTaskDelay(1);
  EXPECT_FALSE(scheduler.runOne());
  // Zero delay and a plain schedule end the wait without any passing of time.
  c->scheduleTask();
  b->scheduleTaskDelay(0);
  EXPECT_TRUE(ran.empty());
  scheduler.runUntilIdle();
  EXPECT_EQ(takeRan(), (Names{"c", "b"}));
}

TEST_F(TaskTest, aSliceEndsAfterItsItemsOrItsTime) {
  ItemYield three(3);
  scheduler.yieldPolicyIs(&three);
  std::vector<bool> asked;
  auto scan = make("scan");
  scan->body = [&] {
    for (int i = 0; i < 3; ++i)
      asked.push_back(scan->taskShouldYield());
  };
  EXPECT_FALSE(scan->taskShouldYield()) << "no slice outside of a body";
  for (int turn = 0; turn < 2; ++turn) {
    scan->scheduleTask();
    scheduler.runUntilIdle();
    EXPECT_EQ(std::exchange(asked, {}), (std::vector{false, false, true})) << turn;
  }
  TimeYield budget(0.5);
  budget.begin();
  clock.advanceTo(1000.25);
  EXPECT_FALSE(budget.mustYield());
  clock.advanceTo(1000.5);
  EXPECT_TRUE(budget.mustYield());
}

TEST_F(TaskTest, shuffleDrawsAmongEqualsOnlyAndRepeatsWithItsSeed) {
  std::vector<std::unique_ptr<Scripted<Task>>> tasks;
  for (int i = 0; i < 12; ++i)
    tasks.push_back(make(std::to_string(i), i < 6 ? 3 : 4));
  auto play = [&](std::optional<std::uint64_t> seed) {
    scheduler.shuffleSeedIs(seed);
    for (auto& task : tasks)
      task->scheduleTask();
    scheduler.runUntilIdle();
    return takeRan();
  };
  auto plain = play({}), drawn = play(7);
  EXPECT_EQ(drawn, play(7));
  EXPECT_NE(drawn, plain);
  EXPECT_TRUE(std::is_permutation(drawn.begin(), drawn.begin() + 6, plain.begin()));
}

TEST_F(TaskTest, resetForgetsWithoutTouchingTheDead) {
  // Storage that is overwritten stands for the memory of a dead process.
  using Body = Scripted<TimerTask>;
  alignas(Body) std::array<std::byte, sizeof(Body)> storage[2];
  auto* ready = new (&storage[0]) Body(&scheduler, 3, "dead");
  auto* waiting = new (&storage[1]) Body(&scheduler, 3, "dead");
  auto survivor = make<TimerTask>("survivor"), gone = make<TimerTask>("gone");
  ready->scheduleTask();
  for (auto* timer : {waiting, static_cast<Body*>(survivor.get()), static_cast<Body*>(gone.get())})
    timer->scheduleTaskDelay(1);
  for (auto& block : storage)
    block.fill(std::byte{0xa5});
  scheduler.reset();
  EXPECT_TRUE(scheduler.idle());
  EXPECT_EQ(scheduler.nextExpiry(), TaskScheduler::never);
  EXPECT_EQ(survivor->currentExpirationTime(), TaskScheduler::never);
  survivor->scheduleTaskDelay(2);
  gone.reset();
  EXPECT_EQ(scheduler.pendingTaskNames(), Names{"survivor"});
  passTo(1002);
  EXPECT_EQ(ran, Names{"survivor"});
}

TEST(FatalTest, aBrokenInvariantPrintsItsTextAndRunsTheHookOnce) {
  auto withHook = [](auto end) {
    Ombra::onFatal([] {
      std::fputs("state dump\n", stderr);
      Ombra::fatal("a fault in the dump");
    });
    end();
  };
  Ombra::assertThat(true, "holds");
  EXPECT_DEATH(withHook([] { Ombra::assertThat(false, "iter_"); }),
               "^assertion failed: iter_\nstate dump\na fault in the dump\n$");
}

}  // namespace
