#include "runtime/shm/TableWriter.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <linux/futex.h>
#include <span>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace VeskSharedMem {
namespace {

// A table without values may be given null for them.
bool isEqual(const void* one, const void* other, size_t size) {
  return size == 0 || std::memcmp(one, other, size) == 0;
}

}  // namespace

std::unique_ptr<TableWriter> TableWriter::open(const std::string& path, const TableShape& shape) {
  TableClaim claim(path);
  TableBell bell = TableBell::forWriter(path);
  std::unique_ptr<TableWriter> writer(new TableWriter(TableFile::forWriter(path, shape)));
  writer->claim_ = std::move(claim);
  writer->bell_ = std::move(bell);
  writer->recover();
  return writer;
}

TableWriter::TableWriter(TableFile file)
    : file_(std::move(file)),
      layout_(file_.layout()),
      journalHead_(file_.header().journalHead),
      highWater_(std::min(file_.header().highWater, layout_.shape.capacity)),
      indexVersion_(file_.header().indexVersion) {}

TableWriter::~TableWriter() {
  signOff();
}

void TableWriter::signOff() {
  // A forked child that drops its copy must not take the name off its parent's claim.
  const auto pid = static_cast<uint32_t>(getpid());
  if (header().writerPid == pid) sharedWord(header().writerPid).store(0);
}

// Opening after any end of the writer before us. Nothing but the rows is believed: the index, the
// free list and the count follow from them. Each step may be cut short and done again.
void TableWriter::recover() {
  if (highWater_ != 0 || !file_.isBlank()) {
    reserve();
    undoUnfinished();
    beginIndexRebuild();
    clearIndex();
    settleRows();
    endIndexRebuild();
  }
  // Changes from before may have missed the journal; a new epoch tells every reader to rescan.
  sharedWord(header().writerEpoch).fetch_add(1, std::memory_order_release);
  wakeReaders();
}

void TableWriter::undoUnfinished() {
  const RowView undo = file_.undo();
  const uint32_t saved = undo.word().load(std::memory_order_acquire);
  if (saved != 0 && saved <= highWater_) {
    const RowView row = file_.row(saved - 1);
    const uint32_t word = row.word().load(std::memory_order_relaxed);
    if (RowWord::isBusy(word) && RowWord::state(word) != RowWord::kFree) {
      copyRow(row, undo);
      row.word().store(RowWord::committed(word, RowWord::state(word)), std::memory_order_release);
    }
  }
  undo.word().store(0, std::memory_order_release);
}

// An index is sized for a full table, so most of it is empty, and to read a page costs a fraction
// of what it costs to write it. Read plainly: this process alone writes it.
void TableWriter::clearIndex() {
  constexpr uint32_t kBlock = 1024;
  for (uint32_t from = 0; from < layout_.indexSlots; from += kBlock) {
    const std::span block(file_.index() + from, std::min(kBlock, layout_.indexSlots - from));
    uint32_t used = 0;
    for (const uint32_t entry : block)
      used |= entry;
    if (used == 0) continue;
    for (uint32_t& entry : block)
      sharedWord(entry).store(0, std::memory_order_relaxed);
  }
}

void TableWriter::settleRows() {
  // Downwards, so that the free list hands out low numbers first and scans stay short.
  homes_.assign(highWater_, 0);
  for (uint32_t number = highWater_; number-- > 0;) {
    const RowView row = file_.row(number);
    const uint32_t word = row.word().load(std::memory_order_relaxed);
    const uint32_t state = RowWord::state(word);
    // Covers an insert cut short: a busy free row is as free as any.
    if (state == RowWord::kFree) {
      listFreeRow(number);
      continue;
    }
    // Neither a busy row without its undo nor an unknown state comes from a mere kill.
    const uint64_t hash = layout_.hashOfKey(row.bytes());
    const bool isSound = state == RowWord::kLive ? isIntact(row, hash) : state == RowWord::kCorrupt;
    if (RowWord::isBusy(word) || !isSound) setRowState(number, RowWord::kCorrupt);
    mayHaveCorrupt_ = mayHaveCorrupt_ || stateOf(number) == RowWord::kCorrupt;
    indexRow(number, hash);
  }
  sharedWord(header().rowCount).store(rowCount_, std::memory_order_relaxed);
}

// Two rows can claim one key only when memory was damaged. The undamaged one stays.
void TableWriter::indexRow(uint32_t number, uint64_t hash) {
  const Place place = locate(file_.row(number).bytes(), hash);
  uint32_t keeper = number;
  if (place.row != kNoRow) {
    uint32_t loser = place.row;
    if (stateOf(number) == RowWord::kCorrupt) std::swap(keeper, loser);
    freeRow(loser);
  } else {
    ++rowCount_;
  }
  homes_[keeper] = layout_.homeSlot(hash);
  sharedWord(file_.index()[place.slot])
      .store(layout_.slotEntry(hash, keeper), std::memory_order_relaxed);
}

void TableWriter::beginIndexRebuild() {
  indexVersion_ |= 1;
  sharedWord(header().indexVersion).store(indexVersion_, std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_release);
}

void TableWriter::endIndexRebuild() {
  ++indexVersion_;
  sharedWord(header().indexVersion).store(indexVersion_, std::memory_order_release);
}

// An index without an empty slot is damaged; then one entry more or less makes no difference.
TableWriter::Place TableWriter::locate(const void* key, uint64_t hash) const {
  if (!isReserved_) return {0, kNoRow};
  const uint32_t home = layout_.homeSlot(hash);
  uint32_t slot = home;
  do {
    const uint32_t entry = sharedWord(file_.index()[slot]).load(std::memory_order_relaxed);
    if (entry == 0) return {slot, kNoRow};
    const uint32_t number = layout_.slotRow(entry);
    if (layout_.slotMatches(entry, hash) && isUsable(number) &&
        std::memcmp(file_.row(number).bytes(), key, layout_.shape.keySize) == 0) {
      return {slot, number};
    }
    slot = layout_.nextSlot(slot);
  } while (slot != home);
  return {home, kNoRow};
}

bool TableWriter::isLost() const {
  return file_.isReplaced() || !bell_.isSound() || !claim_.isSound();
}

bool TableWriter::isUsable(uint32_t number) const {
  return number < highWater_ && stateOf(number) != RowWord::kFree;
}

uint32_t TableWriter::stateOf(uint32_t number) const {
  return RowWord::state(file_.row(number).word().load(std::memory_order_relaxed));
}

bool TableWriter::isIntact(RowView row, uint64_t keyHash) const {
  return row.checksum().load(std::memory_order_relaxed) ==
         layout_.checksumOf(keyHash, valueOf(row));
}

void TableWriter::reserve() {
  file_.reserve();
  isReserved_ = true;
}

TableWriter::Put TableWriter::put(const void* key, const void* value) {
  if (!isReserved_) reserve();
  const uint64_t hash = layout_.hashOfKey(key);
  Place place = locate(key, hash);
  if (place.row == kNoRow) {
    uint32_t number = takeFreeRow();
    if (number == kNoRow && dropCorruptRow()) {
      number = takeFreeRow();
      place = locate(key, hash);  // the index has moved
    }
    if (number == kNoRow) return Put::full;
    insertRow(number, place, hash, key, value);
    return Put::inserted;
  }
  const uint32_t checksum = layout_.checksumOf(hash, value);
  const RowView row = file_.row(place.row);
  if (stateOf(place.row) == RowWord::kLive &&
      row.checksum().load(std::memory_order_relaxed) == checksum &&
      isEqual(valueOf(row), value, layout_.shape.valueSize)) {
    return Put::unchanged;
  }
  updateRow(place.row, checksum, value);
  return Put::updated;
}

// The row's word commits. Before it the row counts as free, whatever its bytes are, and whatever
// stands in the word of a row that was not in use yet.
void TableWriter::insertRow(uint32_t number, Place place, uint64_t hash, const void* key,
                            const void* value) {
  homes_.resize(std::max<size_t>(homes_.size(), highWater_));
  homes_[number] = layout_.homeSlot(hash);
  const RowView row = file_.row(number);
  const uint32_t word = row.word().load(std::memory_order_relaxed) & ~RowWord::kStateMask;
  row.word().store(word | RowWord::kBusy, std::memory_order_release);
  std::atomic_thread_fence(std::memory_order_release);
  std::memcpy(row.bytes(), key, layout_.shape.keySize);
  storeValue(row, layout_.checksumOf(hash, value), value);
  sharedWord(file_.index()[place.slot])
      .store(layout_.slotEntry(hash, number), std::memory_order_release);
  row.word().store(RowWord::committed(word, RowWord::kLive), std::memory_order_release);
  setRowCount(rowCount_ + 1);
  announce(number);
}

// While the row is busy the undo area holds its last committed version, for a reader that does
// not want to wait and for the writer after us.
void TableWriter::updateRow(uint32_t number, uint32_t checksum, const void* value) {
  const RowView row = file_.row(number);
  const RowView undo = file_.undo();
  std::atomic_thread_fence(std::memory_order_release);
  copyRow(undo, row);
  undo.word().store(number + 1, std::memory_order_release);
  const uint32_t word = row.word().load(std::memory_order_relaxed);
  row.word().store(word | RowWord::kBusy, std::memory_order_release);
  std::atomic_thread_fence(std::memory_order_release);
  storeValue(row, checksum, value);
  row.word().store(RowWord::committed(word, RowWord::kLive), std::memory_order_release);
  undo.word().store(0, std::memory_order_release);
  announce(number);
}

// Whatever cuts this short before the new file has its name leaves the old one as it is. The rows
// start at the same place in both.
void TableWriter::growTo(uint32_t capacity) {
  TableShape shape = layout_.shape;
  shape.capacity = capacity;
  TableWriter grown(TableFile::beside(path(), shape));
  try {
    grown.reserve();
  } catch (const TableError&) {
    grown.file_.discard();
    throw;
  }
  std::memcpy(grown.file_.row(0).base, file_.row(0).base, size_t{highWater_} * layout_.rowStride);
  grown.highWater_ = highWater_;
  sharedWord(grown.header().highWater).store(highWater_, std::memory_order_relaxed);
  grown.settleRows();
  grown.file_.takePlace();
  swapTable(grown);
  // Whoever looks at the old file only sees another epoch, and looks where the name leads.
  sharedWord(grown.header().writerEpoch).fetch_add(1, std::memory_order_release);
  wakeReaders();
}

void TableWriter::makeAnew() {
  if (!claim_.isSound()) claim_ = TableClaim(path());
  if (!bell_.isSound()) bell_ = TableBell::forWriter(path());
  file_.removeName();
  TableWriter fresh(TableFile::forWriter(path(), shape()));
  fresh.recover();
  swapTable(fresh);
  wakeReaders();
}

// All but the claim and the bell, which go with the name.
void TableWriter::swapTable(TableWriter& other) {
  std::swap(file_, other.file_);
  std::swap(layout_, other.layout_);
  std::swap(journalHead_, other.journalHead_);
  std::swap(highWater_, other.highWater_);
  std::swap(homes_, other.homes_);
  std::swap(indexVersion_, other.indexVersion_);
  std::swap(isReserved_, other.isReserved_);
  std::swap(rowCount_, other.rowCount_);
  std::swap(mayHaveCorrupt_, other.mayHaveCorrupt_);
  std::swap(freeRow_, other.freeRow_);
}

void TableWriter::copyRow(RowView to, RowView from) {
  to.checksum().store(from.checksum().load(std::memory_order_relaxed), std::memory_order_relaxed);
  std::memcpy(to.bytes(), from.bytes(), layout_.payloadSize);
}

void TableWriter::storeValue(RowView row, uint32_t checksum, const void* value) {
  row.checksum().store(checksum, std::memory_order_relaxed);
  if (layout_.shape.valueSize == 0) return;
  std::memcpy(row.bytes() + layout_.shape.keySize, value, layout_.shape.valueSize);
}

bool TableWriter::erase(const void* key) {
  const Place place = locate(key, layout_.hashOfKey(key));
  if (place.row == kNoRow) return false;
  freeRow(place.row);
  dropSlot(place.slot);
  setRowCount(std::max(rowCount_, 1U) - 1);
  announce(place.row);
  return true;
}

// kNoRow when the table is full.
uint32_t TableWriter::takeFreeRow() {
  const auto isListed = [this](uint32_t number) {
    return number < highWater_ && stateOf(number) == RowWord::kFree;
  };
  if (!isListed(freeRow_)) {
    if (highWater_ < capacity()) {
      sharedWord(header().highWater).store(highWater_ + 1, std::memory_order_release);
      return highWater_++;
    }
    if (rowCount_ >= capacity()) return kNoRow;
    // The list runs through the file, where somebody has cut it.
    freeRow_ = kNoRow;
    for (uint32_t number = highWater_; number-- > 0;) {
      if (isListed(number)) listFreeRow(number);
    }
    if (freeRow_ == kNoRow) return kNoRow;
  }
  return std::exchange(freeRow_, file_.row(freeRow_).checksum().load(std::memory_order_relaxed));
}

void TableWriter::listFreeRow(uint32_t number) {
  file_.row(number).checksum().store(freeRow_, std::memory_order_relaxed);
  freeRow_ = number;
}

void TableWriter::freeRow(uint32_t number) {
  setRowState(number, RowWord::kFree);
  listFreeRow(number);
}

// The bytes of a corrupt row are worth no more than its place. False if there is none.
bool TableWriter::dropCorruptRow() {
  if (!mayHaveCorrupt_) return false;
  for (uint32_t number = 0; number < highWater_; ++number) {
    if (stateOf(number) != RowWord::kCorrupt) continue;
    const std::byte* const key = file_.row(number).bytes();
    const Place place = locate(key, layout_.hashOfKey(key));
    freeRow(number);
    if (place.row == number) dropSlot(place.slot);
    setRowCount(std::max(rowCount_, 1U) - 1);
    announce(number);
    return true;
  }
  return mayHaveCorrupt_ = false;
}

// Closes the gap by moving later entries of the run back. An entry is copied before its old slot
// changes, so the index is complete after every store; a reader that looks in both places at the
// wrong times sees the version differ.
void TableWriter::dropSlot(uint32_t slot) {
  const uint32_t slots = layout_.indexSlots;
  const auto distance = [slots](uint32_t from, uint32_t to) {
    return to >= from ? to - from : to + slots - from;
  };
  uint32_t hole = slot;
  for (uint32_t at = layout_.nextSlot(slot); at != slot; at = layout_.nextSlot(at)) {
    const uint32_t entry = sharedWord(file_.index()[at]).load(std::memory_order_relaxed);
    if (entry == 0) break;
    const uint32_t number = layout_.slotRow(entry);
    if (!isUsable(number)) continue;
    if (distance(homes_[number], at) < distance(hole, at)) continue;
    storeSlotAfterBump(hole, entry);
    hole = at;
  }
  storeSlotAfterBump(hole, 0);
}

void TableWriter::storeSlotAfterBump(uint32_t slot, uint32_t entry) {
  indexVersion_ += 2;
  sharedWord(header().indexVersion).store(indexVersion_, std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_release);
  sharedWord(file_.index()[slot]).store(entry, std::memory_order_relaxed);
}

RowState TableWriter::find(const void* key, void* value) const {
  const uint64_t hash = layout_.hashOfKey(key);
  const Place place = locate(key, hash);
  if (place.row == kNoRow) return RowState::missing;
  const RowView row = file_.row(place.row);
  if (layout_.shape.valueSize > 0) {
    std::memcpy(value, valueOf(row), layout_.shape.valueSize);
  }
  const bool isGood = stateOf(place.row) == RowWord::kLive && isIntact(row, hash);
  return isGood ? RowState::live : RowState::corrupt;
}

bool TableWriter::markCorrupt(const void* key) {
  const Place place = locate(key, layout_.hashOfKey(key));
  if (place.row == kNoRow) return false;
  setRowState(place.row, RowWord::kCorrupt);
  mayHaveCorrupt_ = true;
  announce(place.row);
  return true;
}

void TableWriter::setRowState(uint32_t number, uint32_t state) {
  const RowView row = file_.row(number);
  const uint32_t word = row.word().load(std::memory_order_relaxed);
  row.word().store(RowWord::committed(word, state), std::memory_order_release);
  // Whatever is written to a row that has just become free must not be seen before that.
  std::atomic_thread_fence(std::memory_order_release);
}

void TableWriter::setRowCount(uint32_t count) {
  rowCount_ = count;
  sharedWord(header().rowCount).store(count, std::memory_order_relaxed);
}

void TableWriter::announce(uint32_t number) {
  sharedWord(file_.journal()[journalHead_ & (layout_.journalSlots - 1)])
      .store(number, std::memory_order_release);
  sharedWord(header().journalHead).store(++journalHead_, std::memory_order_release);
}

// The fence pairs with the one in the reader: either we see that it sleeps or it sees our change.
void TableWriter::wakeReaders() {
  TableBell::Words* const bell = bell_.words();
  if (bell == nullptr) return;
  std::atomic_thread_fence(std::memory_order_seq_cst);
  if (sharedWord(bell->sleeping).load(std::memory_order_relaxed) == 0) return;
  sharedWord(bell->sleeping).store(0, std::memory_order_seq_cst);
  sharedWord(bell->wakeWord).fetch_add(1, std::memory_order_seq_cst);
  syscall(SYS_futex, &bell->wakeWord, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

}  // namespace VeskSharedMem
