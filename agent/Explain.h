// Why something is as it is: an overlay group of a vlan, a tunnel endpoint, a port and vlan, a
// remote VNI. A report of chains of decisions; of a group two per domain, of what is sent and of
// what is received. Owns: the report. Reads: the machines, through the modules that know one matter
// each (ExplainEncap, ExplainDecap, ExplainTunnel, ExplainPort, ExplainVni). Writes nothing.
#pragma once

#include <string>
#include <utility>
#include <variant>
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

/// Of an agent without machines.
inline constexpr const char* notRunning =
    "the agent is not running: it needs a VXLAN interface and multicast routing, and must not be "
    "standby";

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

/// What may be asked about. Of a group, 0.0.0.0 or :: stands for all other groups of the vlan.
using Question = std::variant<Routing::Multicast::OverlayVlanGroup, Tunnel::McastTunnelEndpoint,
                              L2PortVlan, Vxlan::VniExtOrNone>;

/// Of a group the chains of both domains of its family, of a port those of both families.
[[nodiscard]] std::vector<Explanation> explain(const Agent& agent, const Question& question);

}  // namespace Multicast::Vpn
