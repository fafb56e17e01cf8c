// The three feature toggles. Each is read once, on first use, and never changes while the process
// lives. Caveat: a condition that is decided without a toggle must not ask for it, since asking
// reads the file.
#pragma once

#include <array>

#include "runtime/Toggle.h"

namespace Multicast::Vpn {

inline constinit Orlane::Toggle toggleOismGateway{"OismGateway", "CorvaneLib.json", true};
inline constinit Orlane::Toggle toggleOismMplsTunnel{"OismMplsTunnel", "BerrinLib.json", true};
inline constinit Orlane::Toggle toggleEvpnMulticastSSO{"EvpnMulticastSSO", "StageMgr.json", true};

/// All of them, for a host that checks the files before it starts the agent.
inline constexpr std::array<const Orlane::Toggle*, 3> allToggles{
    &toggleOismGateway, &toggleOismMplsTunnel, &toggleEvpnMulticastSSO};

/// The remote domain, gateways and elected forwarders.
[[nodiscard]] inline bool toggleOismGatewayEnabled() {
  return toggleOismGateway.enabled();
}
/// EVPN without a VXLAN interface, and the pipeline that derives the SBD table.
[[nodiscard]] inline bool toggleOismMplsTunnelEnabled() {
  return toggleOismMplsTunnel.enabled();
}
/// Staged switchover and the ready flags that it waits for.
[[nodiscard]] inline bool toggleEvpnMulticastSSOEnabled() {
  return toggleEvpnMulticastSSO.enabled();
}

}  // namespace Multicast::Vpn
