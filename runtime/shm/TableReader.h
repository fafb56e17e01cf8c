// A shared table as other processes see it, with a live writer, a dead one or none.
// Owns: a mapping that it cannot write through, and the table's bell.
// Reads: rows and index while the writer changes them; a row is whole or it is not delivered.
// Writes: to the bell, that it sleeps. Caveats: one thread per reader object; the bytes handed
// to a callback are this object's scratch and last until the callback returns.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "runtime/shm/TableBell.h"
#include "runtime/shm/TableFile.h"

namespace VeskSharedMem {

// How far a reader has followed the changes. Take one, then scan, then follow.
struct TableCursor {
  uint64_t epoch = 0;
  uint64_t position = 0;
};

class TableReader {
 public:
  enum class Changes {
    ok,
    overrun,  // some changes are lost, or the writer is another one: scan, the cursor is fresh
  };
  enum class Check {
    stateOnly,
    checksum,
  };

  // Both throw TableError when the file is absent or not such a table.
  static std::unique_ptr<TableReader> open(const std::string& path, const TableShape& shape);
  static std::unique_ptr<TableReader> openAny(const std::string& path);

  // Verifies the checksum. A corrupt row's value is copied too, as it stands.
  RowState find(const void* key, void* value);
  // The number of the row that `find` found last.
  uint32_t foundRow() const { return number_; }

  // Calls f(row, key, value, corrupt) for each row and returns how many were too busy to be read,
  // which only a writer that hammers on them can cause.
  template <class Function>
  uint32_t forEach(Function f, Check check = Check::stateOnly);

  TableCursor cursor() const;
  // Calls f(row, state, key, value) for each change after the cursor and moves it on. The state is
  // the present one, so a row changed twice is told twice alike. A missing row tells no key: a
  // consumer remembers which key it saw under which row number, and a live row may carry another
  // key than before, which means that the former one is gone.
  template <class Function>
  Changes changesSince(TableCursor& cursor, Function f);
  bool isCaughtUp(const TableCursor& cursor) const;
  // False after the timeout. Returns at once when changes are there already.
  bool waitForChange(const TableCursor& cursor, std::chrono::milliseconds timeout);
  // A futex word, and the value with which to wait on it. `word` is null if this process may not
  // say that it sleeps: it has to look from time to time.
  struct Bell {
    const uint32_t* word = nullptr;
    uint32_t value = 0;
  };
  // Says that somebody is about to sleep. Ask isCaughtUp afterwards, and sleep only if it is so.
  Bell bellBeforeSleep() const;

  uint32_t size() const;
  const TableShape& shape() const { return layout_.shape; }
  const std::string& path() const { return file_.path(); }
  // What is mapped is the table that was opened, and not the rest of one that was cut short.
  bool isSound() const { return file_.isSound(); }
  // The path leads elsewhere by now, or what is mapped is not sound.
  bool isReplaced() const { return file_.isReplaced(); }
  // A writer is at it, or died while it was: each `find` looks through all rows.
  bool isIndexUnderRepair() const {
    return (sharedWord(header_.indexVersion).load(std::memory_order_acquire) & 1) != 0;
  }

 private:
  static constexpr size_t kScanBlock = 16;

  explicit TableReader(TableFile file);

  const std::byte* key() const { return scratch_.data(); }
  const std::byte* value() const { return key() + layout_.shape.keySize; }
  uint32_t rowsInUse() const;
  static bool copyLiveRow(RowView row, std::byte* to, size_t size);
  RowState readRow(uint32_t number, Check check);
  RowState readBusyRow(uint32_t number, uint32_t word, Check check);
  RowState judge(uint32_t state, uint32_t checksum, Check check) const;
  RowState findByIndex(const void* key, uint64_t hash);
  RowState findByScan(const void* key);

  TableFile file_;
  TableBell bell_;
  TableLayout layout_;
  TableHeader& header_;
  std::vector<std::byte> scratch_;  // the row read last
  std::vector<std::byte> block_;    // rows of a scan
  uint32_t number_ = 0;             // of that row
};

// The usual case of readRow, for a scan: a live row that nobody touches.
inline bool TableReader::copyLiveRow(RowView row, std::byte* to, size_t size) {
  const uint32_t word = row.word().load(std::memory_order_acquire);
  if ((word & (RowWord::kBusy | RowWord::kStateMask)) != RowWord::kLive) return false;
  const std::byte* from = row.bytes();
  // In vector registers, which a call for so few bytes would take longer to set up.
  size_t at = 0;
  for (; at + 16 <= size; at += 16)
    std::memcpy(to + at, from + at, 16);
  if (at < size) std::memcpy(to + at, from + at, 8);
  std::atomic_thread_fence(std::memory_order_acquire);
  return row.word().load(std::memory_order_relaxed) == word;
}

// Some rows at a time: a value that is read back while its copy is still on the way to the cache
// costs more than the copy.
template <class Function>
uint32_t TableReader::forEach(Function f, Check check) {
  struct Copied {
    uint32_t number;
    bool isCorrupt;
  };
  std::array<Copied, kScanBlock> copied;
  uint32_t skipped = 0;
  const uint32_t end = rowsInUse();
  const size_t size = layout_.payloadSize;
  block_.resize(kScanBlock * size);
  RowView row = file_.row(0);
  for (uint32_t number = 0; number < end;) {
    size_t count = 0;
    for (; number < end && count < kScanBlock; ++number, row.base += layout_.rowStride) {
      std::byte* const to = block_.data() + count * size;
      if (check == Check::stateOnly && copyLiveRow(row, to, size)) {
        copied[count++] = {number, false};
        continue;
      }
      const RowState state = readRow(number, check);
      if (state == RowState::busy) ++skipped;
      if (state != RowState::live && state != RowState::corrupt) continue;
      std::memcpy(to, scratch_.data(), size);
      copied[count++] = {number, state == RowState::corrupt};
    }
    for (size_t i = 0; i < count; ++i) {
      const std::byte* const key = block_.data() + i * size;
      f(copied[i].number, key, key + layout_.shape.keySize, copied[i].isCorrupt);
    }
  }
  return skipped;
}

template <class Function>
TableReader::Changes TableReader::changesSince(TableCursor& cursor, Function f) {
  const uint64_t slots = layout_.journalSlots;
  const TableCursor latest = this->cursor();
  if (cursor.epoch != latest.epoch || latest.position - cursor.position >= slots) {
    cursor = latest;
    return Changes::overrun;
  }
  for (uint64_t at = cursor.position; at != latest.position; ++at) {
    const uint32_t number =
        sharedWord(file_.journal()[at & (slots - 1)]).load(std::memory_order_acquire);
    if (number >= rowsInUse()) continue;
    const RowState state = readRow(number, Check::checksum);
    // A row that is busy all the time will be in the journal again.
    if (state != RowState::busy) f(number, state, key(), value());
  }
  // Entries that were overwritten meanwhile named other rows; nothing false was told, but the
  // changes that they held are lost.
  std::atomic_thread_fence(std::memory_order_acquire);
  const TableCursor now = this->cursor();
  const bool isLost = now.epoch != cursor.epoch || now.position - cursor.position >= slots;
  cursor = isLost ? now : latest;
  return isLost ? Changes::overrun : Changes::ok;
}

}  // namespace VeskSharedMem
