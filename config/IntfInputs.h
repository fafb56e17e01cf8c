// What the machines of one VXLAN interface's configuration read alike.
// Owns nothing. Reads: the interface's status and configuration. Writes: trace lines.
#pragma once

#include "records/TunnelGroupConfig.h"
#include "records/Vxlan.h"
#include "runtime/Trace.h"

namespace Routing::Multicast {

/// The local VTEP address of the family, the unspecified address for any other family.
[[nodiscard]] inline Pavlin::IpGenAddr localVtepAddr(const Vxlan::VtiStatus& vti,
                                                     Pavlin::AddressFamily af) {
  switch (af) {
    case Pavlin::AddressFamily::ipv4:
      return vti.localVtepAddr();
    case Pavlin::AddressFamily::ipv6:
      return vti.localVtepAddr6();
    default:
      return {};
  }
}

/// What a refresh of everything starts from.
inline void traceRefresh(const Vesk::TraceHandle& handle, const Vxlan::VtiStatus& vti,
                         const IpTunnelGroupIntfConfig& config) {
  if (auto t = handle.at(8))
    t << "refreshAll localVtepAddr:" << vti.localVtepAddr()
      << " localVtepAddr6: " << vti.localVtepAddr6() << " mlagVtepAddr: " << vti.mlagVtepAddr()
      << " mcastUnderlayRouteType: " << Vesk::textOf(config.mcastUnderlayRouteType())
      << " floodUnderlayRouteType: " << Vesk::textOf(config.floodUnderlayRouteType());
}

}  // namespace Routing::Multicast
