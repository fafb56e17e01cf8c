// How machines end, make room for each other, and keep nested machines in step with a collection.

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "runtime/Record.h"

namespace machinetest {

using Names = std::vector<std::string>;
Names told;
Names take() {
  return std::exchange(told, {});
}

class Row : public Vesk::Keyed<std::uint16_t> {
  VESK_LOCAL_RECORD(machinetest::Row)
  VESK_KEY(number)
  VESK_VALUE(std::uint32_t, value)
};
class Table : public Vesk::Entity {
  VESK_LOCAL_RECORD(machinetest::Table)
  VESK_INSTANCES(std::uint16_t, Row, row)
};

class OwnerSm;

/// Calls its owner on each change of its row.
class NestedSm final : public Vesk::Machine {
  VESK_LOCAL_RECORD(machinetest::NestedSm)
  struct Inputs {
    OwnerSm* parent;
    Ombra::Ptr<Row const> row;
    bool operator==(const Inputs&) const = default;
  };
  explicit NestedSm(Inputs inputs);
  const Inputs in;
  void handleDel();

 private:
  void handleValue();
  void handleCleanup() override;
  Vesk::Watch value_ = watch<&NestedSm::handleValue>(in.row, Row::valueAttr);
};

class OwnerSm final : public Vesk::Machine {
  VESK_LOCAL_RECORD(machinetest::OwnerSm)
  struct Inputs {
    Ombra::Ptr<Table const> table;
    std::string name;
    bool handlerFirst = false;
    bool operator==(const Inputs&) const = default;
  };
  explicit OwnerSm(Inputs inputs) : in(std::move(inputs)) {
    rows_.begin();
    told.push_back("made " + in.name);
  }
  const Inputs in;

  VESK_INSTANCES(std::uint16_t, NestedSm, nested)

  std::function<void()> onValue;
  std::function<void()> onNested;
  std::vector<int> scratch{1, 2, 3};

 private:
  void handleRow(std::uint16_t number) {
    told.push_back("row " + std::to_string(number) + (nestedHas(number) ? " has" : " lacks"));
  }
  void handleCleanup() override { told.push_back("cleanup " + in.name); }

  Vesk::Follow rows_ = in.handlerFirst
                           ? followAfter<&OwnerSm::handleRow>(in.table, Table::rowAttr, nestedAttr)
                           : follow<&OwnerSm::handleRow>(in.table, Table::rowAttr, nestedAttr);
};

NestedSm::NestedSm(Inputs inputs) : in(std::move(inputs)) {
  told.push_back("nested of " + std::to_string(in.row->value()));
  if (in.parent->onNested) std::exchange(in.parent->onNested, nullptr)();
}
void NestedSm::handleDel() {
  told.push_back("del of " + std::to_string(in.row->value()));
}
void NestedSm::handleValue() {
  in.parent->onValue();
}
void NestedSm::handleCleanup() {
  told.push_back("cleanup in " + in.parent->in.name + (in.parent->scratch.empty() ? "?" : ""));
}

class LastSm final : public Vesk::Machine {
  VESK_LOCAL_RECORD(machinetest::LastSm)
  struct Inputs {
    std::string name;
    bool operator==(const Inputs&) const = default;
  };
  explicit LastSm(Inputs inputs) : in(std::move(inputs)) { told.push_back("made " + in.name); }
  const Inputs in;
  static constexpr auto succession = Vesk::Succession::goesLast;

 private:
  void handleCleanup() override { told.push_back("cleanup " + in.name); }
};

class TopSm final : public Vesk::Machine {
  VESK_LOCAL_RECORD(machinetest::TopSm)
  VESK_INSTANCE(OwnerSm, owner)
  VESK_INSTANCE(LastSm, last)
};
/// Four levels with the nested machines: root, top, owner, nested.
class RootSm final : public Vesk::Machine {
  VESK_LOCAL_RECORD(machinetest::RootSm)
  VESK_INSTANCE(TopSm, top)
};

class MachineTest : public testing::Test {
 protected:
  void SetUp() override { take(); }
  Ombra::Ptr<Row> rowIs(std::uint16_t number, std::uint32_t value) {
    const auto row = Ombra::make<Row>(number);
    row->valueIs(value);
    table->rowAdopt(number, row);
    return row;
  }
  Ombra::Ptr<Table> table = Ombra::make<Table>();
  Ombra::Ptr<TopSm> top = Ombra::make<TopSm>();
};

TEST_F(MachineTest, aNestedMachineStandsForEachRowAndTheOldOneGoesWithItsRow) {
  rowIs(1, 10);
  const auto sm = top->ownerIs({.table = table, .name = "a"});
  EXPECT_EQ(take(), (Names{"nested of 10", "made a"}));
  rowIs(2, 20);
  EXPECT_EQ(take(), (Names{"nested of 20", "row 2 has"}));
  rowIs(2, 21);
  EXPECT_EQ(take(), (Names{"del of 20", "cleanup in a", "nested of 21", "row 2 has"}));
  table->rowDel(1);
  EXPECT_EQ(take(), (Names{"del of 10", "cleanup in a", "row 1 lacks"}));
  top->ownerIs({.table = table, .name = "b", .handlerFirst = true});
  take();
  rowIs(2, 22);
  EXPECT_EQ(take(), (Names{"del of 21", "cleanup in b", "row 2 lacks", "nested of 22"}));
  // Silent: neither the machine nor its nested ones hear.
  top->hasNotificationActiveIs(false);
  rowIs(3, 30);
  EXPECT_EQ(take(), Names{});
}

TEST_F(MachineTest, aRowThatIsReplacedWhileItsMachineIsMadeHasOneMachineInTheEnd) {
  const auto sm = top->ownerIs({.table = table, .name = "a"});
  take();
  sm->onNested = [&] { rowIs(1, 11); };
  rowIs(1, 10);
  ASSERT_TRUE(sm->nestedHas(1));
  EXPECT_EQ(sm->nested(1)->in.row->value(), 11U);
  EXPECT_EQ(sm->nestedCount(), 1U);
  sm->onNested = [&] { table->rowDel(2); };
  rowIs(2, 20);
  EXPECT_FALSE(sm->nestedHas(2)) << "its row went while it was made";
}

TEST_F(MachineTest, whatAMachineOwnsEndsWhileItIsWhole) {
  rowIs(1, 10);
  top->ownerIs({.table = table, .name = "a"});
  take();
  top.reset();
  EXPECT_EQ(take(), (Names{"cleanup a", "cleanup in a"}));
}

TEST_F(MachineTest, successorsComeAndGoAsTheMachineSays) {
  top->ownerIs({.table = table, .name = "a"});
  top->ownerIs({.table = table, .name = "b"});
  EXPECT_EQ(take(), (Names{"made a", "cleanup a", "made b"}));
  top->lastIs({.name = "c"});
  top->lastIs({.name = "d"});
  EXPECT_EQ(take(), (Names{"made c", "made d", "cleanup c"}));
}

// The nested machine calls its owner, whose handler takes away itself, what holds it, or all three.
TEST_F(MachineTest, aHandlerOutlivesWhateverItTakesAway) {
  Ombra::Ptr<RootSm> root;
  const std::function<void()> takeAway[] = {
      [&] { root->top()->owner()->nestedDel(1); },
      [&] { root->top()->ownerDel(); },
      [&] { root->topDel(); },
      [&] { root.reset(); },
      [&] {
        const auto inner = root->top();
        root.reset();
        inner->ownerDel();
      },
  };
  for (const auto& act : takeAway) {
    root = Ombra::make<RootSm>();
    const auto row = rowIs(1, 10);
    OwnerSm* const owner = root->topIs()->ownerIs({.table = table, .name = "a"}).get();
    take();
    int sum = 0;
    owner->onValue = [&] {
      // Its own copy, since the machine may go; what is read afterwards is the machine's memory.
      const std::function<void()> now = act;
      OwnerSm* const self = owner;
      now();
      told.emplace_back("after");
      for (const int number : self->scratch)
        sum += number;
    };
    row->valueIs(11);
    EXPECT_EQ(sum, 6);
    ASSERT_FALSE(told.empty());
    EXPECT_EQ(told.front(), "after") << "the ends come when the handler has returned";
    take();
  }
}

/// Asks its holder for itself again while it is made.
class EagerSm final : public Vesk::Machine {
  VESK_LOCAL_RECORD(machinetest::EagerSm)
  struct Inputs {
    int number;
    std::function<void(int)> inConstructor;
    bool operator==(const Inputs& other) const { return number == other.number; }
  };
  explicit EagerSm(Inputs inputs) : in(std::move(inputs)) {
    told.push_back("made " + std::to_string(in.number));
    in.inConstructor(in.number);
  }
  ~EagerSm() override { told.push_back("gone " + std::to_string(in.number)); }
  const Inputs in;
};
class Holder : public Vesk::Entity {
  VESK_LOCAL_RECORD(machinetest::Holder)
  VESK_INSTANCE(EagerSm, slot)
  VESK_INSTANCES(std::uint16_t, EagerSm, slots)
};

TEST_F(MachineTest, askingForAMachineFromItsOwnConstructorMakesNoSecondOne) {
  const auto holder = Ombra::make<Holder>();
  const auto none = [](int) {};
  const auto same = [&](int n) { EXPECT_EQ(holder->slotIs({n, none}), nullptr); };
  holder->slotIs({1, same});
  EXPECT_EQ(take(), Names{"made 1"});
  const auto other = [&](int) { holder->slotIs({3, none}); };
  const auto made = holder->slotIs({2, other});
  EXPECT_EQ(made->in.number, 3);
  EXPECT_EQ(take(), (Names{"gone 1", "made 2", "gone 2", "made 3"}));
  const auto dropped = [&](int) { holder->slotDel(); };
  EXPECT_EQ(holder->slotIs({4, dropped}), nullptr);
  EXPECT_EQ(holder->slot(), nullptr);
  take();
  // By key, each for itself.
  const auto neighbour = [&](int) {
    holder->slotsIs(2, {2, none});
    EXPECT_EQ(holder->slotsIs(1, {1, none}), nullptr);
  };
  holder->slotsIs(1, {1, neighbour});
  EXPECT_EQ(take(), (Names{"made 1", "made 2"}));
  EXPECT_EQ(holder->slotsCount(), 2U);
}

/// Keeps its arguments where no attribute can compare them.
class HiddenSm final : public Vesk::Machine {
  VESK_LOCAL_RECORD(machinetest::HiddenSm)
  struct Inputs {
    int number = 0;
    bool operator==(const Inputs&) const = default;
  };
  explicit HiddenSm(Inputs inputs) : in(inputs) {}

 private:
  const Inputs in;
};
static_assert(Vesk::KeepsInputs<EagerSm> && !Vesk::KeepsInputs<HiddenSm>);

/// Lets a reference to itself out while it goes.
class ClingingSm final : public Vesk::Machine {
  VESK_LOCAL_RECORD(machinetest::ClingingSm)
 private:
  void handleCleanup() override {
    static Ombra::Ptr<Vesk::Machine> kept;
    kept = this;
  }
};

TEST(MachineDeathTest, aReferenceThatComesBackAtTheEndIsABrokenInvariant) {
  EXPECT_DEATH(Ombra::make<ClingingSm>().reset(), "assertion failed: useCount_ == dying");
}

}  // namespace machinetest
