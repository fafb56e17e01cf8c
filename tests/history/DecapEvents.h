// Seeded valid events on everything that the decapsulating side reads: clients' joins, decap
// status, SBD bindings, MPLS claims, MLAG, gateway and leak configuration.
#pragma once

#include <array>
#include <string>

#include "runtime/values/Vlan.h"
#include "tests/history/EventGenerator.h"

namespace History {

class DecapEvents {
 public:
  explicit DecapEvents(EventGenerator& random) : random_(random) {}
  /// Senders and receivers for the events to disturb.
  void baseline();
  /// Writes one event and tells it in words.
  std::string next();

 private:
  using Event = std::string (DecapEvents::*)();

  Pavlin::AddressFamily family();
  Bridging::VlanId vlan();
  Pavlin::IpGenAddr group(Pavlin::AddressFamily af);
  std::string clientEvent();
  std::string peerEvent();
  std::string senderEvent();
  std::string floodEvent();
  std::string proxyEvent();
  std::string claimEvent();
  std::string mlagEvent();
  std::string gatewayEvent();
  std::string leakEvent();

  EventGenerator& random_;
};

}  // namespace History
