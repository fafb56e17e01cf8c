// The right to write a table, which one process has at a time.
// Owns: a lock on `<table>.lock`, a file that none but its owner can open, so that no stranger can
// hold the lock; the kernel gives it back with the process, however that ends. Writes: its process
// id into that file, for messages. Caveat: the file is never removed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "runtime/shm/FileDescriptor.h"

namespace VeskSharedMem {

class TableClaim {
 public:
  // Claims nothing.
  TableClaim() = default;
  // Throws TableError if another holds the table: with its process id, if that process lives.
  explicit TableClaim(const std::string& path);

  // The lock is still on the file that others would lock.
  bool isSound() const { return isSameFile(lock_.get(), file_); }

  // The process that holds the table at this path, 0 if it has not said its name; none if nobody
  // does, or if this process may not ask.
  static std::optional<uint32_t> holderOf(const std::string& path);

 private:
  std::string file_;
  FileDescriptor lock_;
};

}  // namespace VeskSharedMem
