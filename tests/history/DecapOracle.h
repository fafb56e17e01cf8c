// What the decapsulating side must publish, computed directly from the present inputs: the SBD vlan
// of each vlan, and the rows that PIM reads. Slow and obvious on purpose: no machine and no
// in-process table of the agent is asked.
#pragma once

#include <set>
#include <string>
#include <utility>

#include "records/Rows.h"
#include "tests/history/EncapOracle.h"

namespace History {

/// Each with the family of the table that it stands in.
using MembershipRows =
    std::set<std::pair<Pavlin::AddressFamily, Routing::Gmp::Briskel::Membership>>;

/// True if two VRF numbers claim one SBD vlan, or claim for one VRF. The rows of such VRFs depend
/// on the order of events, and go on doing so.
[[nodiscard]] bool claimsClash();
/// What is wrong with the SBD vlans of VRFs. Without `isDefinite` a row may be missing, but none
/// may be wrong.
[[nodiscard]] std::string proxyDifference(bool isDefinite);
/// What is wrong with the SBD vlans of vlans.
[[nodiscard]] std::string sbdDifference();
/// The rows of both families' tables, as the inputs want them and as they are published.
[[nodiscard]] MembershipRows wantedMemberships();
[[nodiscard]] MembershipRows publishedMemberships();
/// No row of the tables that an orderly stop clears.
[[nodiscard]] bool isCleared();

}  // namespace History
