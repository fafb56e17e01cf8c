// Underlay routes of overlay groups, and of flooding, per vlan: the central record of both
// directions. Written by: the vlan group machines (encapsulation), the agents that receive the
// remote switches' announcements (decapsulation), the reduction (the reduced record, in-process).
// Read by: the forwarding and the injection machines. Caveat: `name` tells which of the five it is;
// some readers refuse to work on another.
#pragma once

#include <string>

#include <fmt/format.h>

#include "records/Enums.h"
#include "records/Keys.h"
#include "runtime/Record.h"

namespace Routing::Multicast {

class VlanToMulticastGroup : public Vesk::Keyed<OverlayVlanGroup> {
  VESK_RECORD(Routing::Multicast::VlanToMulticastGroup)
  VESK_KEY(overlayVlanGroup)
  VESK_SET(UnderlayRoute, multicastGroup)
};

class VlanToFloodGroup : public Vesk::Keyed<Bridging::VlanId> {
  VESK_RECORD(Routing::Multicast::VlanToFloodGroup)
  VESK_KEY(vlanId)
  VESK_SET(UnderlayRoute, floodGroup)
};

class IpTunnelVlanGroupStatus : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::IpTunnelVlanGroupStatus)
  VESK_VALUE(std::string, name)
  VESK_VALUE(Pavlin::AddressFamily, af)
  /// Head-end replication in the underlay.
  VESK_VALUE(bool, underlayHerEnabled)
  VESK_INSTANCES(OverlayVlanGroup, VlanToMulticastGroup, vlanToMulticastGroup)
  VESK_INSTANCES(Bridging::VlanId, VlanToFloodGroup, vlanToFloodGroup)

  /// The last component is the record's `name`.
  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af,
                                             IpTunnelGroupStatusType type) {
    return fmt::format("multicast/{}/tunnel/group/status/{}", Pavlin::stringValue(af),
                       stringValue(type));
  }
};

}  // namespace Routing::Multicast
