// The one process that changes a shared table: puts, erases, repairs on opening.
// Owns: the claim on the table while it lives, and the list of free rows.
// Reads: what an earlier writer left behind, however that ended.
// Writes: rows, index, journal and counts, in an order that leaves every row old or new at any
// instant; see docs/shared-tables.md. Caveats: one thread at a time. What another process scribbles
// into the file costs rows, never this process: the counters are our own, and row numbers that come
// out of the file are looked at before use.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "runtime/shm/TableBell.h"
#include "runtime/shm/TableClaim.h"
#include "runtime/shm/TableFile.h"

namespace VeskSharedMem {

class TableWriter {
 public:
  enum class Put { inserted, updated, unchanged, full };

  // Opens the table or creates it. Throws TableError when the file is not such a table or when
  // another writer holds it.
  static std::unique_ptr<TableWriter> open(const std::string& path, const TableShape& shape);
  ~TableWriter();
  TableWriter(const TableWriter&) = delete;
  TableWriter& operator=(const TableWriter&) = delete;

  // A row with equal bytes is left alone, unless it is corrupt: then it is written anew. A full
  // table gives the places of corrupt rows away. Throws TableError if the file system has no room
  // for the table's first row.
  Put put(const void* key, const void* value);
  // A table of more rows takes this one's place, with the same rows under the same numbers; readers
  // find another file under the name. Throws TableError, and all is as before.
  void growTo(uint32_t capacity);
  bool erase(const void* key);
  // Returns missing, live or corrupt. A corrupt row's value is copied too, as it stands.
  RowState find(const void* key, void* value) const;
  bool markCorrupt(const void* key);

  // Calls f(key, value, corrupt) for every row; f may erase the row that it is given.
  template <class Function>
  void forEach(Function f) const;

  // The end of a batch: rouses the readers that sleep. One system call at most, none usually.
  void wakeReaders();

  // Others have removed, replaced or cut short the file, or its bell: nobody sees what is put here,
  // or nobody hears of it.
  bool isLost() const;
  // Puts another file there, and claims it again if need be; a table that others have put there is
  // taken over with its rows. Throws TableError, and may be asked again.
  void makeAnew();

  // The writer's name comes off the file, at an end in order.
  void signOff();

  uint32_t size() const { return rowCount_; }
  uint32_t capacity() const { return layout_.shape.capacity; }
  const TableShape& shape() const { return layout_.shape; }
  const std::string& path() const { return file_.path(); }

 private:
  struct Place {
    uint32_t slot;
    uint32_t row;  // kNoRow: the slot is empty
  };
  static constexpr uint32_t kNoRow = UINT32_MAX;

  // Neither claims nor rings.
  explicit TableWriter(TableFile file);

  TableHeader& header() const { return file_.header(); }
  void swapTable(TableWriter& other);
  void recover();
  void undoUnfinished();
  void clearIndex();
  void settleRows();
  void reserve();
  void indexRow(uint32_t number, uint64_t hash);

  Place locate(const void* key, uint64_t hash) const;
  uint32_t stateOf(uint32_t number) const;
  const std::byte* valueOf(RowView row) const { return row.bytes() + layout_.shape.keySize; }
  bool isIntact(RowView row, uint64_t keyHash) const;
  bool isUsable(uint32_t number) const;
  void insertRow(uint32_t number, Place place, uint64_t hash, const void* key, const void* value);
  void updateRow(uint32_t number, uint32_t checksum, const void* value);
  void copyRow(RowView to, RowView from);
  void storeValue(RowView row, uint32_t checksum, const void* value);
  uint32_t takeFreeRow();
  void listFreeRow(uint32_t number);
  bool dropCorruptRow();
  void freeRow(uint32_t number);
  void dropSlot(uint32_t slot);
  void storeSlotAfterBump(uint32_t slot, uint32_t entry);
  void setRowState(uint32_t number, uint32_t state);
  void setRowCount(uint32_t count);
  void announce(uint32_t number);
  void beginIndexRebuild();
  void endIndexRebuild();

  TableClaim claim_;
  TableBell bell_;
  TableFile file_;
  TableLayout layout_;
  uint64_t journalHead_;
  uint32_t highWater_;
  // Slot at which the search for a row's key starts, by row number: closing a gap in the index asks
  // for it, and the rows themselves are far apart in memory.
  std::vector<uint32_t> homes_;
  uint32_t indexVersion_;
  // Until there is a first row nothing behind the header is touched, so that a table without rows
  // takes next to no room and no time.
  bool isReserved_ = false;
  uint32_t rowCount_ = 0;
  bool mayHaveCorrupt_ = false;
  uint32_t freeRow_ = kNoRow;  // the rest of the list goes through the free rows' checksum words
};

template <class Function>
void TableWriter::forEach(Function f) const {
  for (uint32_t number = 0; number < highWater_; ++number) {
    const uint32_t state = stateOf(number);
    if (state == RowWord::kFree) continue;
    const std::byte* key = file_.row(number).bytes();
    f(key, key + layout_.shape.keySize, state == RowWord::kCorrupt);
  }
}

}  // namespace VeskSharedMem
