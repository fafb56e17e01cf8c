// Shared handles: one per value, told at the first reference and at the last release.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "runtime/Dedup.h"
#include "runtime/Record.h"

namespace deduptest {

using Table = Sylva::DedupTable<std::uint32_t>;
using Handle = Table::Handle;

class Notifiee : public Sylva::DedupHashTableLifeTimeNotifiee<std::uint32_t> {
  VESK_LOCAL_RECORD(deduptest::Notifiee)
  void handleInsert(const Sylva::DedupHandle<std::uint32_t>& handle) override { note("+", handle); }
  void handleRemove(const Sylva::DedupHandle<std::uint32_t>& handle) override {
    note("-", handle);
    if (takeDetached) const Handle again(&handle);
    if (renew) renewed = table->dedup(handle.value());
  }
  void note(const char* what, const Sylva::DedupHandle<std::uint32_t>& handle) {
    log.push_back(what + std::to_string(handle.value()) +
                  (table->lookup(handle.value()) ? " in" : " out"));
  }
  Table* table = nullptr;
  std::vector<std::string> log;
  bool takeDetached = false, renew = false;
  Handle renewed;
};
class NumberTable : public Table {
  VESK_LOCAL_RECORD(deduptest::NumberTable)
  using Table::Table;
};

TEST(DedupTest, theNotifieeHearsOfTheFirstReferenceAndOfTheLast) {
  const auto notifiee = Ombra::make<Notifiee>();
  auto table = Ombra::make<NumberTable>(notifiee);
  notifiee->table = table.get();
  const auto take = [&] { return std::exchange(notifiee->log, {}); };
  using Log = std::vector<std::string>;
  Handle a = table->dedup(1);
  EXPECT_EQ(take(), Log{"+1 in"});
  Handle b = table->dedup(1), c = table->lookup(1);
  EXPECT_EQ(a.get(), b.get());
  EXPECT_EQ(table->lookup(2), nullptr);
  a.reset();
  b = table->dedup(1);
  c.reset();
  EXPECT_EQ(take(), Log{});
  b = table->dedup(2);
  EXPECT_EQ(take(), (Log{"+2 in", "-1 out"}));
  // A new reference while the old handle goes is another handle.
  notifiee->renew = true;
  b.reset();
  notifiee->renew = false;
  EXPECT_EQ(take(), (Log{"-2 out", "+2 in"}));
  EXPECT_EQ(notifiee->renewed->value(), 2U);
  // The table lives as long as its last handle.
  table.reset();
  notifiee->renewed.reset();
  EXPECT_EQ(take(), Log{"-2 out"});
}

TEST(DedupTest, aDetachedHandleMustNotBeTakenAgain) {
  const auto notifiee = Ombra::make<Notifiee>();
  const auto table = Ombra::make<NumberTable>(notifiee);
  notifiee->table = table.get();
  notifiee->takeDetached = true;
  EXPECT_DEATH((void)table->dedup(1), "^assertion failed: !detached_\n");
}

}  // namespace deduptest
