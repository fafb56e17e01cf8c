#include "runtime/shm/TableReader.h"

#include <algorithm>
#include <cstring>
#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace VeskSharedMem {
namespace {

constexpr int kRowAttempts = 2000;
constexpr int kIndexAttempts = 64;
constexpr int kAttemptsBeforeYield = 100;

using Clock = std::chrono::steady_clock;

timespec toTimespec(std::chrono::nanoseconds time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  return {static_cast<time_t>(seconds.count()), static_cast<long>((time - seconds).count())};
}

}  // namespace

std::unique_ptr<TableReader> TableReader::open(const std::string& path, const TableShape& shape) {
  return std::unique_ptr<TableReader>(new TableReader(TableFile::forReader(path, &shape)));
}

std::unique_ptr<TableReader> TableReader::openAny(const std::string& path) {
  return std::unique_ptr<TableReader>(new TableReader(TableFile::forReader(path, nullptr)));
}

TableReader::TableReader(TableFile file)
    : file_(std::move(file)),
      bell_(TableBell::forReader(file_.path())),
      layout_(file_.layout()),
      header_(file_.header()),
      scratch_(layout_.payloadSize) {}

// The count comes from a file that may be damaged after it was opened.
uint32_t TableReader::rowsInUse() const {
  return std::min(sharedWord(header_.highWater).load(std::memory_order_acquire),
                  layout_.shape.capacity);
}

uint32_t TableReader::size() const {
  return sharedWord(header_.rowCount).load(std::memory_order_relaxed);
}

RowState TableReader::judge(uint32_t state, uint32_t checksum, Check check) const {
  if (state != RowWord::kLive) return RowState::corrupt;
  if (check == Check::stateOnly) return RowState::live;
  const uint32_t expected = layout_.checksumOf(layout_.hashOfKey(key()), value());
  return checksum == expected ? RowState::live : RowState::corrupt;
}

RowState TableReader::readRow(uint32_t number, Check check) {
  number_ = number;
  const RowView row = file_.row(number);
  for (int attempt = 1; attempt <= kRowAttempts; ++attempt) {
    const uint32_t word = row.word().load(std::memory_order_acquire);
    // Covers an insert under way as well: its row was free until now.
    if (RowWord::state(word) == RowWord::kFree) return RowState::missing;
    if (RowWord::isBusy(word)) {
      const RowState state = readBusyRow(number, word, check);
      if (state != RowState::busy) return state;
    } else {
      std::memcpy(scratch_.data(), row.bytes(), scratch_.size());
      const uint32_t checksum = row.checksum().load(std::memory_order_relaxed);
      std::atomic_thread_fence(std::memory_order_acquire);
      if (row.word().load(std::memory_order_relaxed) == word) {
        return judge(RowWord::state(word), checksum, check);
      }
    }
    if (attempt % kAttemptsBeforeYield == 0) sched_yield();
  }
  return RowState::busy;
}

// A writer that was suspended or killed within an update must not hold us up: the undo area has
// the committed version for as long as the row stays busy with the same count.
RowState TableReader::readBusyRow(uint32_t number, uint32_t word, Check check) {
  const RowView undo = file_.undo();
  if (undo.word().load(std::memory_order_acquire) != number + 1) return RowState::busy;
  std::memcpy(scratch_.data(), undo.bytes(), scratch_.size());
  const uint32_t checksum = undo.checksum().load(std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_acquire);
  if (file_.row(number).word().load(std::memory_order_relaxed) != word) return RowState::busy;
  return judge(RowWord::state(word), checksum, check);
}

RowState TableReader::find(const void* key, void* value) {
  // The rest of a table without rows may be a hole, which a look would fill.
  if (rowsInUse() == 0) return RowState::missing;
  const RowState state = findByIndex(key, layout_.hashOfKey(key));
  const bool hasValue = state == RowState::live || state == RowState::corrupt;
  if (hasValue && layout_.shape.valueSize > 0) {
    std::memcpy(value, this->value(), layout_.shape.valueSize);
  }
  return state;
}

// A hit proves itself by its key. A miss counts only if no index entry moved meanwhile.
RowState TableReader::findByIndex(const void* key, uint64_t hash) {
  for (int attempt = 0; attempt < kIndexAttempts; ++attempt) {
    const uint32_t version = sharedWord(header_.indexVersion).load(std::memory_order_acquire);
    if ((version & 1) != 0) break;
    uint32_t slot = layout_.homeSlot(hash);
    for (uint32_t step = 0; step < layout_.indexSlots; ++step, slot = layout_.nextSlot(slot)) {
      const uint32_t entry = sharedWord(file_.index()[slot]).load(std::memory_order_acquire);
      if (entry == 0) break;
      const uint32_t number = layout_.slotRow(entry);
      if (!layout_.slotMatches(entry, hash) || number >= rowsInUse()) continue;
      const RowState state = readRow(number, Check::checksum);
      if (state == RowState::busy) return state;
      if (state == RowState::missing) continue;
      if (std::memcmp(this->key(), key, layout_.shape.keySize) == 0) return state;
    }
    std::atomic_thread_fence(std::memory_order_acquire);
    if (sharedWord(header_.indexVersion).load(std::memory_order_relaxed) == version) {
      return RowState::missing;
    }
  }
  return findByScan(key);
}

// Slow but bounded, and needs no index: for the moments of a rebuild, and for good if the writer
// died within one. A key that hops behind us to a lower row was absent for an instant, so that
// "missing" is a true answer then too.
RowState TableReader::findByScan(const void* key) {
  bool isUncertain = false;
  const uint32_t end = rowsInUse();
  for (uint32_t number = 0; number < end; ++number) {
    const RowState state = readRow(number, Check::checksum);
    if (state == RowState::missing) continue;
    if (state == RowState::busy) {
      isUncertain = true;
    } else if (std::memcmp(this->key(), key, layout_.shape.keySize) == 0) {
      return state;
    }
  }
  return isUncertain ? RowState::busy : RowState::missing;
}

TableCursor TableReader::cursor() const {
  const uint64_t epoch = sharedWord(header_.writerEpoch).load(std::memory_order_acquire);
  return {epoch, sharedWord(header_.journalHead).load(std::memory_order_acquire)};
}

bool TableReader::isCaughtUp(const TableCursor& cursor) const {
  const TableCursor latest = this->cursor();
  return latest.epoch == cursor.epoch && latest.position == cursor.position;
}

TableReader::Bell TableReader::bellBeforeSleep() const {
  TableBell::Words* const bell = bell_.words();
  if (bell == nullptr) return {};
  const uint32_t ring = sharedWord(bell->wakeWord).load(std::memory_order_seq_cst);
  sharedWord(bell->sleeping).store(1, std::memory_order_seq_cst);
  // Pairs with the fence of the writer, which looks for sleepers after its changes.
  std::atomic_thread_fence(std::memory_order_seq_cst);
  return {&bell->wakeWord, ring};
}

bool TableReader::waitForChange(const TableCursor& cursor, std::chrono::milliseconds timeout) {
  constexpr std::chrono::nanoseconds kPollStep = std::chrono::milliseconds(1);
  const auto deadline = Clock::now() + timeout;
  if (!isCaughtUp(cursor)) return true;
  for (;;) {
    const Bell bell = bellBeforeSleep();
    if (!isCaughtUp(cursor)) return true;
    const std::chrono::nanoseconds left = deadline - Clock::now();
    if (left <= std::chrono::nanoseconds::zero()) return false;
    if (bell.word == nullptr) {
      const timespec pause = toTimespec(std::min(left, kPollStep));
      nanosleep(&pause, nullptr);
    } else {
      const timespec pause = toTimespec(left);
      syscall(SYS_futex, bell.word, FUTEX_WAIT, bell.value, &pause, nullptr, 0);
    }
  }
}

}  // namespace VeskSharedMem
