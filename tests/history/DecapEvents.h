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
  /// Three clients have receivers, one of each kind; which ones follows from the share.
  DecapEvents(EventGenerator& random, std::uint64_t share)
      : random_(random), clients_(clientsOf(share)) {}
  /// Senders and receivers for the events to disturb.
  void baseline();
  /// Writes one event and tells it in words.
  std::string next();

 private:
  using Event = std::string (DecapEvents::*)();

  using Clients = std::array<Irb::Multicast::App::Client, 3>;

  static Clients clientsOf(std::uint64_t share);
  void newLeak();
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
  std::string enabledEvent();

  EventGenerator& random_;
  Clients clients_;
};

}  // namespace History
