// What the decapsulating side must publish, computed directly from the present inputs: the SBD vlan
// of each vlan, and the rows that PIM reads. Slow and obvious on purpose: no machine and no
// in-process table of the agent is asked. Where the system lets its rows depend on history (the
// rows by name and by SBD vlan of vlans that two VRFs have claimed) only what is definite is
// compared.
#pragma once

#include <set>
#include <string>

#include "records/Keys.h"
#include "tests/history/EncapOracle.h"

namespace History {

using MembershipRows = std::set<Routing::Gmp::Briskel::RouteIntfKey>;

/// True if the machines of this side run.
[[nodiscard]] bool decapRuns();
/// What is wrong with the tables of VRFs and SBD vlans; nothing if all is well.
[[nodiscard]] std::string sbdDifference();
/// The rows of both families' tables, as the inputs want them and as they are published.
[[nodiscard]] MembershipRows wantedMemberships();
[[nodiscard]] MembershipRows publishedMemberships();

}  // namespace History
