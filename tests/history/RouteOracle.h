// What the route machines of a domain must hold, computed directly from the present inputs.
// Every route of the forwarding table is judged from nothing; no machine and no table of the agent
// is asked.
#pragma once

#include <set>
#include <string>
#include <utility>

#include "tests/history/EncapOracle.h"

namespace Multicast::Vpn {
class Agent;
}

namespace History {

/// How long a route counts as active after its last packet, and between two looks at all routes.
inline constexpr double activeSeconds = 210;
inline constexpr double reviewSeconds = 120;

struct IngressRoutes {
  std::set<std::string> routes;  ///< "VRF source,group,interface": they enter the overlay here
  std::set<std::pair<unsigned, Pavlin::IpGenAddr>> groups;  ///< vlan and group that carry them
  std::set<std::string> requests;  ///< "source,interface": neighbours to keep resolved
  auto operator<=>(const IngressRoutes&) const = default;
};

/// True if the domain, which runs, has route machines: the overlay is on and some VRF has a pool.
[[nodiscard]] bool routesRun(const Domain& domain);
/// What the present inputs want at this moment.
[[nodiscard]] IngressRoutes wantedIngress(const Domain& domain);
/// What the agent holds; the requests are those of both domains.
[[nodiscard]] IngressRoutes heldIngress(const Multicast::Vpn::Agent& agent, const Domain& domain);
/// False while a quiet route may have been dropped, but need not.
[[nodiscard]] bool activityIsDefinite();

}  // namespace History
