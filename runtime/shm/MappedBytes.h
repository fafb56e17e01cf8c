// The bytes of a file in memory, shared with every process that has them too.
// Owns: the mapping. Caveat: a file that others cut short reads as zeros where it is no more.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "runtime/shm/PageGuard.h"

namespace VeskSharedMem {

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

}  // namespace VeskSharedMem
