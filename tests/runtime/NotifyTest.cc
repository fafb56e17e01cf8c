// Who hears of a change, when, and in which order, while handlers delete, add and silence each
// other.

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "runtime/MachineTask.h"
#include "runtime/Record.h"
#include "tests/runtime/Observer.h"

namespace notifytest {

using Names = std::vector<std::string>;

class Row : public Vesk::Entity {
  VESK_LOCAL_RECORD(notifytest::Row)
  VESK_VALUE(std::uint32_t, value)
  VESK_VALUE(std::uint32_t, other)
  VESK_MAP(std::uint16_t, std::uint32_t, entry)
};

/// What the probes heard, and what they are to do about it.
struct Stage {
  Names log;
  std::map<std::string, std::function<void()>> act;
  void heard(const std::string& who) {
    log.push_back(who);
    if (const auto it = act.find(who); it != act.end()) {
      const auto body = it->second;
      body();
      log.push_back(who + " done");
    }
  }
  Names take() { return std::exchange(log, {}); }
};

class Probe : public Vesk::Machine {
  VESK_LOCAL_RECORD(notifytest::Probe)
  struct Inputs {
    Stage* stage;
    std::string name;
    Ombra::Ptr<Row const> row;
    bool operator==(const Inputs&) const = default;
  };
  explicit Probe(Inputs inputs) : in(std::move(inputs)) {}
  ~Probe() override { in.stage->log.push_back("~" + in.name); }
  const Inputs in;
  Vesk::Watch value_ = watch<&Probe::handleValue>(in.row, Row::valueAttr);
  Vesk::Watch other_ = watch<&Probe::handleOther>(in.row, Row::otherAttr);
  Vesk::Watch entry_ = watch<&Probe::handleEntry>(in.row, Row::entryAttr);

 private:
  void handleValue() { in.stage->heard(in.name); }
  void handleOther() { in.stage->heard(in.name + ".other"); }
  void handleEntry(std::uint16_t key) {
    in.stage->heard(in.name + "[" + std::to_string(key) + "]");
  }
  void handleCleanup() override { in.stage->heard(in.name + " cleanup"); }
};

class Owner : public Vesk::Machine {
  VESK_LOCAL_RECORD(notifytest::Owner)
  struct Inputs {
    Stage* stage;
    Sylva::TaskScheduler* scheduler;
    bool operator==(const Inputs&) const = default;
  };
  explicit Owner(Inputs inputs) : in(std::move(inputs)) {}
  const Inputs in;
  Vesk::MachineTask task_{this, in.scheduler, 3, "task", Vesk::taskBody<&Owner::handleTask>};
  Vesk::MachineTimer timer_{this, in.scheduler, 3, "timer", Vesk::taskBody<&Owner::handleTask>};
  VESK_INSTANCE(Probe, single)
  VESK_INSTANCES(std::uint16_t, Probe, probe)

 private:
  void handleTask() { in.stage->heard("task"); }
};

class NotifyTest : public testing::Test {
 protected:
  ~NotifyTest() override { Vesk::Publisher::shuffleSeedIs(0); }
  Probe::Inputs inputs(const std::string& name) { return {&stage, name, row}; }
  Ombra::Ptr<Probe> probe(const std::string& name) { return Ombra::make<Probe>(inputs(name)); }
  void makeProbes(std::initializer_list<const char*> names) {
    for (const char* name : names)
      probes[name] = probe(name);
  }
  Names change() {
    row->valueIs(row->value() + 1);
    return stage.take();
  }
  Stage stage;
  Ombra::Ptr<Row> row = Ombra::make<Row>();
  std::map<std::string, Ombra::Ptr<Probe>> probes;
  Sylva::TaskScheduler scheduler;
};

TEST_F(NotifyTest, eventsRunInsideTheWriteNestedAndReadThePresent) {
  makeProbes({"a", "b"});
  stage.act["a"] = [&] {
    if (row->value() < 3) row->valueIs(row->value() + 1);
    row->otherIs(row->value());
  };
  std::vector<std::uint32_t> seen;
  stage.act["b"] = [&] { seen.push_back(row->value()); };
  row->valueIs(1);
  // The write of 2 is told, with all that follows from it, before the rest hears of the write of 1.
  EXPECT_EQ(stage.take(), (Names{"a", "a", "a", "a.other", "b.other", "a done", "b", "b done",  //
                                 "a done", "b", "b done", "a done", "b", "b done"}));
  EXPECT_EQ(seen, (std::vector<std::uint32_t>{3, 3, 3}));
}

TEST_F(NotifyTest, orderIsThatOfSubscriptionUnlessShuffledAndObserversAreFirst) {
  const auto record = [&](std::uint64_t seed) {
    probes.clear();
    Vesk::Publisher::shuffleSeedIs(seed);
    makeProbes({"a", "b", "c", "d", "e", "f", "g"});
    const Vesk::Observer observer(*row,
                                  [&](Ombra::FieldId) { stage.log.emplace_back("observer"); });
    probes["h"] = probe("h");
    stage.take();
    return change();
  };
  const Names plain{"observer", "a", "b", "c", "d", "e", "f", "g", "h"};
  EXPECT_EQ(record(0), plain);
  const Names shuffled = record(7);
  EXPECT_NE(shuffled, plain);
  EXPECT_EQ(shuffled.front(), "observer");
  EXPECT_TRUE(std::is_permutation(shuffled.begin(), shuffled.end(), plain.begin(), plain.end()));
  EXPECT_EQ(record(7), shuffled);
  EXPECT_NE(record(8), shuffled);
}

TEST_F(NotifyTest, whoLeavesIsNotCalledAndWhoComesDoesNotSeeTheEventInFlight) {
  const auto silence = [&](const char* name) { probes[name]->hasNotificationActiveIs(false); };
  const auto renew = [&](const char* name) {
    silence(name);
    probes[name]->hasNotificationActiveIs(true);
  };
  struct Case {
    const char* what;
    std::function<void()> act;  // in b's handler
    Names first, second;        // who hears this event and the next, after a and b
  };
  const Case cases[] = {
      {"earlier", [&] { silence("a"); }, {"c", "d"}, {"b", "c", "d"}},
      {"self", [&] { silence("b"); }, {"c", "d"}, {"a", "c", "d"}},
      {"next", [&] { silence("c"); }, {"d"}, {"a", "b", "d"}},
      {"last", [&] { silence("d"); }, {"c"}, {"a", "b", "c"}},
      {"all later", [&] { silence("c"), silence("d"); }, {}, {"a", "b"}},
      {"all",
       [&] {
         for (const char* n : {"a", "b", "c", "d"})
           silence(n);
       },
       {},
       {}},
      {"renewed earlier", [&] { renew("a"); }, {"c", "d"}, {"b", "c", "d", "a"}},
      {"renewed self", [&] { renew("b"); }, {"c", "d"}, {"a", "c", "d", "b"}},
      {"renewed next", [&] { renew("c"); }, {"d"}, {"a", "b", "d", "c"}},
      {"new one", [&] { probes["e"] = probe("e"); }, {"c", "d"}, {"a", "b", "c", "d", "e"}},
      {"deep inside",
       [&] {
         stage.act["c.other"] = [&] { silence("d"); };
         row->otherIs(row->other() + 1);
       },
       {"a.other", "b.other", "c.other", "c.other done", "c"},
       {"a", "b", "c"}},
      {"new one, nested event",
       [&] {
         probes["e"] = probe("e");
         row->valueIs(row->value() + 1);
       },
       {"a", "b", "c", "d", "e", "c", "d"},
       {"a", "b", "c", "d", "e"}},
      {"zombie", [&] { probes["c"]->veskDoZombieReactors(true); }, {"d"}, {"a", "b", "d"}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    makeProbes({"a", "b", "c", "d"});
    stage.take();
    stage.act["b"] = [&] {
      stage.act.erase("b");
      stage.take();
      c.act();
    };
    row->valueIs(row->value() + 1);
    Names heard = stage.take();
    std::erase(heard, "b done");
    EXPECT_EQ(heard, c.first);
    EXPECT_EQ(change(), c.second);
    probes.clear();
    stage.act.clear();
  }
}

TEST_F(NotifyTest, aHandlerDeletesItsMachineItsSiblingTheEntityAndTheEntryItStandsOn) {
  auto owner = Ombra::make<Owner>(Owner::Inputs{&stage, &scheduler});
  for (std::uint16_t i : {1, 2, 3})
    owner->probeIs(i, inputs("p" + std::to_string(i)));
  stage.act["p1"] = [&] {
    owner->probeDel(1);  // itself: whole until the handler has ended
    owner->probeDel(3);  // a sibling: gone at once
    row.reset();         // the entity that published goes with its last watcher
  };
  row->valueIs(1);
  EXPECT_EQ(stage.take(), (Names{"p1", "p3 cleanup", "~p3", "p1 done", "p1 cleanup", "~p1", "p2"}));
  owner.reset();
  EXPECT_EQ(stage.take(), (Names{"p2 cleanup", "~p2"}));

  row = Ombra::make<Row>();
  for (std::uint16_t i = 0; i < 20; ++i)
    row->entryIs(i, i);
  probes["q"] = probe("q");
  stage.act["q[7]"] = [&] {
    row->entryDel(7);
    probes.clear();
    row.reset();
  };
  row->entryIs(7, 100);
  EXPECT_EQ(stage.take(), (Names{"q[7]", "q[7]", "q[7] done", "q[7] done", "q cleanup", "~q"}));
}

TEST_F(NotifyTest, silenceIsRecursiveImmediateAndCoversTasks) {
  Vesk::ManualClock clock;
  Vesk::System::clockIs(&clock);
  auto owner = Ombra::make<Owner>(Owner::Inputs{&stage, &scheduler});
  owner->singleIs(inputs("single"));
  owner->probeIs(1, inputs("nested"));
  makeProbes({"late"});
  stage.act["single"] = [&] { owner->hasNotificationActiveIs(false); };
  owner->task_.scheduleTask();
  owner->timer_.scheduleTaskDelay(1);
  EXPECT_EQ(change(), (Names{"single", "single done", "late"}));
  stage.act.clear();
  owner->task_.scheduleTask();
  EXPECT_EQ(change(), Names{"late"});
  scheduler.fireExpired(clock.now() + 10);
  EXPECT_FALSE(scheduler.runOne());
  owner->hasNotificationActiveIs(false);
  for (int i = 0; i < 2; ++i)
    owner->hasNotificationActiveIs(true);
  EXPECT_EQ(change(), (Names{"late", "single", "nested"}));
  scheduler.fireExpired(clock.now() + 20);
  EXPECT_FALSE(scheduler.runOne()) << "what silence has dropped is not revived";
  Vesk::System::clockIs(nullptr);
}

/// Writes what it watches before it is finished.
class EagerSm : public Vesk::Machine {
  VESK_LOCAL_RECORD(notifytest::EagerSm)
  struct Inputs {
    Ombra::Ptr<Row> row;
    Stage* stage;
    bool operator==(const Inputs&) const = default;
  };
  explicit EagerSm(Inputs inputs) : in(std::move(inputs)) {
    in.row->valueIs(7);
    in.stage->log.emplace_back("made");
  }
  const Inputs in;

 private:
  void handleValue() { in.stage->log.push_back("value " + std::to_string(useCount())); }
  Vesk::Watch value_ = watch<&EagerSm::handleValue>(in.row, Row::valueAttr);
};

TEST_F(NotifyTest, anEventInTheConstructorReachesTheMachineAndLeavesItAlive) {
  const auto sm = Ombra::make<EagerSm>(EagerSm::Inputs{row, &stage});
  EXPECT_EQ(stage.take(), (Names{"value 2", "made"}));
  EXPECT_EQ(sm->useCount(), 1U);
}

/// Judges the row when the write is through.
class Judge : public Vesk::Machine {
  VESK_LOCAL_RECORD(notifytest::Judge)
  using Inputs = Probe::Inputs;
  explicit Judge(Inputs inputs) : in(std::move(inputs)) {}
  const Inputs in;
  Vesk::MachineAfterwards judgement_{this, Vesk::taskBody<&Judge::judge>};
  Vesk::Watch value_ = watch<&Judge::handleValue>(in.row, Row::valueAttr);

 private:
  void handleValue() {
    judgement_.ask();
    judgement_.ask();
    in.stage->heard(in.name);
  }
  void judge() { in.stage->heard(in.name + " judges " + std::to_string(in.row->value())); }
};

TEST_F(NotifyTest, whatWaitsForTheOutermostWriteRunsOnceAfterItAndGoesWithItsMachine) {
  const auto judge = Ombra::make<Judge>(inputs("j"));
  probes["last"] = probe("last");
  stage.act["last"] = [&] {
    if (row->value() < 3) row->valueIs(row->value() + 1);
  };
  EXPECT_EQ(change(), (Names{"j", "last", "j", "last", "j", "last", "last done", "last done",
                             "last done", "j judges 3"}));
  judge->judgement_.ask();  // no write is in progress
  EXPECT_EQ(stage.take(), (Names{"j judges 3"}));

  stage.act["last"] = [&] { judge->hasNotificationActiveIs(false); };
  EXPECT_EQ(change(), (Names{"j", "last", "last done"})) << "silenced while it waits";
}

}  // namespace notifytest
