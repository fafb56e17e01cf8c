// A shared table file as an open, checked and mapped object; all of its sections by address.
// Owns: the descriptor and the mapping of one process.
// Reads: the file's header, which it trusts only after TableLayout::checked.
// Writes: a new file, under a temporary name until it is whole; nothing in an existing one.
// Caveats: a table is never shortened in place. To replace one, unlink it and create it anew, or
// build the new one beside it and let that take its place. A new one is its header and a hole:
// whoever stores anything else in it reserves its blocks first.
#pragma once

#include <cstdint>
#include <string>

#include "runtime/shm/FileDescriptor.h"
#include "runtime/shm/MappedBytes.h"
#include "runtime/shm/TableLayout.h"

namespace VeskSharedMem {

class TableFile {
 public:
  // Opens or creates the table, which this process has claimed; both throw TableError. One that is
  // there keeps its capacity.
  static TableFile forWriter(const std::string& path, const TableShape& shape);
  // A successor of the table: a header and a hole under a temporary name. Throws TableError.
  static TableFile beside(const std::string& path, const TableShape& shape);
  // The successor gets the table's name, in one step. Throws TableError.
  void takePlace() const;
  // There will be no successor.
  void discard() const;
  // Takes the name off a file that is of no use any more.
  void removeName() const;
  // `expected` may be null: any table will do.
  static TableFile forReader(const std::string& path, const TableShape* expected);

  const std::string& path() const { return path_; }
  const TableLayout& layout() const { return layout_; }

  TableHeader& header() const { return *reinterpret_cast<TableHeader*>(bytes_.base()); }
  RowView row(uint32_t number) const { return RowView{rows_ + size_t{number} * layout_.rowStride}; }
  RowView undo() const { return RowView{bytes_.base() + layout_.undoOffset}; }
  uint32_t* index() const { return index_; }
  uint32_t* journal() const { return journal_; }

  // True if nothing was ever stored behind the header. False where the file system cannot tell.
  bool isBlank() const;
  // Real blocks for all of the file, or a full disk would become a SIGBUS in the middle of an
  // insert. Throws TableError if there is no room.
  void reserve() const;
  // What is mapped is still the table that was opened: nobody has cut it short or written another
  // one over it.
  bool isSound() const;
  // The path leads to another file by now, or to none, or what is mapped is no longer sound.
  bool isReplaced() const;

 private:
  TableFile(std::string path, FileDescriptor fd, const TableLayout& layout, bool writable);

  std::string path_;
  FileDescriptor fd_;
  TableLayout layout_;
  MappedBytes bytes_;
  std::byte* rows_ = nullptr;
  uint32_t* index_ = nullptr;
  uint32_t* journal_ = nullptr;
};

}  // namespace VeskSharedMem
