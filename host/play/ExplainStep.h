// The `explain` step: what it asks about, and how the answer reads.
// Reads: the agent's own account (agent/Explain.h). Writes nothing.
#pragma once

#include <string>

#include "agent/Explain.h"
#include "host/play/Report.h"

namespace Host {

/// True for a word that may stand before what is asked about: group, tunnel, port or vni.
[[nodiscard]] bool isAskedAbout(const std::string& kind);
/// "10,239.1.1.1" of a group, "10.0.0.9" or "0,10.0.0.9" of a tunnel, "Ethernet1,10" of a port,
/// "5001" of a VNI; throws InputError if it does not read.
[[nodiscard]] Multicast::Vpn::Question questionOf(const std::string& kind, const std::string& text);
/// "KIND TEXT"; without a kind a group.
[[nodiscard]] Multicast::Vpn::Question questionOf(const std::string& words);
[[nodiscard]] std::string questionText(const Multicast::Vpn::Question& question);
/// The answer as people and as programs read it.
[[nodiscard]] Shown shownExplanation(const Multicast::Vpn::Question& question,
                                     const std::vector<Multicast::Vpn::Explanation>& chain);

/// What is wrong if the answer does not say all of these in this order.
[[nodiscard]] std::vector<Failure> unsaid(const Shown& answer,
                                          const std::vector<std::string>& says);

}  // namespace Host
