// Why an overlay group of a vlan travels as it does, or does not: a report of two chains of
// decisions per domain, of what is sent and of what is received. Owns: the report. Reads: the
// machines, through the modules that know one road each (ExplainEncap, ExplainDecap). Writes
// nothing.
#pragma once

#include <string>
#include <utility>
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

/// What the chains have to say, in order.
class ExplainReport {
 public:
  void heading(std::string text) { add(Explanation::Kind::heading, std::move(text)); }
  void given(std::string text) { add(Explanation::Kind::given, std::move(text)); }
  void missing(std::string text) { add(Explanation::Kind::missing, std::move(text)); }
  /// Says what is missing; false, so that a step can end its chain with it.
  bool stop(std::string text) {
    missing(std::move(text));
    return false;
  }
  [[nodiscard]] std::vector<Explanation> take() { return std::move(explanations_); }

 private:
  void add(Explanation::Kind kind, std::string text) {
    explanations_.push_back({kind, std::move(text)});
  }
  std::vector<Explanation> explanations_;
};

/// The chains of both domains of the group's family; 0.0.0.0 or :: stands for all other groups of
/// the vlan.
[[nodiscard]] std::vector<Explanation> explain(const Agent& agent, Bridging::VlanId vlan,
                                               const Pavlin::IpGenAddr& group);

}  // namespace Multicast::Vpn
