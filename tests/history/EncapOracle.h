// What the forwarding rows of the encapsulating side must be, computed directly from the present
// inputs. Slow and obvious on purpose: every vlan and every group from nothing, no machine and no
// table of the agent is asked.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "records/Enums.h"
#include "records/TunnelGroupConfig.h"
#include "runtime/values/Addresses.h"

namespace History {

/// "vlan,source,group" to the text of the underlay route.
using Rows = std::map<std::string, std::string>;

struct Domain {
  Pavlin::AddressFamily af;
  Irb::Multicast::Domain domain;
};

/// The VRF that a vlan is routed in: the first, in collection order, in which its interface is
/// multicast enabled.
[[nodiscard]] std::optional<L3::VrfName> routedVrf(Pavlin::AddressFamily af, Bridging::VlanId vlan);
/// True if the agent, which is not held back as a standby, runs its machines.
[[nodiscard]] bool agentRuns();
/// True if the machines of this domain run.
[[nodiscard]] bool domainRuns(const Domain& domain);
/// The rows that the present inputs want, while the domain runs.
[[nodiscard]] Rows wantedRows(const Domain& domain);
/// The rows that are published.
[[nodiscard]] Rows publishedRows(const Domain& domain);

}  // namespace History
