// The bytes of a shared table file: header, sections, row word, index slot, hash and checksum.
// Owns nothing; it turns a shape into offsets and checks a header that came from a file.
// Reads: header bytes that nobody has vouched for. Writes: nothing.
// Caveat: every offset and bit here is a format shared with other processes; a change to any of
// them needs a new kFormatVersion, and docs/shared-tables.md says the same things in prose.
#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

namespace VeskSharedMem {

class TableError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What the creator of a table decides; the signature stands for the meaning of the row's bytes.
struct TableShape {
  uint32_t keySize = 0;
  uint32_t valueSize = 0;
  uint32_t capacity = 0;
  uint64_t signature = 0;

  bool operator==(const TableShape&) const = default;
};

enum class RowState {
  missing,
  live,
  corrupt,
  busy,  // readers only: the writer changed the row on each of a bounded number of attempts
};

inline constexpr std::array<char, 8> kMagic = {'V', 'e', 's', 'k', 'T', 'a', 'b', '\n'};
inline constexpr uint32_t kFormatVersion = 2;
inline constexpr uint32_t kByteOrderMark = 0x01020304;
inline constexpr uint32_t kMaxKeySize = 1U << 12;
inline constexpr uint32_t kMaxValueSize = 1U << 16;
inline constexpr uint32_t kMaxCapacity = 1U << 28;

struct TableHeader {
  // Written once, before the file gets its name.
  std::array<char, 8> magic;
  uint32_t formatVersion;
  uint32_t byteOrderMark;
  uint64_t signature;
  uint32_t keySize;
  uint32_t valueSize;
  uint32_t capacity;
  uint32_t rowStride;
  uint32_t indexSlots;
  uint32_t journalSlots;
  uint64_t undoOffset;
  uint64_t rowsOffset;
  uint64_t indexOffset;
  uint64_t journalOffset;
  uint64_t fileSize;
  std::array<uint64_t, 5> reserved;

  // Written by the writer only.
  uint64_t journalHead;   // changes announced since the file was made
  uint32_t rowCount;      // live and corrupt rows
  uint32_t highWater;     // every row number in use is below
  uint32_t indexVersion;  // odd: the index is being rebuilt, scan the rows instead
  uint32_t writerPid;     // for messages; the claim itself is a lock on another file
  uint64_t writerEpoch;   // changes with each writer
};
static_assert(offsetof(TableHeader, signature) == 16);
static_assert(offsetof(TableHeader, undoOffset) == 48);
static_assert(offsetof(TableHeader, journalHead) == 128);
static_assert(offsetof(TableHeader, writerEpoch) == 152);
static_assert(sizeof(TableHeader) == 160);

// A row's word: bit 0 is "being written", bits 1-2 the state the row had at its last commit, the
// rest counts the changes. Keeping the old state under the busy bit is what lets anybody tell an
// unfinished insert (nothing there yet) from an unfinished update (the undo area has the row).
struct RowWord {
  static constexpr uint32_t kBusy = 1;
  static constexpr uint32_t kStateMask = 6;
  static constexpr uint32_t kFree = 0;
  static constexpr uint32_t kLive = 2;
  static constexpr uint32_t kCorrupt = 4;
  static constexpr uint32_t kCountStep = 8;

  static constexpr uint32_t state(uint32_t word) { return word & kStateMask; }
  static constexpr bool isBusy(uint32_t word) { return (word & kBusy) != 0; }
  static constexpr uint32_t committed(uint32_t before, uint32_t state) {
    return ((before & ~(kStateMask | kBusy)) + kCountStep) | state;
  }
};

// Mapped memory is shared with processes whose stores race with our loads, so each access to a
// word that stands for itself is atomic. The cast drops const because C++20 has no atomic view of
// it; a read-only mapping is only ever loaded from.
template <class Word>
std::atomic_ref<Word> sharedWord(const Word& word) {
  return std::atomic_ref<Word>(const_cast<Word&>(word));
}

// One row, or the undo area, which has a row's form with "row number + 1" for its word. The bytes
// are copied plainly, between fences: the row's word tells afterwards whether the copy is good.
struct RowView {
  std::byte* base;

  std::atomic_ref<uint32_t> word() const { return half(0); }
  std::atomic_ref<uint32_t> checksum() const { return half(1); }
  std::byte* bytes() const { return base + 8; }

 private:
  std::atomic_ref<uint32_t> half(size_t which) const {
    return std::atomic_ref<uint32_t>(reinterpret_cast<uint32_t*>(base)[which]);
  }
};

uint64_t hashBytes(const void* bytes, size_t size);

struct TableLayout {
  TableShape shape;
  uint32_t payloadSize = 0;  // key and value, padded with zeros to eight bytes
  uint32_t rowStride = 0;
  uint32_t indexSlots = 0;
  uint32_t journalSlots = 0;
  uint32_t rowMask = 0;  // bits of an index slot that hold row number + 1; the others tag it
  uint64_t undoOffset = 0;
  uint64_t rowsOffset = 0;
  uint64_t indexOffset = 0;
  uint64_t journalOffset = 0;
  uint64_t fileSize = 0;

  // Throws TableError when the shape is out of bounds; the path is for the message.
  static TableLayout of(const std::string& path, const TableShape& shape);
  // The layout of an existing file, once everything that is relied on has been compared.
  // `expected` may be null for a reader that takes any table; its capacity is not looked at, since
  // a table grows.
  static TableLayout checked(const std::string& path, const TableHeader& header,
                             uint64_t fileLength, const TableShape* expected);
  TableHeader freshHeader() const;

  uint32_t homeSlot(uint64_t hash) const {
    return static_cast<uint32_t>(((hash >> 32) * indexSlots) >> 32);
  }
  uint32_t slotEntry(uint64_t hash, uint32_t row) const {
    return (static_cast<uint32_t>(hash) & ~rowMask) | (row + 1);
  }
  bool slotMatches(uint32_t entry, uint64_t hash) const {
    return ((entry ^ static_cast<uint32_t>(hash)) & ~rowMask) == 0;
  }
  uint32_t slotRow(uint32_t entry) const { return (entry & rowMask) - 1; }
  uint32_t nextSlot(uint32_t slot) const { return slot + 1 == indexSlots ? 0 : slot + 1; }
  // Takes the key's hash because a lookup has it at hand.
  uint32_t checksumOf(uint64_t keyHash, const void* value) const {
    return static_cast<uint32_t>(keyHash ^ std::rotl(hashBytes(value, shape.valueSize), 17));
  }
  uint64_t hashOfKey(const void* key) const { return hashBytes(key, shape.keySize); }
};

// The last one to seven bytes of a run as a word padded with zeros. Composed from whole loads:
// copying so few bytes into a variable and loading that stalls for longer than a hash step takes.
inline uint64_t loadTail(const std::byte* at, size_t size) {
  if (size >= 4) {
    uint32_t low = 0;
    uint32_t high = 0;
    std::memcpy(&low, at, 4);
    std::memcpy(&high, at + size - 4, 4);
    return low | uint64_t{high} << ((size - 4) * 8);
  }
  const auto byte = [at](size_t i) { return std::to_integer<uint64_t>(at[i]) << (i * 8); };
  return byte(0) | byte(size / 2) | byte(size - 1);
}

inline uint64_t hashBytes(const void* bytes, size_t size) {
  constexpr uint64_t kStart = 0x9e3779b97f4a7c15;
  constexpr uint64_t kStep = 0xd6e8feb86659fd93;
  constexpr uint64_t kEnd = 0xa0761d6478bd642f;
  const auto* at = static_cast<const std::byte*>(bytes);
  uint64_t hash = (size + 1) * kStart;
  const auto mix = [&hash](uint64_t word) {
    hash = (hash ^ word) * kStep;
    hash ^= hash >> 32;
  };
  for (; size >= 8; size -= 8, at += 8) {
    uint64_t word = 0;
    std::memcpy(&word, at, 8);
    mix(word);
  }
  if (size > 0) mix(loadTail(at, size));
  hash *= kEnd;
  return hash ^ (hash >> 29);
}

}  // namespace VeskSharedMem
