// A shared table file as an open, checked and mapped object; all of its sections by address.
// Owns: the descriptor (and with it a writer's claim) and the mappings of one process.
// Reads: the file's header, which it trusts only after TableLayout::checked.
// Writes: a new file, under a temporary name until it is whole; nothing in an existing one.
// Caveats: a table is never shortened in place. To replace one, unlink it and create it anew, or
// build the new one beside it and let that take its place. A new one is its header and a hole:
// whoever stores anything else in it reserves its blocks first.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "runtime/shm/PageGuard.h"
#include "runtime/shm/TableLayout.h"

namespace VeskSharedMem {

// Closes on destruction, which also gives back a claim held through it.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd = -1) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  ~FileDescriptor() { reset(); }

  int get() const { return fd_; }
  bool isOpen() const { return fd_ >= 0; }
  void reset();

 private:
  int fd_;
};

class MappedBytes {
 public:
  MappedBytes() = default;
  // Maps the file from its start; `base()` is null when the kernel refuses.
  MappedBytes(int fd, uint64_t size, int protection);
  MappedBytes(MappedBytes&& other) noexcept
      : base_(std::exchange(other.base_, nullptr)),
        size_(std::exchange(other.size_, 0)),
        guard_(std::move(other.guard_)) {}
  MappedBytes& operator=(MappedBytes&& other) noexcept;
  ~MappedBytes() { reset(); }

  std::byte* base() const { return base_; }
  // The file was cut short: some of it reads as zeros, and what is stored there is lost.
  bool isTorn() const { return guard_ != nullptr && guard_->isTorn(); }

 private:
  void reset();

  std::byte* base_ = nullptr;
  uint64_t size_ = 0;
  std::unique_ptr<PageGuard> guard_;
};

class TableFile {
 public:
  // Opens or creates the table and claims it for this process; both throw TableError. One that is
  // there keeps its capacity.
  static TableFile forWriter(const std::string& path, const TableShape& shape);
  // A successor of the table that this process has claimed: a header and a hole under a temporary
  // name, claimed as well. Throws TableError.
  static TableFile beside(const std::string& path, const TableShape& shape);
  // The successor gets the table's name, in one step. Throws TableError.
  void takePlace() const;
  // There will be no successor.
  void discard() const;
  // Takes the name off a file that this process has claimed and that is of no use any more.
  void removeName() const;
  // `expected` may be null: any table will do.
  static TableFile forReader(const std::string& path, const TableShape* expected);
  // The process that has claimed the file at this path, 0 if it has not said its name; none if
  // nobody has. Asks the kernel and throws nothing, whatever the file is.
  static std::optional<uint32_t> holderOf(const std::string& path);

  const std::string& path() const { return path_; }
  const TableLayout& layout() const { return layout_; }

  TableHeader& header() const { return *reinterpret_cast<TableHeader*>(bytes_.base()); }
  RowView row(uint32_t number) const { return RowView{rows_ + size_t{number} * layout_.rowStride}; }
  RowView undo() const { return RowView{bytes_.base() + layout_.undoOffset}; }
  uint32_t* index() const { return index_; }
  uint32_t* journal() const { return journal_; }
  // The header once more, writable for readers as well where the file's mode permits that; null
  // otherwise. Readers touch nothing in it but the two words about sleeping.
  TableHeader* bell() const;

  // True if nothing was ever stored behind the header. False where the file system cannot tell.
  bool isBlank() const;
  // Real blocks for all of the file, or a full disk would become a SIGBUS in the middle of an
  // insert. Throws TableError if there is no room.
  void reserve() const;
  // Asks the kernel, so the answer does not fall for a recycled pid.
  bool isClaimed() const;
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
  MappedBytes bell_;
  bool writable_;
  std::byte* rows_ = nullptr;
  uint32_t* index_ = nullptr;
  uint32_t* journal_ = nullptr;
};

}  // namespace VeskSharedMem
