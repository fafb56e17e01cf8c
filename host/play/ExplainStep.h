// The `explain` step: which overlay group it asks about, and how the answer reads.
// Reads: the agent's own account (agent/Explain.h). Writes nothing.
#pragma once

#include <string>

#include "host/play/Report.h"
#include "records/Keys.h"

namespace Multicast::Vpn {
struct Explanation;
}

namespace Host {

/// "10,239.1.1.1"; throws InputError if it does not read.
[[nodiscard]] Routing::Multicast::OverlayVlanGroup explainedGroup(const std::string& text);
/// The answer as people and as programs read it.
[[nodiscard]] Shown shownExplanation(const Routing::Multicast::OverlayVlanGroup& group,
                                     const std::vector<Multicast::Vpn::Explanation>& chain);

/// What is wrong if the answer does not say all of these in this order.
[[nodiscard]] std::vector<Failure> unsaid(const Shown& answer,
                                          const std::vector<std::string>& says);

}  // namespace Host
