// What the smaller machines must publish, computed directly from the present inputs: interfaces and
// groups that PIM runs on, remote VNIs, flood groups, what EVPN may announce, tunnels, the roles of
// ports.
#pragma once

#include <string>

namespace History {

/// What keeps rows that nobody wants.
struct Remains {
  bool sbdShared = false;  ///< two VRFs named one SBD vlan at some time
  bool vtiWent = false;    ///< a VXLAN interface was removed, since the process began
  /// Takes note of the present inputs.
  void note();
};

/// Nothing if all is well. While the agent runs and is at rest.
[[nodiscard]] std::string stateDifference(const Remains& remains);

}  // namespace History
