// A writer of a shared table that dies after each single instruction, and readers that it changes
// the table for between any two. Kills at random instants, and rows of several kilobytes, are in
// tests/fault.
#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <set>
#include <signal.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/runtime/TableFileFixture.h"

namespace VeskSharedMem {
namespace {

constexpr uint32_t kIds = 40;

class TableFileCrashTest : public TableFileTest {
 protected:
  // Runs `change` in a child, one instruction at a time, and returns each state that the file was
  // in: what a kill at that instruction leaves behind. Empty where tracing is not permitted.
  std::vector<std::string> statesDuring(const std::function<void()>& prepare,
                                        const std::function<void()>& change) {
    const pid_t child = forkChild([&] {
      if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
      prepare();
      raise(SIGSTOP);
      change();
      raise(SIGSTOP);
    });
    std::vector<std::string> states;
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFSTOPPED(status)) return states;
    states.push_back(contentOfFile(path_));
    const int fd = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    const auto* live =
        static_cast<const char*>(mmap(nullptr, states[0].size(), PROT_READ, MAP_SHARED, fd, 0));
    close(fd);
    do {
      ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr);
      waitpid(child, &status, 0);
      if (std::memcmp(live, states.back().data(), states.back().size()) != 0) {
        states.emplace_back(live, states.back().size());
      }
    } while (WIFSTOPPED(status) && WSTOPSIG(status) == SIGTRAP);
    munmap(const_cast<char*>(live), states[0].size());
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return states;
  }

  // Each state must read as `before` and, from some state on, as `after`; by a reader while the
  // writer is dead, and by the next writer.
  void expectOldThenNew(const std::vector<std::string>& states, const Contents& before,
                        const Contents& after) {
    bool isCommitted = before == after;
    for (size_t i = 0; i < states.size(); ++i) {
      const std::string copy = path_ + ".copy";
      std::ofstream(copy, std::ios::binary | std::ios::trunc) << states[i];
      const auto reader = TableReader::open(copy, kShape);
      const Contents seen = contentsOf(*reader, kIds);
      isCommitted = isCommitted || seen == after;
      ASSERT_EQ(seen, isCommitted ? after : before) << "state " << i << " of " << states.size();
      const auto writer = TableWriter::open(copy, kShape);
      ASSERT_EQ(contentsOf(*writer, kIds), seen) << "state " << i << " of " << states.size();
      ASSERT_EQ(writer->size(), seen.size());
      ASSERT_EQ(contentsOf(*reader, kIds), seen);
    }
    EXPECT_TRUE(isCommitted);
  }
};

TEST_F(TableFileCrashTest, EveryInstructionLeavesTheRowOldOrNew) {
  Contents before;
  for (uint32_t id = 0; id < kShape.capacity - 2; ++id)
    before[id] = id + 1;
  std::unique_ptr<TableWriter> writer;
  const auto prepare = [&] {
    writer = TableWriter::open(path_, kShape);
    for (const auto& [id, version] : before)
      put(*writer, id, version);
    put(*writer, 39, 1);
    writer->erase(Key(39).data());
  };
  const auto tryChange = [&](Contents after, const std::function<void()>& change) {
    std::filesystem::remove(path_);
    const auto states = statesDuring(prepare, change);
    expectOldThenNew(states, before, after);
    return states;
  };
  Contents inserted = before;
  inserted[30] = 5;
  const auto states = tryChange(inserted, [&] { put(*writer, 30, 5); });
  if (states.empty()) GTEST_SKIP() << "tracing is not permitted here";
  EXPECT_GT(states.size(), 8U);
  for (const uint32_t id : {0U, 7U, 13U}) {
    Contents erased = before;
    erased.erase(id);
    tryChange(erased, [&] { writer->erase(Key(id).data()); });
  }
  Contents updated = before;
  updated[4] = 99;
  const auto updates = tryChange(updated, [&] { put(*writer, 4, 99); });

  // The repair of an unfinished update may be cut short as well.
  std::set<size_t> interesting;
  const TableLayout layout = TableLayout::of(path_, kShape);
  for (size_t i = 0; i < updates.size(); ++i) {
    uint32_t word = 0;
    std::memcpy(&word, &updates[i][layout.rowsOffset + 4 * layout.rowStride], 4);
    if (RowWord::isBusy(word)) interesting.insert(i);
  }
  ASSERT_FALSE(interesting.empty());
  const std::string halfDone = updates[*interesting.rbegin()];
  const auto leaveHalfDone = [&] {
    std::ofstream(path_, std::ios::binary | std::ios::trunc) << halfDone;
  };
  const auto repairs = statesDuring(leaveHalfDone, [&] { TableWriter::open(path_, kShape); });
  EXPECT_GT(repairs.size(), 8U);
  expectOldThenNew(repairs, before, before);
}

// The reader goes a few instructions at a time and the table changes in between, so that changes
// fall into gaps that two running processes hardly ever hit.
TEST_F(TableFileCrashTest, ChangesBetweenAnyTwoInstructionsHideNoRow) {
  // Per id how often it came or went: odd while it is in the table.
  using Moves = std::array<std::atomic<uint32_t>, kIds>;
  void* shared =
      mmap(nullptr, sizeof(Moves), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  Moves& moves = *new (shared) Moves{};
  const auto writer = TableWriter::open(path_, kShape);
  const pid_t child = forkChild([&] {
    const auto reader = TableReader::open(path_, kShape);
    std::minstd_rand random(4);
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
    raise(SIGSTOP);
    for (;;) {
      const uint32_t id = random() % kIds;
      Value value;
      const uint32_t before = moves[id];
      const RowState state = reader->find(Key(id).data(), value.data());
      const RowState expected = before % 2 == 1 ? RowState::live : RowState::missing;
      if (before == moves[id] && state != expected) _exit(2);
      if (state == RowState::live && versionOf(Key(id).data(), value.data()) == kTorn) _exit(3);
    }
  });
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFSTOPPED(status)) GTEST_SKIP() << "tracing is not permitted here";
  std::minstd_rand random(17);
  for (uint32_t turn = 0; turn < 8000 && WIFSTOPPED(status); ++turn) {
    for (uint32_t i = random() % 20; i > 0 && WIFSTOPPED(status); --i) {
      ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr);
      waitpid(child, &status, 0);
    }
    const uint32_t id = random() % kIds;
    if (random() % 3 != 0) {
      moves[id] += put(*writer, id, turn) == TableWriter::Put::inserted;
    } else {
      moves[id] += writer->erase(Key(id).data());
    }
  }
  EXPECT_TRUE(WIFSTOPPED(status)) << "the reader ended with status " << status;
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  munmap(shared, sizeof(Moves));
}

}  // namespace
}  // namespace VeskSharedMem
