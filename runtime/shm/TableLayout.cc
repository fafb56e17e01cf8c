#include "runtime/shm/TableLayout.h"

#include <algorithm>
#include <bit>
#include <string_view>

#include <fmt/format.h>

namespace VeskSharedMem {
namespace {

constexpr uint64_t kHeaderBytes = 4096;
constexpr uint32_t kLeastJournal = 64;

constexpr uint64_t roundUp(uint64_t size, uint64_t step) {
  return (size + step - 1) / step * step;
}

template <class Number>
void require(const std::string& path, std::string_view what, Number expected, Number found) {
  if (expected != found) {
    throw TableError(
        fmt::format("shared table {}: expected {} {}, found {}", path, what, expected, found));
  }
}

void requireRange(const std::string& path, std::string_view what, uint32_t low, uint32_t high,
                  uint32_t found) {
  if (found < low || found > high) {
    throw TableError(fmt::format("shared table {}: expected a {} between {} and {}, found {}", path,
                                 what, low, high, found));
  }
}

}  // namespace

TableLayout TableLayout::of(const std::string& path, const TableShape& shape) {
  requireRange(path, "key size", 1, kMaxKeySize, shape.keySize);
  requireRange(path, "value size", 0, kMaxValueSize, shape.valueSize);
  requireRange(path, "capacity", 1, kMaxCapacity, shape.capacity);
  // The limits above keep every product below 2^46: nothing after this line can overflow.
  TableLayout layout;
  layout.shape = shape;
  layout.payloadSize = static_cast<uint32_t>(roundUp(shape.keySize + shape.valueSize, 8));
  layout.rowStride = 8 + layout.payloadSize;
  layout.indexSlots = shape.capacity + shape.capacity / 2 + 1;
  layout.journalSlots = std::bit_ceil(std::max(kLeastJournal, shape.capacity / 4));
  layout.rowMask = (1U << std::bit_width(shape.capacity)) - 1;
  layout.undoOffset = kHeaderBytes;
  layout.rowsOffset = roundUp(layout.undoOffset + layout.rowStride, 64);
  layout.indexOffset = roundUp(layout.rowsOffset + uint64_t{layout.rowStride} * shape.capacity, 64);
  layout.journalOffset = roundUp(layout.indexOffset + uint64_t{layout.indexSlots} * 4, 64);
  layout.fileSize = layout.journalOffset + uint64_t{layout.journalSlots} * 4;
  return layout;
}

TableLayout TableLayout::checked(const std::string& path, const TableHeader& header,
                                 uint64_t fileLength, const TableShape* expected) {
  if (header.magic != kMagic) {
    throw TableError(
        fmt::format("shared table {}: expected the magic {:02x}, found {:02x}: not a shared table",
                    path, fmt::join(kMagic, ""), fmt::join(header.magic, "")));
  }
  require(path, "byte order mark", kByteOrderMark, header.byteOrderMark);
  require(path, "format version", kFormatVersion, header.formatVersion);
  const TableShape shape{header.keySize, header.valueSize, header.capacity, header.signature};
  if (expected != nullptr) {
    require(path, "layout signature", expected->signature, shape.signature);
    require(path, "key size", expected->keySize, shape.keySize);
    require(path, "value size", expected->valueSize, shape.valueSize);
  }
  const TableLayout layout = of(path, shape);
  require(path, "row stride", layout.rowStride, header.rowStride);
  require(path, "index slots", layout.indexSlots, header.indexSlots);
  require(path, "journal slots", layout.journalSlots, header.journalSlots);
  require(path, "undo offset", layout.undoOffset, header.undoOffset);
  require(path, "rows offset", layout.rowsOffset, header.rowsOffset);
  require(path, "index offset", layout.indexOffset, header.indexOffset);
  require(path, "journal offset", layout.journalOffset, header.journalOffset);
  require(path, "recorded file size", layout.fileSize, header.fileSize);
  require(path, "file length", layout.fileSize, fileLength);
  if (header.highWater > shape.capacity) {
    throw TableError(fmt::format("shared table {}: expected at most {} rows in use, found {}", path,
                                 shape.capacity, header.highWater));
  }
  return layout;
}

TableHeader TableLayout::freshHeader() const {
  TableHeader header{};
  header.magic = kMagic;
  header.formatVersion = kFormatVersion;
  header.byteOrderMark = kByteOrderMark;
  header.signature = shape.signature;
  header.keySize = shape.keySize;
  header.valueSize = shape.valueSize;
  header.capacity = shape.capacity;
  header.rowStride = rowStride;
  header.indexSlots = indexSlots;
  header.journalSlots = journalSlots;
  header.undoOffset = undoOffset;
  header.rowsOffset = rowsOffset;
  header.indexOffset = indexOffset;
  header.journalOffset = journalOffset;
  header.fileSize = fileSize;
  return header;
}

}  // namespace VeskSharedMem
