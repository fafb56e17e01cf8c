// Paths of references: what runs when a step is replaced, and what stays silent.

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "runtime/Record.h"

namespace pathtest {

using Names = std::vector<std::string>;

class End : public Vesk::Entity {
  VESK_LOCAL_RECORD(pathtest::End)
  VESK_VALUE(std::uint32_t, value)
  VESK_MAP(std::uint16_t, std::uint32_t, entry)
};
class Middle : public Vesk::Entity {
  VESK_LOCAL_RECORD(pathtest::Middle)
  VESK_REF(End const, end)
};
class Top : public Vesk::Entity {
  VESK_LOCAL_RECORD(pathtest::Top)
  VESK_REF(Middle const, middle)
};

class PathSm : public Vesk::Machine {
  VESK_LOCAL_RECORD(pathtest::PathSm)
  explicit PathSm(Ombra::Ptr<Top const> t) : top(std::move(t)) {}
  const Ombra::Ptr<Top const> top;
  Names log;
  bool silenceAtKey = false;
  Names take() {
    // Keys come in no order that a machine may lean on.
    std::sort(log.begin(), log.end());
    return std::exchange(log, {});
  }

 private:
  void handleValue() { log.emplace_back("value"); }
  void handleAny() { log.emplace_back("any"); }
  void handleQuiet(std::uint16_t key) { log.push_back("quiet" + std::to_string(key)); }
  void handleOwn() { log.emplace_back("own"); }
  void handleKey(std::uint16_t key) {
    log.push_back(std::to_string(key));
    if (silenceAtKey) hasNotificationActiveIs(false);
  }

 public:
  Vesk::PathWatch value_ =
      watchPath<&PathSm::handleValue>(top, Top::middleAttr, Middle::endAttr, End::valueAttr);
  Vesk::PathWatch any_ =
      watchPath<&PathSm::handleAny>(top, Top::middleAttr, Middle::endAttr, End::entryAttr);
  Vesk::PathWatch key_ =
      watchPath<&PathSm::handleKey>(top, Top::middleAttr, Middle::endAttr, End::entryAttr);
  Vesk::PathWatch quiet_ =
      watchPathQuietly<&PathSm::handleQuiet>(top, Top::middleAttr, Middle::endAttr, End::entryAttr);
  VESK_REF(End const, own)
  Vesk::PathWatch ownPath_ = watchPath<&PathSm::handleOwn>(this, ownAttr, End::valueAttr);
};

class PathTest : public testing::Test {
 protected:
  static Ombra::Ptr<End> endWith(std::initializer_list<std::uint16_t> keys) {
    auto end = Ombra::make<End>();
    for (const std::uint16_t key : keys)
      end->entryIs(key, 1);
    return end;
  }
  static Ombra::Ptr<Middle> middleWith(const Ombra::Ptr<End>& end) {
    auto middle = Ombra::make<Middle>();
    middle->endIs(end);
    return middle;
  }
  Ombra::Ptr<Top> top = Ombra::make<Top>();
  Ombra::Ptr<PathSm> sm = Ombra::make<PathSm>(top);
};

TEST_F(PathTest, followsReplacedStepsAndRunsOnceForScalarsAndOncePerKeyForCollections) {
  const auto a = endWith({1, 2}), b = endWith({2, 3}), empty = endWith({});
  const auto m = middleWith(nullptr);
  top->middleIs(m);
  EXPECT_EQ(sm->take(), Names{}) << "an unset path does not run";
  m->endIs(a);
  EXPECT_EQ(sm->take(), (Names{"1", "2", "any", "value"}));
  a->valueIs(5);
  a->entryIs(9, 1);
  EXPECT_EQ(sm->take(), (Names{"9", "any", "quiet9", "value"}));
  a->entryDel(9);
  sm->take();
  m->endIs(b);
  EXPECT_EQ(sm->take(), (Names{"1", "2", "3", "any", "value"}));
  a->valueIs(6);
  a->entryIs(9, 1);
  EXPECT_EQ(sm->take(), Names{}) << "the old end is forgotten";
  top->middleIs(middleWith(b));
  EXPECT_EQ(sm->take(), Names{}) << "another way to the same end is no change";
  m->endIs(a);
  EXPECT_EQ(sm->take(), Names{}) << "a step beside the path";
  b->valueIs(1);
  EXPECT_EQ(sm->take(), Names{"value"});
  top->middleIs(middleWith(empty));
  EXPECT_EQ(sm->take(), (Names{"2", "3", "any", "value"}));
  top->middleIs(nullptr);
  EXPECT_EQ(sm->take(), (Names{"any", "value"}));
}

TEST_F(PathTest, silentPathsMissEverythingAndComeBackToThePresentEnd) {
  const auto a = endWith({1}), b = endWith({2});
  top->middleIs(middleWith(a));
  sm->take();
  sm->hasNotificationActiveIs(false);
  const auto m = middleWith(b);
  top->middleIs(m);
  sm->value_.rootIs(nullptr);
  sm->value_.rootIs(top);
  b->valueIs(4);
  EXPECT_EQ(sm->take(), Names{});
  sm->hasNotificationActiveIs(true);
  a->valueIs(1);
  EXPECT_EQ(sm->take(), Names{});
  b->valueIs(5);
  b->entryIs(7, 1);
  EXPECT_EQ(sm->take(), (Names{"7", "any", "quiet7", "value"}));
  sm->veskDoZombieReactors(true);
  sm->value_.rootIs(nullptr);
  sm->veskDoZombieReactors(false);
  EXPECT_EQ(sm->take(), Names{});
  // In the middle of the keys, and for a step that is not there.
  sm->silenceAtKey = true;
  m->endIs(nullptr);
  EXPECT_EQ(sm->take().size(), 2U) << "any, and one key of two";
  const auto unset = Ombra::make<PathSm>(nullptr);
  unset->key_.rootIs(top);
  m->endIs(a);
  EXPECT_EQ(unset->take(), Names{"1"});
}

TEST_F(PathTest, aPathOutOfTheMachineItselfDoesNotKeepIt) {
  const auto end = endWith({});
  sm->ownIs(end);
  end->valueIs(1);
  EXPECT_EQ(sm->take(), (Names{"own", "own"}));
  EXPECT_EQ(sm->useCount(), 1U);
  sm.reset();
  EXPECT_EQ(end->useCount(), 1U);
}

}  // namespace pathtest
