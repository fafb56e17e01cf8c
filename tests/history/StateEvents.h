// Random events for the smaller machines: flood groups, remote VNIs, source interfaces, tunnel
// requests, Ethernet segments and gateways to the outside.
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
  std::string tunnelEvent();
  std::string segmentEvent();
  std::string gatewayEvent();

  EventGenerator& random_;
  unsigned elections_ = 0;
};

}  // namespace History
