// A table that grows: what a follower in another process hears, what becomes of rows for which
// there is no room, and rows whose damage leaves nothing to believe.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "runtime/Corruption.h"
#include "runtime/EntityFollower.h"
#include "runtime/EntityWriter.h"
#include "runtime/Record.h"
#include "tests/TemporaryDirectory.h"
#include "tests/runtime/Dump.h"

namespace growthtest {

using namespace VeskSharedMem;

class Vlan : public Vesk::Keyed<std::uint16_t> {
  VESK_LOCAL_RECORD(growthtest::Vlan)
  VESK_KEY(vlan)
  VESK_SHARED_MAP(std::uint16_t, std::uint32_t, group, 4)
};
class Table : public Vesk::Entity {
  VESK_LOCAL_RECORD(growthtest::Table)
  VESK_VALUE(std::uint32_t, version)
  VESK_SHARED_SET(std::uint16_t, member, 4)
  VESK_INSTANCES(std::uint16_t, Vlan, vlan)
};

/// Notes each change of an entity, at any depth.
class Notes : public Vesk::TreeObserver {
 public:
  explicit Notes(const Ombra::Ptr<Vesk::Entity>& root) { rootIs(root); }
  std::size_t count = 0;

 private:
  void valueChanged(const Node&, const Vesk::FieldInfo&, std::string_view) override { ++count; }
  void entityCame(const Node&) override { ++count; }
  void entityWent(const Node&) override { ++count; }
};

class TableGrowthTest : public testing::Test {
 protected:
  TableGrowthTest() {
    corruptionSinkIs([this](const std::string& path, const std::string& text) {
      reports_.push_back(path + ": " + text);
    });
    restart();
    follower_ = std::make_unique<EntityFollower>(seen_, files_);
    look();
  }
  ~TableGrowthTest() override { corruptionSinkIs({}); }

  /// The next process finds what this one left.
  void restart() {
    writer_.reset();
    own_ = Ombra::make<Table>();
    writer_ = std::make_unique<EntityWriter>("t", files_);
    writer_->load(*own_);
    writer_->begin(own_);
  }
  void look() {
    follower_->findFiles([](const TableError& error) { ADD_FAILURE() << error.what(); });
    while (follower_->hasChanges())
      follower_->takeUp([] { return false; });
  }
  [[nodiscard]] const RowFile& file(std::string_view name) const {
    return *std::ranges::find(files_, name, &RowFile::name);
  }
  [[nodiscard]] bool agree() const { return Vesk::dump(*own_) == Vesk::dump(*seen_); }
  /// Writes a byte into the file's row 0, as a stray store of a neighbour would.
  void scribble(std::string_view name, std::size_t offsetInRow) {
    const std::string path = file(name).file;
    const auto layout = TableLayout::of(path, file(name).shape);
    std::fstream out(path, std::ios::in | std::ios::out | std::ios::binary);
    out.seekp(static_cast<std::streamoff>(layout.rowsOffset + offsetInRow)).put('\x55');
  }

  TemporaryDirectory directory_;
  std::vector<RowFile> files_ = rowFilesOf(directory_.path(), "t", Table::veskType());
  std::vector<std::string> reports_;
  Ombra::Ptr<Table> own_;
  Ombra::Ptr<Table> seen_ = Ombra::make<Table>();
  std::unique_ptr<EntityWriter> writer_;
  std::unique_ptr<EntityFollower> follower_;
};

TEST_F(TableGrowthTest, aFollowerHearsOfNewRowsOnly) {
  own_->vlanIs(10);
  for (std::uint16_t g = 0; g < 4; ++g)
    own_->vlan(10)->groupIs(g, g);
  look();
  Notes notes(seen_);
  for (std::uint16_t g = 4; g < 60; ++g)
    own_->vlan(10)->groupIs(g, g);
  own_->vlan(10)->groupIs(2, 22);
  own_->vlan(10)->groupDel(3);
  look();
  EXPECT_EQ(notes.count, 56U + 2U) << "no row that stayed was touched";
  EXPECT_TRUE(agree());
  // The journal of the new file is followed, too.
  own_->vlan(10)->groupDel(4);
  look();
  EXPECT_EQ(notes.count, 59U);
  restart();
  EXPECT_TRUE(agree()) << "the next writer takes the file with the size that it has";
  EXPECT_EQ(reports_, std::vector<std::string>());
}

TEST_F(TableGrowthTest, rowsBeyondTheLimitWaitForRoom) {
  for (std::uint16_t m = 0; m < 70; ++m)
    own_->memberIs(m);
  EXPECT_EQ(reports_,
            std::vector<std::string>{
                "t: table t.member has its limit of 64 rows: row [64] is not written, "
                "and waits"})
      << "16 times the stated size; told once";
  look();
  EXPECT_EQ(seen_->memberCount(), 64U);
  own_->memberDel(65);  // one that waits
  own_->memberDel(1);   // one that makes room
  writer_->wakeReaders();
  look();
  EXPECT_TRUE(seen_->memberHas(64) && !seen_->memberHas(66));
  for (std::uint16_t m = 2; m < 6; ++m)
    own_->memberDel(m);
  writer_->wakeReaders();
  look();
  EXPECT_TRUE(agree());
  own_->memberIs(1000);
  EXPECT_EQ(reports_.size(), 2U) << "full again, told again";
}

TEST_F(TableGrowthTest, aFileSystemThatIsFullLosesNoRow) {
  for (std::uint16_t m = 0; m < 4; ++m)
    own_->memberIs(m);
  // The successor of the file cannot be made.
  const std::string successor = file(".member").file + ".new";
  std::filesystem::create_directory(successor);
  own_->memberIs(4);
  ASSERT_EQ(reports_.size(), 1U);
  EXPECT_NE(reports_[0].find(successor), std::string::npos) << reports_[0];
  std::filesystem::remove(successor);
  writer_->wakeReaders();
  look();
  EXPECT_TRUE(agree());
}

TEST_F(TableGrowthTest, aRowWithoutAValueIsNotBelievedWhenItIsDamaged) {
  own_->versionIs(7);
  own_->memberIs(1);
  own_->memberIs(2);
  own_->vlanIs(10)->groupIs(1, 1);
  writer_.reset();
  for (const char* name : {".member", ".values", ".vlan"})
    scribble(name, 9);  // in the key
  restart();
  look();
  EXPECT_EQ(own_->memberKeys(), std::vector<std::uint16_t>{2});
  EXPECT_EQ(own_->version(), 0U);
  EXPECT_EQ(own_->vlanCount(), 0U);
  EXPECT_TRUE(agree());
  EXPECT_FALSE(reports_.empty());
  // Whoever reviews finds them missing and writes them anew.
  reports_.clear();
  own_->versionIs(7);
  own_->memberIs(1);
  own_->vlanIs(10)->groupIs(1, 1);
  restart();
  look();
  EXPECT_TRUE(agree());
  EXPECT_EQ(own_->memberCount(), 2U);
  EXPECT_EQ(reports_, std::vector<std::string>());
}

/// Files of a neighbour, or of our own, that somebody cuts short, writes over or removes.
TEST_F(TableGrowthTest, filesThatAreTamperedWithEndNobody) {
  for (std::uint16_t m = 0; m < 60; ++m)
    own_->memberIs(m);
  own_->vlanIs(10)->groupIs(1, 1);
  look();
  const std::string path = file(".member").file, good = directory_ / "good";
  std::filesystem::copy_file(path, good);
  std::vector<std::string> refused;
  const auto lookAround = [&] {
    follower_->findFiles([&](const TableError& error) { refused.push_back(error.what()); });
    while (follower_->hasChanges())
      follower_->takeUp([] { return false; });
  };
  for (const std::uintmax_t size : {0U, 300U, 4096U, 5000U}) {
    SCOPED_TRACE(size);
    // The reader touches what is not there any more before it hears of the file.
    std::filesystem::resize_file(path, size);
    while (follower_->hasChanges())
      follower_->takeUp([] { return false; });
    EXPECT_EQ(seen_->memberCount(), 60U) << "nothing is told of a file that is not sound";
    lookAround();
    EXPECT_EQ(seen_->memberCount(), 0U) << "it is refused like any damaged file";
    EXPECT_EQ(std::exchange(refused, {}).size(), 1U);
    // So does the writer, which then hears of it too.
    own_->memberIs(static_cast<std::uint16_t>(1000 + size));
    own_->memberDel(static_cast<std::uint16_t>(1000 + size));
    writer_->mendFiles();
    EXPECT_EQ(std::exchange(reports_, {}).size(), 1U);
    lookAround();
    EXPECT_TRUE(agree());
    EXPECT_EQ(refused.size(), 0U);
  }
  // Another table is copied over it, with fewer rows.
  own_->memberDel(7);
  std::filesystem::copy_file(good, path, std::filesystem::copy_options::overwrite_existing);
  lookAround();
  EXPECT_TRUE(seen_->memberHas(7)) << "a reader follows what is there";
  // All of it goes.
  std::filesystem::remove_all(std::filesystem::path(path).parent_path());
  writer_->mendFiles();
  EXPECT_FALSE(reports_.empty());
  lookAround();
  EXPECT_TRUE(agree());
  // What cannot be a table is not ours, and stays.
  std::filesystem::remove(path);
  std::ofstream(path) << "not a table";
  reports_.clear();
  writer_->mendFiles();
  writer_->mendFiles();
  EXPECT_EQ(reports_.size(), 1U);
  std::string word;
  EXPECT_TRUE(std::ifstream(path) >> word && word == "not");
}

}  // namespace growthtest
