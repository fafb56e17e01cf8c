// EVPN: Ethernet segments and their designated forwarders (RFC 7432), and multicast settings of
// EVPN. Written by: the EVPN agent and configuration; McastEvpnStatus by this agent. Read by: the
// launcher, the designated-forwarder pipeline, the ingress route machine. Caveat: the three flags
// have no meaning here beyond being set or not.
#pragma once

#include <string>

#include <fmt/format.h>

#include "records/Keys.h"
#include "runtime/Record.h"

namespace Evpn {

class EthernetSegmentStatus : public Vesk::Keyed<Pavlin::IntfId> {
  VESK_RECORD(Evpn::EthernetSegmentStatus)
  VESK_KEY(intfId)
  VESK_SET(Bridging::VlanId, configuredVlan)
  VESK_MAP(Bridging::VlanId, Pavlin::IpGenAddr, designatedForwarderTepIpAddr)
  /// Vlans that this switch forwards for; nobody watches it, so it is written before the two above.
  VESK_SET(Bridging::VlanId, dfVlan)

  /// True if this switch is the designated forwarder of the segment in that vlan.
  [[nodiscard]] bool iAmDF(const Bridging::VlanId& vlanId) const { return dfVlanHas(vlanId); }
};

class EvpnStatus : public Vesk::Entity {
  VESK_RECORD(Evpn::EvpnStatus)
  VESK_VALUE(bool, evpnFlagA)
  VESK_VALUE(bool, evpnFlagB)
  VESK_VALUE(bool, evpnFlagC)
  VESK_INSTANCES(Pavlin::IntfId, EthernetSegmentStatus, segmentStatus)

  [[nodiscard]] static std::string mountPath() { return "evpn/status"; }
};

}  // namespace Evpn

namespace Irb::Multicast {

class EvpnStaticStatus : public Vesk::Entity {
  VESK_RECORD(Irb::Multicast::EvpnStaticStatus)
  VESK_VALUE(bool, evpnFlagA)
  VESK_VALUE(bool, evpnFlagB)
  VESK_VALUE(bool, evpnFlagC)

  [[nodiscard]] static std::string mountPath() { return "irb/multicast/evpnStaticStatus"; }
};

/// Held by reference only; this agent neither mounts nor reads it.
class EvpnStaticConfig : public Vesk::Entity {
  VESK_RECORD(Irb::Multicast::EvpnStaticConfig)
};

}  // namespace Irb::Multicast

namespace Routing::Multicast::Evpn {

class Config : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::Evpn::Config)
  VESK_SET(L3::VrfName, transitVrf)

  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af) {
    return fmt::format("multicast/{}/evpn/config", Pavlin::stringValue(af));
  }
};

}  // namespace Routing::Multicast::Evpn
