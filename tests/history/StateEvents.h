// Random events for the smaller machines: flood groups, remote VNIs, source interfaces.
#pragma once

#include <string>

#include "tests/history/EventGenerator.h"

namespace History {

class StateEvents {
 public:
  explicit StateEvents(EventGenerator& random) : random_(random) {}
  /// Writes one event and tells it in words.
  std::string next();

 private:
  std::string floodEvent();
  std::string vniEvent();
  std::string sourceEvent();

  EventGenerator& random_;
};

}  // namespace History
