#include "runtime/shm/RowFollower.h"

#include <utility>

namespace VeskSharedMem {

std::string_view RowFollower::KnownKeys::at(std::uint32_t number) const {
  if (number >= isUsed_.size() || !isUsed_[number]) return {};
  return std::string_view(bytes_).substr(number * keySize_, keySize_);
}

void RowFollower::KnownKeys::set(std::uint32_t number, std::string_view key) {
  if (number >= isUsed_.size()) {
    isUsed_.resize(number + std::size_t{1});
    bytes_.resize(isUsed_.size() * keySize_);
  }
  isUsed_[number] = true;
  bytes_.replace(number * keySize_, keySize_, key);
}

void RowFollower::KnownKeys::forget(std::uint32_t number) {
  if (number < isUsed_.size()) isUsed_[number] = false;
}

void RowFollower::KnownKeys::clear() {
  isUsed_.clear();
  bytes_.clear();
}

RowFollower::RowFollower(std::unique_ptr<TableReader> reader)
    : reader_(std::move(reader)),
      known_(reader_->shape().keySize),
      value_(reader_->shape().valueSize, '\0') {}

void RowFollower::readerIs(std::unique_ptr<TableReader> reader) {
  reader_ = std::move(reader);
  isScanDue_ = true;
}

bool RowFollower::readJournal() {
  const auto changes =
      reader_->changesSince(cursor_, [&](std::uint32_t number, RowState state, const std::byte* key,
                                         const std::byte*) { noteRow(number, state, keyAt(key)); });
  return changes == TableReader::Changes::ok;
}

void RowFollower::noteRow(std::uint32_t number, RowState state, std::string_view key) {
  const std::string_view former = known_.at(number);
  if (state == RowState::missing) {
    if (former.empty()) return;
    touch(former);
    known_.forget(number);
    return;
  }
  noteKey(number, key);
  touch(key);
}

void RowFollower::noteKey(std::uint32_t number, std::string_view key) {
  const std::string_view former = known_.at(number);
  if (former == key) return;
  if (!former.empty()) touch(former);
  known_.set(number, key);
}

void RowFollower::touch(std::string_view key) {
  if (touchedKeys_.emplace(key).second) touched_.emplace_back(key);
}

absl::flat_hash_set<std::string> RowFollower::beginScan() {
  isScanDue_ = false;
  absl::flat_hash_set<std::string> keys = std::exchange(touchedKeys_, {});
  touched_.clear();
  forEachKnown([&](std::string_view key) { keys.emplace(key); });
  known_.clear();
  cursor_ = reader_->cursor();
  return keys;
}

}  // namespace VeskSharedMem
