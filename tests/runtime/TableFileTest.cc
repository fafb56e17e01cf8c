// The shared table file: contents, claims, malformed files, followers, and death at any moment.
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/runtime/TableFileFixture.h"

namespace VeskSharedMem {
namespace {

using testing::HasSubstr;

TEST_F(TableFileTest, AgreesWithAMapThroughChurnAndReopening) {
  TableShape shape = kShape;
  shape.capacity = 100;
  auto writer = TableWriter::open(path_, shape);
  const auto reader = TableReader::open(path_, shape);
  Contents model;
  std::mt19937 random(7);
  for (uint32_t step = 1; step <= 30'000; ++step) {
    const uint32_t id = random() % 130;
    const auto known = model.find(id);
    if (random() % 3 == 0) {
      EXPECT_EQ(writer->erase(Key(id).data()), model.erase(id) == 1);
    } else {
      const uint32_t version = random() % 4 == 0 && known != model.end() ? known->second : step;
      const auto expected =
          known == model.end()
              ? (model.size() == 100 ? TableWriter::Put::full : TableWriter::Put::inserted)
              : (version == known->second ? TableWriter::Put::unchanged
                                          : TableWriter::Put::updated);
      ASSERT_EQ(put(*writer, id, version), expected);
      if (expected != TableWriter::Put::full) model[id] = version;
    }
    if (step % 1000 != 0) continue;
    writer.reset();
    writer = TableWriter::open(path_, shape);
    ASSERT_EQ(contentsOf(*writer, 130), model);
    ASSERT_EQ(contentsOf(*reader, 130), model);
    ASSERT_EQ(reader->size(), model.size());
  }
}

TEST_F(TableFileTest, CreationLeavesAWholeTableOrNothing) {
  EXPECT_THAT(errorOf([&] { TableWriter::open(path_ + "/none/t", kShape); }), HasSubstr(path_));
  EXPECT_THAT(errorOf([&] { TableReader::openAny(path_); }), HasSubstr(path_));
  // What a killed creator left is in nobody's way.
  std::ofstream(path_ + ".new") << "half of a table";
  { const auto writer = TableWriter::open(path_, kShape); }
  EXPECT_FALSE(std::filesystem::exists(path_ + ".new"));

  // Creators that race take turns with one table: each that got it left its row there.
  for (int round = 0; round < 30; ++round) {
    std::filesystem::remove(path_);
    std::vector<pid_t> creators;
    for (uint32_t id = 0; id < 4; ++id) {
      creators.push_back(forkChild([&, id] {
        const std::string error = errorOf([&] { put(*TableWriter::open(path_, kShape), id, 1); });
        _exit(error.empty() ? 0 : 1);
      }));
    }
    size_t winners = 0;
    for (const pid_t creator : creators)
      winners += exitStatus(creator) == 0;
    EXPECT_GE(winners, 1U);
    EXPECT_EQ(TableWriter::open(path_, kShape)->size(), winners);
    EXPECT_FALSE(std::filesystem::exists(path_ + ".new"));
  }
}

TEST_F(TableFileTest, ATableWithoutRowsTakesNoRoomAndOneWithRowsHasAllItNeeds) {
  TableShape shape = kShape;
  shape.capacity = 100'000;
  const auto roomTaken = [&] {
    struct stat status {};
    EXPECT_EQ(stat(path_.c_str(), &status), 0);
    return static_cast<uint64_t>(status.st_blocks) * 512;
  };
  const uint64_t all = TableLayout::of(path_, shape).fileSize;
  for (int life = 0; life < 2; ++life) {
    const auto writer = TableWriter::open(path_, shape);
    const auto reader = TableReader::open(path_, shape);
    EXPECT_FALSE(writer->erase(Key(1).data()) || writer->markCorrupt(Key(1).data()));
    EXPECT_EQ(contentsOf(*writer, 9), Contents{});
    EXPECT_EQ(contentsOf(*reader, 9), Contents{});
    EXPECT_LT(roomTaken(), 20'000U);
  }
  put(*TableWriter::open(path_, shape), 1, 1);
  EXPECT_GE(roomTaken(), all);
  // Copied without its empty blocks: nobody stores into a hole, where a full disk kills.
  const std::string whole = contentOfFile(path_);
  std::filesystem::resize_file(path_, 0);
  std::filesystem::resize_file(path_, all);
  patch(path_, 0, whole.substr(0, 8192));
  const auto writer = TableWriter::open(path_, shape);
  EXPECT_GE(roomTaken(), all);
  EXPECT_EQ(contentsOf(*writer, 9), (Contents{{1, 1}}));
}

TEST_F(TableFileTest, MalformedFilesAreErrorsThatNameTheDifference) {
  put(*TableWriter::open(path_, kShape), 1, 1);
  const std::string good = contentOfFile(path_);
  struct Malformed {
    const char* what;
    std::function<void(std::string&)> damage;
  };
  const auto number = [](size_t offset, uint32_t with) {
    return [offset, with](std::string& file) { std::memcpy(&file[offset], &with, 4); };
  };
  const Malformed cases[] = {
      {"found 0", [](std::string& file) { file.clear(); }},
      {"found 100", [](std::string& file) { file.resize(100); }},
      {"file length", [](std::string& file) { file.pop_back(); }},
      {"file length", [](std::string& file) { file += 'x'; }},
      {"magic", number(0, 0x464c457f)},
      {"format version 2, found 1", number(8, 1)},
      {"byte order", number(12, 0x04030201)},
      {"signature", number(16, 1)},
      {"key size 10, found 11", number(24, 11)},
      {"value size 30, found 0", number(28, 0)},
      {"capacity between 1 and 268435456, found 4294967295", number(32, UINT32_MAX)},
      {"row stride", number(36, 8)},
      {"journal slots", number(44, 63)},
      {"journal offset", number(72, UINT32_MAX)},
      {"file size", number(80, 0)},
      {"rows in use", number(140, kShape.capacity + 1)},
  };
  for (const Malformed& malformed : cases) {
    std::string file = good;
    malformed.damage(file);
    std::ofstream(path_, std::ios::trunc) << file;
    for (const std::string& error : {errorOf([&] { TableWriter::open(path_, kShape); }),
                                     errorOf([&] { TableReader::open(path_, kShape); })}) {
      EXPECT_THAT(error, HasSubstr(path_));
      EXPECT_THAT(error, HasSubstr(malformed.what));
    }
  }
}

TEST_F(TableFileTest, GarbageInIndexJournalAndUndoIsSurvivedAndRepaired) {
  Contents model;
  for (uint32_t id = 0; id < kShape.capacity; ++id)
    model[id] = id + 1;
  const TableLayout layout = TableLayout::of(path_, kShape);
  std::mt19937 random(5);
  for (int round = 0; round < 100; ++round) {
    auto writer = TableWriter::open(path_, kShape);
    for (const auto& [id, version] : model)
      put(*writer, id, version);
    const auto reader = TableReader::open(path_, kShape);
    TableCursor cursor = reader->cursor();
    writer.reset();
    std::string noise(layout.fileSize - layout.indexOffset, 0);
    for (char& byte : noise)
      byte = static_cast<char>(random());
    patch(path_, layout.indexOffset, noise);
    patch(path_, layout.undoOffset, noise.substr(0, layout.rowStride));
    const uint64_t head = cursor.position + 20;
    patch(path_, offsetof(TableHeader, journalHead),
          std::string(reinterpret_cast<const char*>(&head), sizeof head));
    Value value;
    for (uint32_t id = 0; id < 40; ++id)
      reader->find(Key(id).data(), value.data());
    reader->changesSince(cursor, [](uint32_t, RowState, const std::byte*, const std::byte*) {});
    EXPECT_EQ(contentsOf(*TableWriter::open(path_, kShape), 40), model);
    EXPECT_EQ(contentsOf(*reader, 40), model);
  }
}

TEST_F(TableFileTest, ReadersFollowTheJournalAndLearnWhenTheyFellBehind) {
  auto writer = TableWriter::open(path_, kShape);
  const auto reader = TableReader::open(path_, kShape);
  TableCursor cursor = reader->cursor();
  std::vector<RowState> told;
  const auto follow = [&] {
    told.clear();
    return reader->changesSince(cursor, [&](uint32_t, RowState state, const std::byte*,
                                            const std::byte*) { told.push_back(state); });
  };
  put(*writer, 1, 1);
  writer->erase(Key(1).data());
  EXPECT_EQ(follow(), TableReader::Changes::ok);
  EXPECT_EQ(told, (std::vector{RowState::missing, RowState::missing}));

  const uint32_t slots = TableLayout::of(path_, kShape).journalSlots;
  for (uint32_t i = 0; i < slots - 1; ++i)
    put(*writer, 2, 100 + i);
  EXPECT_EQ(follow(), TableReader::Changes::ok);
  EXPECT_EQ(told.size(), slots - 1);
  for (uint32_t i = 0; i < slots; ++i)
    put(*writer, 2, 500 + i);
  EXPECT_EQ(follow(), TableReader::Changes::overrun);
  EXPECT_EQ(follow(), TableReader::Changes::ok);

  // The writer laps a reader that is in the middle of it.
  put(*writer, 1, 1);
  put(*writer, 2, 1);
  const auto lapped = reader->changesSince(cursor, [&](auto...) {
    for (uint32_t i = 0; i < slots; ++i)
      put(*writer, 3, 2000 + i);
  });
  EXPECT_EQ(lapped, TableReader::Changes::overrun);

  writer.reset();
  writer = TableWriter::open(path_, kShape);
  EXPECT_EQ(follow(), TableReader::Changes::overrun);

  EXPECT_FALSE(reader->isReplaced());
  std::filesystem::remove(path_);
  EXPECT_TRUE(reader->isReplaced());
  EXPECT_TRUE(writer->isLost());
  writer->makeAnew();
  EXPECT_EQ(TableReader::open(path_, kShape)->changesSince(cursor, [](auto...) {}),
            TableReader::Changes::overrun);
}

TEST_F(TableFileTest, ASleepingReaderIsRousedAtTheEndOfABatch) {
  using std::chrono::milliseconds;
  const auto writer = TableWriter::open(path_, kShape);
  const auto reader = TableReader::open(path_, kShape);
  EXPECT_FALSE(reader->waitForChange(reader->cursor(), milliseconds(5)));
  for (uint32_t round = 1; round <= 200; ++round) {
    const TableCursor cursor = reader->cursor();
    bool isRoused = false;
    std::thread sleeper([&] { isRoused = reader->waitForChange(cursor, milliseconds(10'000)); });
    if (round % 2 == 0) usleep(200);
    put(*writer, 1, round);
    writer->wakeReaders();
    sleeper.join();
    ASSERT_TRUE(isRoused);
  }
}

TEST_F(TableFileTest, ReadersOfAnotherUserSleepAndCannotHoldUpTheWriter) {
  if (geteuid() != 0) GTEST_SKIP() << "another user is there for root only";
  const mode_t before = umask(0077);  // that of a service
  auto writer = TableWriter::open(path_, kShape);
  umask(before);
  ASSERT_EQ(chmod(path_.c_str(), 0644) | chmod(directory_.c_str(), 0755), 0);
  std::array<int, 2> ready{};
  ASSERT_EQ(pipe(ready.data()), 0);
  const pid_t stranger = forkChild([&] {
    writer.reset();
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(2);
    // Locks all that it can open.
    for (const char* const name : {"", ".lock", ".wake"}) {
      struct flock lock {};
      lock.l_type = F_RDLCK;
      fcntl(open((path_ + name).c_str(), O_RDONLY), F_OFD_SETLK, &lock);
    }
    const auto reader = TableReader::open(path_, kShape);
    const TableCursor cursor = reader->cursor();
    const bool canSleep = reader->bellBeforeSleep().word != nullptr;
    if (write(ready[1], "x", 1) != 1) _exit(3);
    const bool isRoused = reader->waitForChange(cursor, std::chrono::seconds(10));
    _exit(canSleep && isRoused ? 0 : 1);
  });
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  writer.reset();
  writer = TableWriter::open(path_, kShape);
  EXPECT_THAT(errorOf([&] { TableWriter::open(path_, kShape); }),
              HasSubstr("found process " + std::to_string(getpid()) + " holding it"));
  EXPECT_EQ(exitStatus(stranger), 0);

  // Without the files beside it a table is lost to others, and its writer makes them anew.
  for (const char* const name : {".lock", ".wake"}) {
    EXPECT_FALSE(writer->isLost());
    std::filesystem::remove(path_ + name);
    EXPECT_TRUE(writer->isLost()) << name;
    EXPECT_FALSE(errorOf([&] { TableWriter::open(path_, kShape); }).empty()) << name;
    writer->makeAnew();
  }
  EXPECT_FALSE(errorOf([&] { TableWriter::open(path_, kShape); }).empty());
}

}  // namespace
}  // namespace VeskSharedMem
