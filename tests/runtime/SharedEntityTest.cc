// Shared tables: rows in files by depth, what a reload finds, damaged rows and files that do
// not fit.

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "runtime/Corruption.h"
#include "runtime/Record.h"
#include "runtime/RowFile.h"
#include "runtime/SharedMem.h"
#include "runtime/shm/TableReader.h"
#include "runtime/shm/TableWriter.h"
#include "runtime/values/Vlan.h"
#include "tests/ErrorOf.h"
#include "tests/runtime/Dump.h"

namespace sharedtest {

using Bridging::VlanId;
using VeskBriskel::MountInfo;
using VeskBriskel::VeskBriskelType;
using VeskSharedMem::EntityManager;

class Group : public Vesk::Keyed<std::uint16_t> {
  VESK_LOCAL_RECORD(sharedtest::Group)
  VESK_KEY(group)
  VESK_VALUE(std::uint32_t, value)
  VESK_SHARED_SET(std::uint16_t, route, 64)
};
class Vlan : public Vesk::Keyed<VlanId> {
  VESK_LOCAL_RECORD(sharedtest::Vlan)
  VESK_KEY(vlan)
  VESK_VALUE(bool, ready)
  VESK_INSTANCES(std::uint16_t, Group, group)
};
class Table : public Vesk::Entity {
  VESK_LOCAL_RECORD(sharedtest::Table)
  VESK_VALUE(std::uint32_t, version)
  VESK_SHARED_MAP(std::uint16_t, VlanId, entry, 8)
  VESK_INSTANCES(VlanId, Vlan, vlan)
  VESK_INSTANCES(std::uint16_t, Group, first)
  VESK_INSTANCES(std::uint16_t, Group, second)
};

class SharedEntityTest : public testing::Test {
 protected:
  SharedEntityTest() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "SharedEntityTest.XXXXXX").string();
    directory = mkdtemp(pattern.data());
    EntityManager::directoryIs(directory);
    VeskSharedMem::corruptionSinkIs([this](const std::string& path, const std::string& text) {
      reports.push_back(path + ": " + text);
    });
    remount();
  }
  ~SharedEntityTest() override {
    table.reset();
    EntityManager::forgetProcess();
    EntityManager::directoryIs(".");
    VeskSharedMem::corruptionSinkIs({});
    std::filesystem::remove_all(directory);
  }
  /// As the next process would find it.
  void remount() {
    EntityManager::forgetProcess();
    table = boost::dynamic_pointer_cast<Table>(
        manager()->doMount("a/table", "sharedtest::Table", MountInfo(VeskBriskelType::writer)));
  }
  static EntityManager* manager() { return EntityManager::getEntityManager(); }
  static std::string bytes(std::uint16_t key) { return Vesk::bytesOf(key); }
  void mark(std::uint16_t key, bool corrupt) {
    manager()->corruptIs(*table, *Table::veskType().field("entry"), bytes(key), corrupt);
  }
  std::vector<std::string> takeReports() { return std::exchange(reports, {}); }
  /// Rows per file.
  std::map<std::string, std::uint32_t> rows() const {
    std::map<std::string, std::uint32_t> sizes;
    for (const auto& file : std::filesystem::recursive_directory_iterator(directory))
      if (file.path().extension() == ".table")
        sizes[file.path().filename().string()] =
            VeskSharedMem::TableReader::openAny(file.path())->size();
    return sizes;
  }
  static std::string mountError(const std::string& path, std::string_view type,
                                const MountInfo& info = MountInfo(VeskBriskelType::writer)) {
    return errorOf<VeskSharedMem::TableError>([&] { manager()->doMount(path, type, info); });
  }
  std::string directory;
  Ombra::Ptr<Table> table;
  std::vector<std::string> reports;
};

TEST_F(SharedEntityTest, rowsLieInFilesByDepthAndAReloadFindsThemEqual) {
  EXPECT_EQ(rows().size(), 9U) << "a table that is mounted to be written has its files";
  table->versionIs(7);
  for (std::uint16_t k = 1; k <= 5; ++k)
    table->entryIs(k, VlanId(100 + k));
  table->entryDel(5);
  for (std::uint32_t v : {10U, 20U}) {
    const auto vlan = table->vlanIs(VlanId(v));
    for (std::uint16_t g = 1; g <= 3; ++g)
      vlan->groupIs(g)->routeIs(g);
  }
  // One type of entity in two collections: each keeps to its own files.
  table->firstIs(1)->routeIs(11);
  table->secondIs(1)->routeIs(22);
  const std::map<std::string, std::uint32_t> expected{{"table.values.table", 1},
                                                      {"table.entry.table", 4},
                                                      {"table.vlan.table", 2},
                                                      {"table.vlan.group.table", 6},
                                                      {"table.vlan.group.route.table", 6},
                                                      {"table.first.table", 1},
                                                      {"table.first.route.table", 1},
                                                      {"table.second.table", 1},
                                                      {"table.second.route.table", 1}};
  EXPECT_EQ(rows(), expected);
  const std::string before = Vesk::dump(*table);
  remount();
  EXPECT_EQ(Vesk::dump(*table), before);
  EXPECT_EQ(rows(), expected);

  table->vlanDel(VlanId(10));
  EXPECT_EQ(rows()["table.vlan.group.table"], 3U);
  EXPECT_EQ(rows()["table.vlan.group.route.table"], 3U);
  // A writer that died in between leaves rows without their parent; they go at the next mount.
  const std::string vlanFile = directory + "/a/table.vlan.table";
  table.reset();
  EntityManager::forgetProcess();
  EXPECT_TRUE(std::filesystem::remove(vlanFile));
  remount();
  EXPECT_EQ(table->vlanCount(), 0U);
  EXPECT_EQ(rows()["table.vlan.group.table"], 0U);
  EXPECT_EQ(rows()["table.vlan.group.route.table"], 0U);
  EXPECT_EQ(table->entry(2), VlanId(102));
}

TEST_F(SharedEntityTest, damagedRowsAreReportedReadAsDefaultAndMendedByWriteOrDelete) {
  for (std::uint16_t k = 1; k <= 4; ++k)
    table->entryIs(k, VlanId(100 + k));
  for (std::uint16_t k = 1; k <= 4; ++k)
    mark(k, true);
  remount();
  const std::string report = "a/table: sharedtest::Table: row 1 is corrupt";
  EXPECT_EQ(table->entry(1), VlanId());
  EXPECT_EQ(takeReports(), std::vector<std::string>{report});
  for (const auto& row : table->entryIterator())
    ADD_FAILURE() << row.key;
  EXPECT_EQ(takeReports().size(), 1U) << "an iteration ends at the first";
  table->entryIs(1, VlanId(101));  // what it held before
  table->entryIs(2, VlanId(202));
  table->entryDel(3);
  mark(4, false);
  remount();
  EXPECT_EQ(table->entry(1), VlanId(101));
  EXPECT_EQ(table->entry(2), VlanId(202));
  EXPECT_FALSE(table->entryHas(3));
  EXPECT_EQ(table->entry(4), VlanId(104));
  EXPECT_TRUE(takeReports().empty());

  // Bytes that are no value of their type: damage found on opening.
  table.reset();
  EntityManager::forgetProcess();
  for (const auto& file : VeskSharedMem::rowFilesOf(directory, "a/table", Table::veskType()))
    if (file.name() == ".entry")
      VeskSharedMem::TableWriter::open(file.file, file.shape)->put("\x09\x00", "\xff\xff");
  remount();
  EXPECT_EQ(table->entry(9), VlanId());
  EXPECT_EQ(takeReports().size(), 1U);
}

/// Whatever changes a row stands in the journal of its file and rouses who sleeps on it.
TEST_F(SharedEntityTest, everyKindOfChangeIsAnnouncedAndRousesReaders) {
  table->versionIs(1);
  table->entryIs(1, VlanId(1));
  table->vlanIs(VlanId(5))->groupIs(1)->routeIs(7);
  struct Case {
    const char* file;
    std::function<void()> change;
  };
  const Case cases[] = {
      {".values", [&] { table->versionIs(2); }},
      {".entry", [&] { table->entryIs(2, VlanId(1)); }},
      {".entry", [&] { table->entryIs(2, VlanId(3)); }},
      {".entry", [&] { table->entryDel(2); }},
      {".entry", [&] { mark(1, true); }},
      {".entry", [&] { mark(1, false); }},
      {".vlan", [&] { table->vlan(VlanId(5))->readyIs(true); }},
      {".vlan.group", [&] { table->vlan(VlanId(5))->groupAdopt(1, Ombra::make<Group>(1)); }},
      {".vlan.group.route", [&] { table->vlan(VlanId(5))->group(1)->routeIs(8); }},
      {".vlan.group.route", [&] { table->vlanDel(VlanId(5)); }},
      {".entry", [&] { table->entryDelAll(); }},
      {".first", [&] { table->firstIs(1); }},
      {".first", [&] { manager()->cleanup("a/table"); }},
  };
  for (std::size_t i = 0; const Case& one : cases) {
    SCOPED_TRACE(testing::Message() << "case " << i++ << " " << one.file);
    const auto reader =
        VeskSharedMem::TableReader::openAny(fmt::format("{}/a/table{}.table", directory, one.file));
    const auto cursor = reader->cursor();
    const auto bell = reader->bellBeforeSleep();
    ASSERT_TRUE(reader->isCaughtUp(cursor));
    one.change();
    EXPECT_FALSE(reader->isCaughtUp(cursor));
    manager()->wakeReaders();
    EXPECT_NE(*bell.word, bell.value);
  }
}

TEST_F(SharedEntityTest, oneEntityPerPathOverUnmountAndCleanupOnlyWhereMounted) {
  table->entryIs(1, VlanId(1));
  table->vlanIs(VlanId(5))->groupIs(1);
  manager()->cleanup("nowhere");
  manager()->doUnmount("a/table");
  EXPECT_EQ(manager()->getEntity("a/table"), nullptr);
  manager()->cleanup("a/table");
  EXPECT_EQ(table->entryCount(), 1U);
  const auto group = manager()->getMountGroup();
  group->doMount("a/table", "sharedtest::Table", MountInfo(VeskBriskelType::writer));
  group->doMount("b", "sharedtest::Table", VeskSkarel::MountInfo{});
  EXPECT_EQ(manager()->getEntity("a/table"), nullptr) << "put off until the group is closed";
  group->doClose();
  EXPECT_EQ(manager()->getEntity("a/table"), table);
  EXPECT_EQ(manager()->open("a/table", "sharedtest::Table"), table);
  EXPECT_TRUE(manager()->getEntity("b"));
  manager()->cleanup("a/table");
  EXPECT_EQ(table->entryCount() + table->vlanCount(), 0U);
  for (const auto& [file, size] : rows())
    EXPECT_EQ(size, 0U) << file;
}

TEST_F(SharedEntityTest, aFileThatDoesNotFitIsRefusedAndNothingIsLeftMounted) {
  table->entryIs(1, VlanId(1));
  EXPECT_EQ(mountError("a/table", "sharedtest::Group"),
            "a/table: is a sharedtest::Table, not a sharedtest::Group");
  EXPECT_EQ(mountError("x", "No::Such"), "x: unknown table type 'No::Such'");
  table.reset();
  EntityManager::forgetProcess();
  const std::string file = directory + "/a/table.entry.table";
  const auto copy = directory + "/copy";
  std::filesystem::copy_file(file, copy);
  for (const std::uintmax_t size : {0U, 300U}) {
    std::filesystem::resize_file(file, size);
    EXPECT_NE(mountError("a/table", "sharedtest::Table").find(file), std::string::npos) << size;
    EXPECT_EQ(manager()->getEntity("a/table"), nullptr);
    EXPECT_EQ(manager()->pathOf(*Ombra::make<Table>()), "");
  }
  std::filesystem::copy_file(copy, file, std::filesystem::copy_options::overwrite_existing);
  EXPECT_EQ(mountError("a/table", "sharedtest::Table"), "");
}

}  // namespace sharedtest
