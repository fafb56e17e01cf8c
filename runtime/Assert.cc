#include "runtime/Assert.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>

namespace Ombra {
namespace {

std::function<void()>& fatalHook() {
  static auto& hook = *new std::function<void()>;
  return hook;
}

[[noreturn]] void printAndAbort(const char* prefix, const char* text) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s%s\n", prefix, text);
  std::fflush(stderr);
  // The slot is empty while the hook runs: a failure in the dump must not dump again.
  if (auto hook = std::exchange(fatalHook(), nullptr)) hook();
  std::abort();
}

[[noreturn]] void onTerminate() {
  if (auto current = std::current_exception()) {
    try {
      std::rethrow_exception(current);
    } catch (const std::exception& error) {
      printAndAbort("uncaught exception: ", error.what());
    } catch (...) {
      printAndAbort("uncaught exception: ", "of an unknown type");
    }
  }
  printAndAbort("", "terminated without an exception");
}

}  // namespace

void assertionFailed(const char* text) {
  printAndAbort("assertion failed: ", text);
}

void fatal(const std::string& text) {
  printAndAbort("", text.c_str());
}

void installTerminateHandler() {
  std::set_terminate(onTerminate);
}

void onFatal(std::function<void()> hook) {
  fatalHook() = std::move(hook);
}

}  // namespace Ombra
