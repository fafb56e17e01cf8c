// Why an overlay group of a vlan travels as it does, or does not: the chain of decisions of the
// encapsulating side. Asks the machines' own decision functions along the way, from what switches a
// domain on to the forwarding row, and stops at the first condition that is missing. Writes
// nothing.
#pragma once

#include <string>
#include <vector>

#include "records/Keys.h"

namespace Multicast::Vpn {

class Agent;

/// One link of the chain, in words that an operator knows.
struct Explanation {
  enum class Kind { heading, given, missing };
  Kind kind;
  std::string text;
};

/// The chains of both domains of the group's family; 0.0.0.0 or :: stands for all other groups of
/// the vlan.
[[nodiscard]] std::vector<Explanation> explain(const Agent& agent, Bridging::VlanId vlan,
                                               const Pavlin::IpGenAddr& group);

}  // namespace Multicast::Vpn
