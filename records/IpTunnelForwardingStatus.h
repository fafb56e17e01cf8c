// The forwarding table of the encapsulating side: overlay routes and the underlay routes that carry
// them, per vlan. Written by: the mapping machine of each domain. Read by: the agents that program
// the hardware. Never cleaned: rows outlive this agent and are what it finds at its next start.
#pragma once

#include <string>

#include <fmt/format.h>

#include "records/Keys.h"
#include "records/Rows.h"
#include "runtime/Record.h"

namespace Routing::Multicast {

class IpTunnelVlanForwardingStatus : public Vesk::Keyed<Bridging::VlanId> {
  VESK_RECORD(Routing::Multicast::IpTunnelVlanForwardingStatus)
  VESK_KEY(vlanId)
  VESK_SHARED_ROWS(OverlayRoute, IpTunnelMapping, overlayToUnderlay, 131072)
};

class IpTunnelForwardingStatus : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::IpTunnelForwardingStatus)
  VESK_INSTANCES(Bridging::VlanId, IpTunnelVlanForwardingStatus, vlanStatus)

  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af) {
    return fmt::format("multicast/{}/tunnel/forwarding/status", Pavlin::stringValue(af));
  }
  [[nodiscard]] static std::string remoteDomainMountPath(Pavlin::AddressFamily af) {
    return fmt::format("multicast/{}/remote/tunnel/forwarding/status", Pavlin::stringValue(af));
  }
};

}  // namespace Routing::Multicast
