// How the process ends on a programming error.
// Owns: the text on standard error, the single fatal hook, the terminate handler.
// Reads: nothing. Writes: standard error; then aborts, so that a core file and a restart follow.
// Runs: from whoever finds the broken invariant, on that stack.
// Caveat: nothing in the logic catches; a RangeException that leaves main ends here too.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>

namespace Ombra {

/// A value outside of its type's range. The text is fixed per check and names the field.
class RangeException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Prints `assertion failed: TEXT` and aborts.
[[noreturn, gnu::cold]] void assertionFailed(const char* text);

/// Ends the process unless the condition holds. The text is a literal, usually the condition
/// itself.
inline void assertThat(bool condition, const char* text) {
  if (!condition) [[unlikely]]
    assertionFailed(text);
}

/// Prints the text and aborts.
[[noreturn, gnu::cold]] void fatal(const std::string& text);

/// An exception that nobody catches prints `uncaught exception: TEXT` and aborts.
void installTerminateHandler();

/// Runs once, after the text is out and before the abort. One slot: a new hook replaces the old,
/// an empty one clears it. A failure inside of the hook aborts at once.
void onFatal(std::function<void()> hook);

}  // namespace Ombra
