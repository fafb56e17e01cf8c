// A shared table in a process that does not write it: what it sees, what it is told, when it wakes.
#include <chrono>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "runtime/Corruption.h"
#include "runtime/Record.h"
#include "runtime/SharedEntity.h"
#include "runtime/SharedMem.h"
#include "runtime/values/Vlan.h"
#include "tests/ErrorOf.h"
#include "tests/runtime/Dump.h"

namespace followtest {

namespace fs = std::filesystem;
using Bridging::VlanId;
using std::chrono::milliseconds;
using VeskSharedMem::SharedEntity;
using VeskSharedMem::TableError;
using VeskSharedMem::TableWaiter;

class Group : public Vesk::Keyed<std::uint16_t> {
  VESK_LOCAL_RECORD(followtest::Group)
  VESK_KEY(group)
  VESK_VALUE(std::uint32_t, value)
  VESK_SHARED_SET(std::uint16_t, route, 64)
};
class Vlan : public Vesk::Keyed<VlanId> {
  VESK_LOCAL_RECORD(followtest::Vlan)
  VESK_KEY(vlan)
  VESK_VALUE(bool, ready)
  VESK_INSTANCES(std::uint16_t, Group, group)
};
class Table : public Vesk::Entity {
  VESK_LOCAL_RECORD(followtest::Table)
  VESK_VALUE(std::uint32_t, version)
  VESK_SHARED_MAP(std::uint16_t, VlanId, entry, 64)
  VESK_INSTANCES(VlanId, Vlan, vlan)
};

class FollowTest : public testing::Test {
 protected:
  FollowTest() { mkdtemp(directory.data()); }
  ~FollowTest() override {
    VeskSharedMem::corruptionSinkIs({});
    fs::remove_all(directory);
  }
  std::unique_ptr<SharedEntity> table() {
    return std::make_unique<SharedEntity>(directory, "a/table", "followtest::Table",
                                          std::vector<VeskSharedMem::CollectionSize>{});
  }
  std::unique_ptr<SharedEntity> writing() {
    auto made = table();
    made->claim();
    return made;
  }
  std::unique_ptr<SharedEntity> following() {
    auto made = table();
    made->follow();
    return made;
  }
  static Table& of(SharedEntity& table) { return static_cast<Table&>(*table.entity()); }
  void catchUp(
      SharedEntity& table, const std::function<bool()>& mustStop = [] { return false; }) {
    table.follower()->findFiles([](const TableError& error) { ADD_FAILURE() << error.what(); });
    while (table.follower()->hasChanges())
      table.follower()->takeUp(mustStop);
  }
  std::string directory = testing::TempDir() + "follow-XXXXXX";
};

/// One random change at any depth. Keys are few, so that rows come back and move.
void change(Table& table, std::minstd_rand& random) {
  const auto key = static_cast<std::uint16_t>(1 + random() % 40);
  const VlanId vlanId(1 + random() % 4);
  const auto groupId = static_cast<std::uint16_t>(random() % 5);
  const auto number = static_cast<std::uint32_t>(random());
  const auto what = random() % 10;
  if (what == 0) return table.versionIs(number);
  if (what == 1) return table.entryDel(key);
  if (what == 2) return table.vlanDel(vlanId);
  if (what > 7) return table.entryIs(key, vlanId);
  const auto vlan = table.vlanIs(vlanId);
  if (what == 3) return vlan->groupDel(groupId);
  if (what == 4) return vlan->readyIs(number % 2 == 0);
  if (what == 5) {
    // An entity in place of another of the same key, with other content.
    const auto group = Ombra::make<Group>(groupId);
    group->valueIs(number);
    group->routeIs(key);
    return vlan->groupAdopt(groupId, group);
  }
  const auto group = vlan->groupIs(groupId);
  if (what == 6) return group->valueIs(number);
  return number % 2 == 0 ? group->routeIs(key) : group->routeDel(key);
}

TEST_F(FollowTest, AtEveryRestTheFollowerHoldsWhatTheWriterWrote) {
  for (unsigned seed = 1; seed <= 60; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    fs::remove_all(directory + "/a");
    std::minstd_rand random(seed);
    auto writer = writing();
    auto follower = following();
    for (int rest = 0; rest < 25; ++rest) {
      // The journal of these tables has 64 entries: some bursts are longer than it reaches back.
      for (auto burst = random() % (rest % 5 == 0 ? 400 : 30); burst-- > 0;) {
        change(of(*writer), random);
        // Taken up in portions, while the writer goes on.
        if (random() % 4 == 0) follower->follower()->takeUp([&] { return random() % 2 == 0; });
      }
      if (random() % 6 == 0) {
        // The next writer finds what the one before left.
        writer.reset();
        writer = writing();
      }
      catchUp(*follower, [&] { return random() % 3 == 0; });
      ASSERT_EQ(dump(of(*follower)), dump(of(*writer)));
      if (rest % 8 == 7) {
        // The two exchange their roles; the entities stay the same objects.
        const Vesk::Entity* const entity = follower->entity().get();
        writer->follow();
        follower->claim();
        ASSERT_EQ(follower->entity().get(), entity);
        std::swap(writer, follower);
      }
    }
  }
}

TEST_F(FollowTest, ASecondWriterIsRefusedBeforeThereIsARowAndFollowsOn) {
  const auto other = following();
  auto writer = writing();
  const std::string error = errorOf<TableError>([&] { other->claim(); });
  EXPECT_NE(error.find("process " + std::to_string(getpid())), std::string::npos) << error;
  of(*writer).entryIs(2, VlanId(2));
  catchUp(*other);
  EXPECT_EQ(of(*other).entryCount(), 1U);
  writer.reset();
  other->claim();
  of(*other).entryIs(3, VlanId(3));
  EXPECT_EQ(of(*following()).entryCount(), 2U);
}

TEST_F(FollowTest, RowsWaitForTheFileOfTheirParent) {
  const auto follower = following();
  auto writer = writing();
  of(*writer).entryIs(1, VlanId(1));
  of(*writer).vlanIs(VlanId(2))->groupIs(3)->routeIs(4);
  catchUp(*follower);
  EXPECT_EQ(dump(of(*follower)), dump(of(*writer)));
  writer.reset();
  // Whichever file comes first.
  const std::string vlans = directory + "/a/table.vlan.table";
  fs::rename(vlans, vlans + ".away");
  catchUp(*follower);
  EXPECT_EQ(of(*follower).vlanCount(), 0U);
  const auto late = following();
  fs::rename(vlans + ".away", vlans);
  for (SharedEntity* const each : {follower.get(), late.get()}) {
    catchUp(*each);
    EXPECT_TRUE(of(*each).vlanIs(VlanId(2))->groupIs(3)->routeHas(4));
  }
}

TEST_F(FollowTest, RowsThatAreNoValuesAreLeftOutAndReported) {
  std::vector<std::string> reports;
  VeskSharedMem::corruptionSinkIs(
      [&](const std::string&, const std::string& text) { reports.push_back(text); });
  auto writer = writing();
  of(*writer).vlanIs(VlanId(2));
  const auto follower = following();
  catchUp(*follower);
  // Rows that are whole, and yet no values: of another writer's making.
  writer.reset();
  for (const auto& file : VeskSharedMem::rowFilesOf(directory, "a/table", Table::veskType())) {
    const auto raw = VeskSharedMem::TableWriter::open(file.file, file.shape);
    if (file.name() == ".entry") raw->put("\x09\x00", "\xff\xff");
    if (file.name() == ".vlan") raw->put("\xff\xff", "\x01");
    if (file.name() == ".vlan") break;
  }
  catchUp(*follower);
  EXPECT_EQ(of(*follower).vlanCount(), 1U);
  EXPECT_EQ(reports.size(), 1U) << "an entity whose key does not read";
  EXPECT_EQ(of(*follower).entry(9), VlanId());
  EXPECT_EQ(reports.size(), 2U);
}

TEST_F(FollowTest, AWaitEndsByAChangeInAnyOfManyTablesByAFileOrByTime) {
  // More tables than the kernel waits on at once.
  constexpr int tables = 300;
  const auto pathOf = [&](int i) { return directory + "/" + std::to_string(i) + ".table"; };
  const VeskSharedMem::TableShape shape{2, 2, 16, 5};
  std::uint16_t value = 0;
  std::vector<std::unique_ptr<VeskSharedMem::TableWriter>> writers;
  std::vector<std::unique_ptr<VeskSharedMem::TableReader>> readers;
  TableWaiter::Watched watched;
  for (int i = 0; i < tables; ++i) {
    writers.push_back(VeskSharedMem::TableWriter::open(pathOf(i), shape));
    // A first row makes the file larger, which is news of the file.
    writers.back()->put("ab", &value);
    readers.push_back(VeskSharedMem::TableReader::open(pathOf(i), shape));
    watched.tables.push_back({readers.back().get(), readers.back()->cursor()});
    watched.paths.push_back(pathOf(i));
  }
  watched.paths.push_back(directory + "/not/yet/there.table");
  TableWaiter waiter;
  EXPECT_EQ(waiter.wait(watched, milliseconds(5000)), TableWaiter::Woken::byFile)
      << "nobody has looked at the directories yet";
  EXPECT_EQ(waiter.wait(watched, milliseconds(20)), TableWaiter::Woken::byTimeout);
  const auto wokenBy = [&](const std::function<void()>& act) {
    std::thread later([&] {
      std::this_thread::sleep_for(milliseconds(20));
      act();
    });
    const auto woken = waiter.wait(watched, milliseconds(20000));
    later.join();
    return woken;
  };
  for (const int i : {0, 126, 127, 128, 299, 0}) {
    const auto write = [&, i] {
      writers[i]->put("ab", &++value);
      writers[i]->wakeReaders();
    };
    ASSERT_EQ(wokenBy(write), TableWaiter::Woken::byTable) << i;
    ASSERT_EQ(waiter.wait(watched, milliseconds(20000)), TableWaiter::Woken::byTable)
        << "it is not taken up yet";
    watched.tables[static_cast<std::size_t>(i)].cursor = readers[i]->cursor();
    ASSERT_EQ(waiter.wait(watched, milliseconds(5)), TableWaiter::Woken::byTimeout) << i;
  }
  for (const char* const way : {"/not", "/not/yet"}) {
    ASSERT_EQ(wokenBy([&] { fs::create_directory(directory + way); }), TableWaiter::Woken::byFile);
    ASSERT_EQ(waiter.wait(watched, milliseconds(5000)), TableWaiter::Woken::byFile);
  }
  const auto make = [&] {
    VeskSharedMem::TableWriter::open(directory + "/not/yet/there.table", shape);
  };
  ASSERT_EQ(wokenBy(make), TableWaiter::Woken::byFile);
}

}  // namespace followtest
