// Attributes that own instances, and what collections tell of themselves.

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "runtime/Record.h"
#include "tests/ErrorOf.h"

namespace attributestest {

using Names = std::vector<std::string>;

class Sm : public Vesk::Machine {
  VESK_LOCAL_RECORD(attributestest::Sm)
  struct Inputs {
    std::uint32_t number;
    const std::function<void(Sm&)>* inConstructor = nullptr;
    std::function<void(Sm&)>* inCleanup = nullptr;
    bool operator==(const Inputs& other) const { return number == other.number; }
  };
  explicit Sm(Inputs inputs) : in(std::move(inputs)) {
    if (in.inConstructor != nullptr) (*in.inConstructor)(*this);
  }
  const Inputs in;
  int state = 0;

 private:
  void handleCleanup() override {
    if (in.inCleanup != nullptr) (*in.inCleanup)(*this);
  }
};

class Holder : public Vesk::Entity {
  VESK_LOCAL_RECORD(attributestest::Holder)
  VESK_INSTANCE(Sm, slot)
  VESK_INSTANCES(std::uint16_t, Sm, slots)
  VESK_MAP(std::uint16_t, std::uint32_t, entry)
  VESK_SET(std::uint16_t, member)
};

class AttributesTest : public testing::Test, protected Vesk::Listener {
 protected:
  AttributesTest() : Listener(&AttributesTest::heard) { attach(holder.get()); }
  static void heard(Listener& self, Ombra::FieldId field, const void* key) {
    auto& test = static_cast<AttributesTest&>(self);
    const auto& info = *test.holder->recordType().fields()[field];
    test.log.push_back(std::string(info.name) +
                       (key == nullptr ? "" : info.keyType->text(info.keyBytes(key))));
    if (test.onEvent) test.onEvent(test.log.back());
  }
  Names take() { return std::exchange(log, {}); }
  Ombra::Ptr<Holder> holder = Ombra::make<Holder>();
  std::function<void(const std::string&)> onEvent;
  Names log;
};

TEST_F(AttributesTest, equalArgumentsKeepTheInstanceAndItsStateAndWakeIt) {
  const auto first = holder->slotIs({.number = 1});
  first->state = 42;
  first->hasNotificationActiveIs(false);
  EXPECT_EQ(holder->slotIs({.number = 1}), first);
  EXPECT_TRUE(first->hasNotificationActive());
  EXPECT_EQ(take(), Names{"slot"});
  const auto second = holder->slotIs({.number = 2});
  EXPECT_NE(second, first);
  EXPECT_FALSE(first->hasNotificationActive());
  EXPECT_EQ(take(), (Names{"slot", "slot"})) << "the first goes before the second comes";
}

TEST_F(AttributesTest, aSlotIsFilledAfterItsConstructorAndEmptiedBeforeItsInstanceIsSilent) {
  std::function<void(Sm&)> check = [&](Sm&) {
    log.push_back(holder->slot() ? "filled" : "empty");
    log.push_back(holder->slotsHas(1) ? "has" : "misses");
  };
  std::function<void(Sm&)> cleanup = [&](Sm& sm) {
    log.push_back(sm.hasNotificationActive() ? "loud" : "silent"), check(sm);
  };
  const Sm* present = nullptr;
  onEvent = [&](const std::string&) {
    log.push_back(holder->slot() ? "filled" : "empty");
    if (present != nullptr) log.push_back(present->hasNotificationActive() ? "loud" : "silent");
  };
  present = holder->slotIs({.number = 1, .inConstructor = &check, .inCleanup = &cleanup}).get();
  EXPECT_EQ(take(), (Names{"empty", "misses", "slot", "filled"}));
  holder->slotDel();
  EXPECT_EQ(take(), (Names{"slot", "empty", "silent", "silent", "empty", "misses"}));
  holder->slotDel();
  EXPECT_EQ(take(), Names{}) << "nothing to delete";

  present = nullptr;
  present = holder->slotsIs(1, {.number = 1, .inConstructor = &check, .inCleanup = &cleanup}).get();
  EXPECT_EQ(take(), (Names{"empty", "misses", "slots1", "empty"}));
  holder->slotsDel(1);
  EXPECT_EQ(take(), (Names{"slots1", "empty", "silent", "silent", "empty", "misses"}));
  // A replaced entry may take the holder down as it goes.
  std::function<void(Sm&)> drop = [&](Sm&) { holder.reset(); };
  onEvent = nullptr;
  holder->slotsIs(2, {.number = 2, .inCleanup = &drop});
  Holder* const raw = holder.get();
  raw->slotsAdopt(2, Ombra::make<Sm>(Sm::Inputs{.number = 3}));
  EXPECT_EQ(holder, nullptr);
}

TEST_F(AttributesTest, aPresentEntryWithOtherArgumentsThrows) {
  const auto sm = holder->slotsIs(5, {.number = 1});
  EXPECT_EQ(holder->slotsIs(5, {.number = 1}), sm);
  EXPECT_EQ(take(), Names{"slots5"});
  EXPECT_EQ(errorOf<std::logic_error>([&] { holder->slotsIs(5, {.number = 2}); }),
            "entry is present with other arguments: 5");
  EXPECT_EQ(holder->slots(5), sm);
}

TEST_F(AttributesTest, deletingManyTellsEachKeyAndBearsWhatHandlersDo) {
  const auto fill = [&] {
    for (std::uint16_t k = 0; k < 50; ++k)
      holder->entryIs(k, k), holder->memberIs(k), holder->slotsIs(k, {.number = k});
    take();
  };
  fill();
  holder->entryDelAll();
  holder->slotsDelAll();
  EXPECT_EQ(take().size(), 100U);
  // The handler deletes ahead of the walk, and nobody but the walk holds the holder before the last
  // key.
  onEvent = [&](const std::string&) {
    if (log.size() == 49) {
      detach();
      holder.reset();
    } else {
      for (const std::uint16_t next : holder->memberIterator())
        return holder->memberDel(next);
    }
  };
  Holder* const raw = holder.get();
  raw->memberDelAll();
  EXPECT_EQ(log.size(), 49U);
}

TEST_F(AttributesTest, deletesAllBeforeAKeyOfTheIterationOrder) {
  for (std::uint16_t k = 0; k < 100; ++k)
    holder->memberIs(k);
  std::vector<std::uint16_t> order;
  for (const std::uint16_t k : holder->memberIterator())
    order.push_back(k);
  take();
  holder->memberDelBefore(order[30]);
  EXPECT_EQ(take().size(), 30U);
  holder->memberDel(order[60]);
  holder->memberDelBefore(order[60]);  // a key that is gone still marks its place
  std::vector<std::uint16_t> left;
  for (const std::uint16_t k : holder->memberIterator())
    left.push_back(k);
  EXPECT_EQ(left, std::vector<std::uint16_t>(order.begin() + 61, order.end()));
}

}  // namespace attributestest
