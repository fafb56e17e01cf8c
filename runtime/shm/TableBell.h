// The words by which a table's writer rouses readers that sleep: `<table>.wake`, eight bytes that
// any process may write, so that the table itself needs no writing by readers.
// Owns: a mapping of them. Made by the writer, and left where it is when a table takes another's
// place. Caveat: any reader may scribble there; that costs others their sleep or a late awakening,
// which is why nobody sleeps without a timeout.
#pragma once

#include <cstdint>
#include <string>

#include "runtime/shm/FileDescriptor.h"
#include "runtime/shm/MappedBytes.h"

namespace VeskSharedMem {

class TableBell {
 public:
  struct Words {
    uint32_t wakeWord;
    uint32_t sleeping;
  };

  TableBell() = default;
  // Makes the file if there is none that serves. Throws TableError.
  static TableBell forWriter(const std::string& path);
  // Without words if there is no such file, or none that this process may write.
  static TableBell forReader(const std::string& path);

  // The file is still there, in its length: those who come now find the same words.
  bool isSound() const;
  // Null: the one who would sleep has to look from time to time.
  Words* words() const {
    return bytes_.isTorn() ? nullptr : reinterpret_cast<Words*>(bytes_.base());
  }

 private:
  TableBell(std::string file, FileDescriptor fd);

  std::string file_;
  FileDescriptor fd_;
  MappedBytes bytes_;
};

}  // namespace VeskSharedMem
