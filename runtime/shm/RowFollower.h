// One table file followed from another process: which keys changed, and what they hold now.
// Owns: a reader, and the key that each row number had when it was looked at last.
// Reads: the journal, or all rows when the journal has gone on without us. Writes: nothing.
// Tells: every key once at first; then each key whose row may have changed, in order of change.
// Caveat: a key is told with what it holds at the time of telling, so changes that follow closely
// on each other are told once, and one may be told that is as it was.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <absl/container/flat_hash_set.h>

#include "runtime/shm/TableReader.h"

namespace VeskSharedMem {

class RowFollower {
 public:
  explicit RowFollower(std::unique_ptr<TableReader> reader);
  /// Goes on with another file of the same layout: what it holds is compared with what was told.
  void readerIs(std::unique_ptr<TableReader> reader);

  /// Calls f(key, state, value) for each key that may have changed; the state is live, corrupt or,
  /// with an empty value, missing. Returns false if nothing was new. Of a file that is not sound
  /// any more nothing is told: whoever looks for files finds it replaced.
  template <class F>
  bool follow(F f);
  /// Calls f(key) for each key that was told last as present, and for those that wait to be told.
  /// The file may be gone by now.
  template <class F>
  void forEachKnown(F f) const;
  /// True if `follow` has something to tell.
  [[nodiscard]] bool hasNews() const {
    return (isScanDue_ || !touched_.empty() || !isCaughtUp()) && reader_->isSound();
  }
  /// The next call tells every key again.
  void lookAgain() { isScanDue_ = true; }

  [[nodiscard]] const TableReader& reader() const { return *reader_; }
  [[nodiscard]] const TableCursor& cursor() const { return cursor_; }

 private:
  /// What the row numbers stood for: the keys of all rows in one block, since a table may have a
  /// hundred thousand.
  class KnownKeys {
   public:
    explicit KnownKeys(std::size_t keySize) : keySize_(keySize) {}
    /// Empty if the number has none.
    [[nodiscard]] std::string_view at(std::uint32_t number) const;
    void set(std::uint32_t number, std::string_view key);
    void forget(std::uint32_t number);
    void clear();
    [[nodiscard]] std::uint32_t end() const { return static_cast<std::uint32_t>(isUsed_.size()); }

   private:
    std::size_t keySize_;
    std::string bytes_;
    std::vector<bool> isUsed_;
  };

  [[nodiscard]] bool isCaughtUp() const { return reader_->isCaughtUp(cursor_); }
  /// Collects the keys that the journal names; false if it does not reach back far enough.
  bool readJournal();
  void noteRow(std::uint32_t number, RowState state, std::string_view key);
  void noteKey(std::uint32_t number, std::string_view key);
  void touch(std::string_view key);
  /// The keys that were known before the scan that comes now.
  [[nodiscard]] absl::flat_hash_set<std::string> beginScan();

  template <class F>
  void tellTouched(F& f);
  template <class F>
  void scan(F& f);

  [[nodiscard]] std::string_view keyAt(const std::byte* bytes) const {
    return {reinterpret_cast<const char*>(bytes), reader_->shape().keySize};
  }
  [[nodiscard]] std::string_view valueAt(const std::byte* bytes) const {
    return {reinterpret_cast<const char*>(bytes), reader_->shape().valueSize};
  }

  std::unique_ptr<TableReader> reader_;
  TableCursor cursor_;
  bool isScanDue_ = true;
  KnownKeys known_;
  std::vector<std::string> touched_;  ///< in order of change
  absl::flat_hash_set<std::string> touchedKeys_;
  std::string value_;  ///< of the key that is being told
};

template <class F>
bool RowFollower::follow(F f) {
  if (!hasNews()) return false;
  // An index under repair answers a question by looking through all rows: better to look once.
  if (isScanDue_ || !readJournal() || reader_->isIndexUnderRepair()) {
    scan(f);
  } else {
    tellTouched(f);
  }
  return true;
}

template <class F>
void RowFollower::forEachKnown(F f) const {
  for (std::uint32_t number = 0; number < known_.end(); ++number)
    if (const auto key = known_.at(number); !key.empty()) f(key);
  for (const std::string& key : touched_)
    f(std::string_view(key));
}

/// The present row is asked for by its key: the journal's numbers may have other keys by now, and
/// a key may have moved to another number.
template <class F>
void RowFollower::tellTouched(F& f) {
  std::vector<std::string> keys;
  keys.swap(touched_);
  touchedKeys_.clear();
  for (const std::string& key : keys) {
    const RowState state = reader_->find(key.data(), value_.data());
    if (state == RowState::busy || !reader_->isSound()) {
      touch(key);  // the writer hammers on it, or the file has been cut short
    } else {
      // It may have come to this number since the journal was read, and go from there before the
      // journal is read again.
      if (state != RowState::missing) noteKey(reader_->foundRow(), key);
      f(std::string_view(key), state,
        state == RowState::missing ? std::string_view() : std::string_view(value_));
    }
  }
}

template <class F>
void RowFollower::scan(F& f) {
  absl::flat_hash_set<std::string> gone = beginScan();
  // A row that is too busy to be read changes after the cursor was taken, and so comes again.
  const std::uint32_t busy = reader_->forEach(
      [&](std::uint32_t number, const std::byte* key, const std::byte* value, bool isCorrupt) {
        known_.set(number, keyAt(key));
        gone.erase(absl::string_view(keyAt(key).data(), keyAt(key).size()));
        f(keyAt(key), isCorrupt ? RowState::corrupt : RowState::live, valueAt(value));
      },
      TableReader::Check::checksum);
  const bool isSound = reader_->isSound();
  for (const std::string& key : gone) {
    if (busy == 0 && isSound) {
      f(std::string_view(key), RowState::missing, std::string_view());
    } else {
      touch(key);
    }
  }
}

}  // namespace VeskSharedMem
