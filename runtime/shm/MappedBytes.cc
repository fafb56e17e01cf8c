#include "runtime/shm/MappedBytes.h"

#include <sys/mman.h>

namespace VeskSharedMem {

MappedBytes::MappedBytes(int fd, uint64_t size, int protection) : size_(size) {
  void* base = mmap(nullptr, size, protection, MAP_SHARED, fd, 0);
  if (base == MAP_FAILED) return;
  base_ = static_cast<std::byte*>(base);
  guard_ = std::make_unique<PageGuard>(base_, size_);
}

MappedBytes& MappedBytes::operator=(MappedBytes&& other) noexcept {
  if (this != &other) {
    reset();
    base_ = std::exchange(other.base_, nullptr);
    size_ = std::exchange(other.size_, 0);
    guard_ = std::move(other.guard_);
  }
  return *this;
}

void MappedBytes::reset() {
  guard_.reset();
  if (base_ != nullptr) munmap(std::exchange(base_, nullptr), size_);
}

}  // namespace VeskSharedMem
