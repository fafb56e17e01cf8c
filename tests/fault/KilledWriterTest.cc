// A writer of a shared table is killed at random instants, a thousand times in all, while another
// process reads without pause: by key, by scan and by following the journal.
// CORVANE_KILLS says how many instead; CORVANE_SEED repeats the sequence of a failure.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <random>
#include <signal.h>
#include <sys/mman.h>

#include "runtime/shm/RowFollower.h"
#include "tests/fault/Environment.h"
#include "tests/runtime/TableFileFixture.h"

namespace VeskSharedMem {
namespace {

struct Form {
  const char* name;
  TableShape shape;
  uint32_t share;       // of the kills, in thousandths
  uint32_t growth = 0;  // rows by which it grows when it is full, and now and then besides
  uint32_t ids = shape.capacity;
};
void PrintTo(const Form& form, std::ostream* to) {
  *to << form.name;
}

/// Bytes that belong together: whatever is copied in part does not verify.
std::string bytesOf(uint32_t size, uint32_t first, uint32_t second) {
  std::string bytes(size, '\0');
  std::memcpy(bytes.data(), &first, 4);
  for (uint32_t i = 4; i < size; ++i)
    bytes[i] = static_cast<char>((first + second * 31) >> (i % 4 * 8));
  return bytes;
}
uint32_t firstOf(const void* bytes) {
  uint32_t first = 0;
  std::memcpy(&first, bytes, 4);
  return first;
}

// What writers, reader and test tell each other; it outlives each of them.
struct Ledger {
  static constexpr uint32_t maxIds = 4000;
  std::atomic<uint32_t> committed[maxIds];  // version, 0 for none
  std::atomic<uint32_t> intendedId;
  std::atomic<uint32_t> intendedVersion;
  std::atomic<uint32_t> lastVersion;
  std::atomic<uint32_t> changes;
  std::atomic<uint32_t> asked;  // how often the writer rested and wants the reader's mirror judged
  std::atomic<uint32_t> answered;
  std::atomic<const char*> fault;  // of the reader, the first one; a literal has one address in all
};

class KilledWriterTest : public TableFileTest, public testing::WithParamInterface<Form> {
 protected:
  KilledWriterTest() {
    void* shared =
        mmap(nullptr, sizeof(Ledger), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ledger_ = new (shared) Ledger{};
  }
  ~KilledWriterTest() override { munmap(ledger_, sizeof(Ledger)); }

  [[nodiscard]] std::string keyOf(uint32_t id) const { return bytesOf(shape_.keySize, id, 7); }
  /// 0 if the row is not whole.
  [[nodiscard]] uint32_t versionOf(const void* key, const void* value) const {
    const uint32_t id = firstOf(key);
    const uint32_t version = firstOf(value);
    const bool isWhole =
        std::memcmp(keyOf(id).data(), key, shape_.keySize) == 0 &&
        std::memcmp(bytesOf(shape_.valueSize, version, id).data(), value, shape_.valueSize) == 0;
    return isWhole ? version : 0;
  }

  void change(TableWriter& writer, std::minstd_rand& random) {
    const uint32_t id = random() % ids_;
    const bool isErase = id >= permanent_ && random() % 3 == 0;
    const uint32_t version = isErase ? 0 : ledger_->lastVersion.fetch_add(1) + 1;
    // Id first: until the version follows, either one is a version that this id may have.
    ledger_->intendedVersion = ledger_->committed[id].load();
    ledger_->intendedId = id;
    ledger_->intendedVersion = version;
    if (isErase) {
      writer.erase(keyOf(id).data());
    } else {
      if (growth_ != 0 && random() % 32 == 0 && writer.capacity() < 2 * ids_)
        writer.growTo(writer.capacity() + growth_);
      const std::string key = keyOf(id), value = bytesOf(shape_.valueSize, version, id);
      while (writer.put(key.data(), value.data()) == TableWriter::Put::full)
        writer.growTo(writer.capacity() + growth_);
    }
    ledger_->committed[id] = version;
    ledger_->changes.fetch_add(1);
  }

  [[noreturn]] void writeUntilKilled(uint32_t seed) {
    const auto writer = TableWriter::open(path_, shape_);
    std::minstd_rand random(seed);
    for (uint32_t step = 0;; ++step) {
      change(*writer, random);
      if (step % 16 == 0) writer->wakeReaders();
    }
  }

  [[noreturn]] void readUntilKilled();
  void judgeRows(TableWriter& writer);
  void askReader();

  const TableShape shape_ = GetParam().shape;
  const uint32_t growth_ = GetParam().growth;
  const uint32_t ids_ = GetParam().ids;
  const uint32_t permanent_ = ids_ / 3;  // lower ids are present from the start to the end
  Ledger* ledger_ = nullptr;
};

void KilledWriterTest::readUntilKilled() {
  const auto fail = [&](const char* what) {
    const char* none = nullptr;
    ledger_->fault.compare_exchange_strong(none, what);
  };
  auto reader = TableReader::open(path_, shape_);
  RowFollower follower(TableReader::open(path_, shape_));
  std::map<uint32_t, uint32_t> mirror;
  const auto follow = [&] {
    follower.follow([&](std::string_view key, RowState state, std::string_view value) {
      mirror.erase(firstOf(key.data()));
      if (state == RowState::missing) return;
      if (versionOf(key.data(), value.data()) == 0) fail("a row that was followed is not whole");
      mirror[firstOf(key.data())] = firstOf(value.data());
    });
  };
  std::minstd_rand random(1);
  std::string value(shape_.valueSize, '\0');
  for (;;) {
    const uint32_t asked = ledger_->asked;
    if (reader->isReplaced()) {
      reader = TableReader::open(path_, shape_);
      follower.readerIs(TableReader::open(path_, shape_));
    }
    follow();
    std::map<uint32_t, uint32_t> table;
    reader->forEach([&](uint32_t, const std::byte* key, const std::byte* bytes, bool isCorrupt) {
      if (isCorrupt || versionOf(key, bytes) == 0) fail("a row of a scan is not whole");
      table[firstOf(key)] = firstOf(bytes);
    });
    if (asked != ledger_->answered) {
      if (table != mirror) fail("what was followed is not what is there");
      ledger_->answered = asked;
    }
    for (int i = 0; i < 50; ++i) {
      const uint32_t id = random() % ids_;
      const std::string key = keyOf(id);
      const uint32_t before = ledger_->committed[id];
      const RowState state = reader->find(key.data(), value.data());
      if (state == RowState::missing && id >= permanent_) continue;
      if (state != RowState::live) {
        fail("a row that is always there was not found");
      } else if (versionOf(key.data(), value.data()) == 0) {
        fail("a row that was found is not whole");
      } else if (id < permanent_ && firstOf(value.data()) < before && !reader->isReplaced()) {
        fail("a version that had been committed was taken back");
      }
    }
    reader->waitForChange(follower.cursor(), std::chrono::milliseconds(1));
  }
}

/// Each row is as its last change left it; the one that was under way may be old or new.
void KilledWriterTest::judgeRows(TableWriter& writer) {
  uint32_t found = 0;
  std::string value(shape_.valueSize, '\0');
  for (uint32_t id = 0; id < ids_; ++id) {
    const std::string key = keyOf(id);
    const RowState state = writer.find(key.data(), value.data());
    uint32_t version = 0;
    if (state != RowState::missing) {
      ++found;
      version = versionOf(key.data(), value.data());
      ASSERT_TRUE(state == RowState::live && version != 0) << "id " << id;
    }
    if (id != ledger_->intendedId || version != ledger_->intendedVersion) {
      ASSERT_EQ(version, ledger_->committed[id]) << "id " << id;
    }
    ledger_->committed[id] = version;
  }
  ASSERT_EQ(writer.size(), found);
  writer.forEach([&](const void*, const void*, bool isCorrupt) { found -= isCorrupt ? 0 : 1; });
  ASSERT_EQ(found, 0U);
}

/// The table rests; the reader compares what it has followed with what is there.
void KilledWriterTest::askReader() {
  ++ledger_->asked;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (ledger_->answered != ledger_->asked) {
    ASSERT_LT(std::chrono::steady_clock::now(), end) << "the reader is stuck";
    usleep(20);
  }
  ASSERT_EQ(ledger_->fault.load(), nullptr) << ledger_->fault.load();
}

TEST_P(KilledWriterTest, LosesNothingWhileAReaderGoesOn) {
  const uint32_t kills = std::max(1U, numberOf("CORVANE_KILLS", 1000) * GetParam().share / 1000);
  const uint32_t firstSeed = numberOf("CORVANE_SEED", std::random_device()());
  std::minstd_rand random(firstSeed);
  auto writer = TableWriter::open(path_, shape_);
  for (uint32_t id = 0; id < permanent_; ++id) {
    const uint32_t version = ++ledger_->lastVersion;
    while (writer->put(keyOf(id).data(), bytesOf(shape_.valueSize, version, id).data()) ==
           TableWriter::Put::full)
      writer->growTo(writer->capacity() + growth_);
    ledger_->committed[id] = version;
  }
  writer.reset();  // a child would inherit its claim
  const pid_t reader = forkChild([&] { readUntilKilled(); });
  std::chrono::steady_clock::duration longest{};
  for (uint32_t round = 0; round < kills && !HasFatalFailure(); ++round) {
    writer.reset();
    const uint32_t before = ledger_->changes;
    const uint32_t seed = random();
    const pid_t child = forkChild([&] { writeUntilKilled(seed); });
    // Most die amid changes, some within their opening.
    for (int i = 0; i < 20000 && round % 8 != 0 && ledger_->changes == before; ++i)
      usleep(50);
    usleep(random() % 1500);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);

    SCOPED_TRACE(testing::Message() << "kill " << round << " of " << kills);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_NO_THROW(writer = TableWriter::open(path_, shape_));
    longest = std::max(longest, std::chrono::steady_clock::now() - start);
    judgeRows(*writer);
    // The first answer makes the reader know this writer, so that the second is by the journal.
    if (!HasFatalFailure()) askReader();
    for (int i = 0; i < 30 && !HasFatalFailure(); ++i)
      change(*writer, random);
    if (!HasFatalFailure()) askReader();
  }
  kill(reader, SIGKILL);
  waitpid(reader, nullptr, 0);
  if (HasFailure()) std::printf("CORVANE_SEED=%u repeats this sequence\n", firstSeed);
  EXPECT_LT(longest, std::chrono::seconds(5)) << "a successor is stuck in its opening";
  RecordProperty("changes", static_cast<int>(ledger_->changes));
}

INSTANTIATE_TEST_SUITE_P(Forms, KilledWriterTest,
                         testing::Values(Form{"ShortJournal", {10, 30, 300, 77}, 350},
                                         Form{"Growing", {10, 30, 100, 80}, 150, 5, 1000},
                                         Form{"LongRows", {33, 4000, 90, 78}, 250},
                                         Form{"ManyRows", {42, 14, Ledger::maxIds, 79}, 250}),
                         [](const auto& form) { return form.param.name; });

}  // namespace
}  // namespace VeskSharedMem
