// Seeded events on what the route machines read: routes and their traffic, neighbours, learnt
// addresses, roles. A route either flows, and then its activity is kept fresh while time passes, or
// it is quiet.
#pragma once

#include <set>
#include <string>
#include <utility>

#include "records/Keys.h"
#include "tests/history/AgentWorld.h"
#include "tests/history/EventGenerator.h"

namespace History {

class RouteEvents {
 public:
  explicit RouteEvents(EventGenerator& random) : random_(random) {}
  /// Neighbours, learnt addresses and roles for routes to come.
  void baseline();
  /// Writes one event and tells it in words.
  std::string next();
  /// Time passes while the routes that flow have traffic.
  void pass(AgentWorld& world, double seconds);
  /// Until nothing is pending and each quiet route must be in or out.
  void rest(AgentWorld& world);

 private:
  using Route = std::pair<L3::VrfName, Routing::Multicast::Fib::IpGenRouteKey>;
  L3::VrfName vrf();
  std::string routeEvent();
  std::string neighbourEvent();
  std::string roleEvent();

  EventGenerator& random_;
  std::set<Route> flowing_;
};

}  // namespace History
