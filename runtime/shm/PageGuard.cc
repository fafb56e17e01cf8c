#include "runtime/shm/PageGuard.h"

#include <atomic>
#include <csignal>
#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

namespace VeskSharedMem {

/// In a list that only grows, so that the handler can walk it at any time; used again when free.
struct PageGuard::Guarded {
  std::atomic<std::uintptr_t> begin = 0;  ///< 0: free
  std::atomic<std::uintptr_t> end = 0;
  std::atomic<bool> isTorn = false;
  Guarded* next = nullptr;
};

struct PageGuard::Registry {
  Registry() {
    struct sigaction action {};
    action.sa_sigaction = &Registry::handle;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    sigaction(SIGBUS, &action, &former);
  }

  /// From the page of the fault on: what lies behind the new end of the file is gone as well. Only
  /// system calls and lock-free words are used.
  static bool mend(std::uintptr_t fault) {
    for (Guarded* one = instance->first.load(std::memory_order_acquire); one != nullptr;
         one = one->next) {
      const std::uintptr_t begin = one->begin.load(std::memory_order_acquire);
      const std::uintptr_t end = one->end.load(std::memory_order_relaxed);
      if (begin == 0 || fault < begin || fault >= end) continue;
      const std::uintptr_t page = fault & ~(instance->pageSize - 1);
      one->isTorn.store(true, std::memory_order_release);
      return mmap(reinterpret_cast<void*>(page), end - page, PROT_READ | PROT_WRITE,
                  MAP_FIXED | MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0) != MAP_FAILED;
    }
    return false;
  }
  static void handle(int signal, siginfo_t* info, void* context) {
    if (mend(reinterpret_cast<std::uintptr_t>(info->si_addr))) return;
    const struct sigaction& before = instance->former;
    if ((before.sa_flags & SA_SIGINFO) != 0) return before.sa_sigaction(signal, info, context);
    if (before.sa_handler != SIG_DFL && before.sa_handler != SIG_IGN)
      return before.sa_handler(signal);
    // The instruction is tried again, and ends the process.
    sigaction(signal, &before, nullptr);
  }

  static inline Registry* instance = nullptr;
  const std::uintptr_t pageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  std::atomic<Guarded*> first = nullptr;
  struct sigaction former {};
};

PageGuard::Registry& PageGuard::registry() {
  // Never destroyed: a mapping may be touched to the last.
  if (Registry::instance == nullptr) {
    static Registry& made = *new Registry;
    Registry::instance = &made;
  }
  return *Registry::instance;
}

PageGuard::PageGuard(std::byte* base, std::size_t size) : guarded_(nullptr) {
  Registry& all = registry();
  for (Guarded* one = all.first.load(); one != nullptr && guarded_ == nullptr; one = one->next)
    if (one->begin.load() == 0) guarded_ = one;
  const bool isNew = guarded_ == nullptr;
  if (isNew) guarded_ = new Guarded;
  guarded_->isTorn.store(false);
  guarded_->end.store(reinterpret_cast<std::uintptr_t>(base) + size);
  guarded_->begin.store(reinterpret_cast<std::uintptr_t>(base), std::memory_order_release);
  if (!isNew) return;
  guarded_->next = all.first.load();
  all.first.store(guarded_, std::memory_order_release);
}

PageGuard::~PageGuard() {
  guarded_->begin.store(0, std::memory_order_release);
}

bool PageGuard::isTorn() const {
  return guarded_->isTorn.load(std::memory_order_acquire);
}

}  // namespace VeskSharedMem
