#include "host/Interrupt.h"

#include <csignal>

namespace Host {
namespace {

volatile std::sig_atomic_t hasCome = 0;

}  // namespace

void endOnInterrupt() {
  struct sigaction action {};
  action.sa_handler = [](int) { hasCome = 1; };
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

bool isInterrupted() {
  return hasCome != 0;
}

}  // namespace Host
