// Mapped files that others cut short. A touch of a page that the file no longer has would end the
// process with SIGBUS; here it reads as zeros from then on, and the mapping is marked as torn.
// Owns: the process's SIGBUS handler from the first guard on; a fault anywhere else goes to the
// handler that was there before. Caveat: what is stored into a torn mapping is lost.
#pragma once

#include <cstddef>
#include <memory>

namespace VeskSharedMem {

/// Guards one mapping for its life.
class PageGuard {
 public:
  PageGuard(std::byte* base, std::size_t size);
  ~PageGuard();
  PageGuard(const PageGuard&) = delete;
  PageGuard& operator=(const PageGuard&) = delete;

  [[nodiscard]] bool isTorn() const;

 private:
  struct Guarded;
  struct Registry;
  static Registry& registry();
  Guarded* guarded_;
};

}  // namespace VeskSharedMem
