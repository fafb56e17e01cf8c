// The user's wish that a command ends: Ctrl-C, or a request to terminate.
#pragma once

namespace Host {

/// From here on such a signal ends no process but is remembered.
void endOnInterrupt();
[[nodiscard]] bool isInterrupted();

}  // namespace Host
