// The protocol of walks: who is called when, over yields, restarts, delays, silence and deletion.

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "runtime/Record.h"
#include "runtime/Walk.h"

namespace walktest {

using Names = std::vector<std::string>;

struct Script {
  Names log;
  bool restarts = false;
  double delay = 0;
  bool hasWork = true;
  int items = 3;
  std::function<void(const std::string&)> on;
  void heard(const std::string& what) {
    log.push_back(what);
    if (on) on(what);
  }
};

class CountSm : public Sylva::WalkSmBase {
  VESK_LOCAL_RECORD(walktest::CountSm)
  CountSm(Sylva::TaskScheduler* scheduler, Script* script)
      : WalkSmBase(scheduler, 3, "count"), script_(script) {}
  ~CountSm() override { script_->log.emplace_back("~"); }

 private:
  double initialScheduleDelay() const override { return script_->delay; }
  bool allowWalkRestarts() const override { return script_->restarts; }
  void walkScheduledNotification() override { script_->heard("scheduled"); }
  void walkAbortedNotification() override { script_->heard("aborted"); }
  bool walkStartedNotification() override {
    next_ = 0;
    script_->heard("started");
    return script_->hasWork;
  }
  WalkResult walk() override {
    std::size_t done = 0;
    for (; next_ < script_->items; ++next_, ++done) {
      if (done > 0 && mustYield()) return {true, done};
      script_->heard(std::to_string(next_));
    }
    return {false, done};
  }
  void walkFinishedNotification() override { script_->heard("finished"); }
  Script* script_;
  int next_ = 0;
};

class WalkTest : public testing::Test {
 protected:
  WalkTest() {
    Vesk::System::clockIs(&clock);
    scheduler.yieldPolicyIs(&everyItem);
  }
  ~WalkTest() override { Vesk::System::clockIs(nullptr); }
  Names run() {
    scheduler.runUntilIdle();
    return std::exchange(script.log, {});
  }
  Names passTo(double time) {
    clock.advanceTo(time);
    scheduler.fireExpired(time);
    return run();
  }
  Vesk::ManualClock clock{0};
  Sylva::TaskScheduler scheduler;
  Sylva::ItemYield everyItem{1};
  Script script;
  Ombra::Ptr<CountSm> sm = Ombra::make<CountSm>(&scheduler, &script);
};

TEST_F(WalkTest, aRequestInTheMiddleStartsAfreshNowOrAfterwards) {
  script.on = [&](const std::string& what) {
    if (what == "1") script.on = nullptr, sm->scheduleWalk();
  };
  const auto again = script.on;
  sm->scheduleWalk();
  sm->scheduleWalk();
  EXPECT_EQ(script.log, Names{"scheduled"}) << "never inline";
  EXPECT_EQ(run(), (Names{"scheduled", "started", "0", "1", "2", "finished", "started", "0", "1",
                          "2", "finished"}));
  script.hasWork = false;
  sm->scheduleWalk();
  EXPECT_EQ(run(), (Names{"scheduled", "started"}));
  script.hasWork = true;
  script.restarts = true;
  script.on = again;
  sm->scheduleWalk();
  EXPECT_EQ(run(), (Names{"scheduled", "started", "0", "1", "aborted", "started", "0", "1", "2",
                          "finished"}));
  // In the last slice, and from the finish.
  for (const char* when : {"2", "finished"}) {
    script.on = [&, when](const std::string& what) {
      if (what == when) script.on = nullptr, sm->scheduleWalk();
    };
    sm->scheduleWalk();
    const Names log = run();
    EXPECT_EQ(std::count(log.begin(), log.end(), "finished"), 2) << when;
    EXPECT_EQ(std::count(log.begin(), log.end(), "aborted"), 0) << when;
  }
}

TEST_F(WalkTest, delaysCountFromTheRequestAndTheSoonerRequestWins) {
  const Names all{"started", "0", "1", "2", "finished"};
  const auto walks = [&](const Names& log) {
    return std::search(log.begin(), log.end(), all.begin(), all.end()) != log.end();
  };
  script.delay = 2;
  sm->scheduleWalk();
  EXPECT_FALSE(walks(passTo(1)));
  sm->scheduleWalk();  // does not put the walk off
  EXPECT_TRUE(walks(passTo(2)));
  sm->scheduleWalkDelay(10);
  sm->scheduleWalk();
  EXPECT_TRUE(walks(passTo(4)));
  EXPECT_FALSE(walks(passTo(20)));
}

TEST_F(WalkTest, silenceEndsAWalkAndItCanBeAskedForAnew) {
  const auto silence = [&](bool back) {
    sm->hasNotificationActiveIs(false);
    if (back) sm->hasNotificationActiveIs(true);
  };
  // Between two slices.
  sm->scheduleWalk();
  scheduler.runUntilIdle(2);
  silence(true);
  EXPECT_EQ(run(), (Names{"scheduled", "started", "0", "1"}));
  sm->scheduleWalk();
  const Names resumed = run();
  ASSERT_FALSE(resumed.empty());
  EXPECT_EQ(resumed.back(), "finished");
  // In each of its own calls: nothing more is called.
  for (const char* when : {"started", "0", "2"}) {
    script.on = [&, when](const std::string& what) {
      if (what == when) silence(false);
    };
    sm->scheduleWalk();
    const Names log = run();
    EXPECT_EQ(std::count(log.begin(), log.end(), "finished"), 0) << when;
    script.on = nullptr;
    sm->hasNotificationActiveIs(true);
    sm->scheduleWalk();
    EXPECT_EQ(run(), (Names{"scheduled", "started", "0", "1", "2", "finished"})) << when;
  }
}

TEST_F(WalkTest, aWalkMayDeleteItsMachine) {
  script.on = [&](const std::string& what) {
    if (what != "1") return;
    sm->hasNotificationActiveIs(false);
    sm.reset();
  };
  sm->scheduleWalk();
  EXPECT_EQ(run(), (Names{"scheduled", "started", "0", "1", "~"}));
}

}  // namespace walktest
