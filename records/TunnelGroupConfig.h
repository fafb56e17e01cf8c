// Configuration of multicast tunnels: which underlay group carries which overlay group, per vlan
// and per VRF. Written by: the configuration agent, one record per domain. Read by: the
// configuration machines, which turn it into the mapping status of a domain, and by that status,
// whose rows keep references to the entries. Caveat: an entry without a `tunnelConfigEntry`
// configures nothing yet.
#pragma once

#include <string>

#include "records/Keys.h"
#include "records/Rows.h"
#include "runtime/Record.h"

namespace Routing::Multicast {

class IpTunnelConfigEntry : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::IpTunnelConfigEntry)
  /// Carries every overlay group that nothing else maps.
  VESK_VALUE(UnderlayAddr, defaultUnderlayGroup)
  /// Pool of underlay groups for delayed mappings; the empty prefix means no pool.
  VESK_VALUE(Pavlin::IpGenPrefix, underlayGroupRange)
  VESK_MAP(OverlayAddr, UnderlayAddr, immediateOverlayToUnderlayGroup)
  VESK_MAP(Pavlin::IpGenPrefix, UnderlayAddr, immediateOverlayPrefixToUnderlayGroup)
};

class VlanGroupConfigEntry : public Vesk::Keyed<Bridging::VlanId> {
  VESK_RECORD(Routing::Multicast::VlanGroupConfigEntry)
  VESK_KEY(vlanId)
  VESK_INSTANCE(IpTunnelConfigEntry, tunnelConfigEntry)
};

class VrfGroupConfigEntry : public Vesk::Keyed<L3::VrfName> {
  VESK_RECORD(Routing::Multicast::VrfGroupConfigEntry)
  VESK_KEY(vrfName)
  VESK_INSTANCE(IpTunnelConfigEntry, tunnelConfigEntry)
};

/// What is configured below one VXLAN interface.
class IpTunnelGroupIntfConfig : public Vesk::Keyed<Pavlin::IntfId> {
  VESK_RECORD(Routing::Multicast::IpTunnelGroupIntfConfig)
  VESK_KEY(intfId)
  VESK_INSTANCES(Bridging::VlanId, VlanGroupConfigEntry, vlanToMulticastGroup)
  VESK_INSTANCES(L3::VrfName, VrfGroupConfigEntry, vrfToMulticastGroup)
  VESK_MAP(Bridging::VlanId, IpTunnelFloodConfigEntry, vlanToFloodGroup)
  VESK_MAP(Vxlan::VniExtOrNone, L3::VrfName, remoteVniToVrf)
  VESK_VALUE(bool, mcastOverlayV4)
  VESK_VALUE(bool, mcastOverlayV6)
  VESK_VALUE(UnderlayRouteType, floodUnderlayRouteType)
  VESK_VALUE(UnderlayRouteType, mcastUnderlayRouteType)
  /// Head-end replication in the underlay.
  VESK_VALUE(bool, underlayHerEnabled)
};

class IpTunnelGroupConfig : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::IpTunnelGroupConfig)
  VESK_INSTANCES(Pavlin::IntfId, IpTunnelGroupIntfConfig, intfConfig)

  [[nodiscard]] static std::string mountPath() { return "multicast/tunnel/group/config"; }
  [[nodiscard]] static std::string remoteDomainMountPath() {
    return "multicast/remote/tunnel/group/config";
  }
};

}  // namespace Routing::Multicast
