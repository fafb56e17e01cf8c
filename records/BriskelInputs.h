// Shared tables that other agents write and this agent reads: neighbours, learnt addresses, VRF
// numbers, MVPN interfaces, snooping proxies and gateways (RFC 9251, RFC 9625). Read by: the
// ingress route machine, the pipelines, the frame and the underlay route filter. Caveat: the
// designated-router table and the gateway segments are one for both families; a neighbour is looked
// up by VRF and address, whatever its interface.
#pragma once

#include <optional>
#include <string>

#include <fmt/format.h>

#include "records/Keys.h"
#include "records/Rows.h"
#include "runtime/Record.h"

namespace Arp::Table {

/// Leaves out the interface, so that all neighbours of one address stand together in the table, the
/// first key in front.
inline std::uint64_t hashValue(const ArpKey& key) {
  return Vesk::foldHash(Vesk::hashValue(key.vrfId), Vesk::hashValue(key.addr));
}

class Status : public Vesk::Entity {
  VESK_RECORD(Arp::Table::Status)
  VESK_SHARED_ROWS(ArpKey, ArpEntry, arpEntry, 65536)

  [[nodiscard]] static std::string mountPath() { return "arp/status"; }

  /// The neighbour of that address, on the first interface in key order.
  [[nodiscard]] std::optional<ArpEntry> firstEntry(const Vrf::VrfIdMap::VrfId& vrfId,
                                                   const Pavlin::IpGenAddr& addr) const;
};

}  // namespace Arp::Table

namespace Briskel::Bridging {

/// The forwarding database: where each learnt address is.
class Status : public Vesk::Entity {
  VESK_RECORD(Briskel::Bridging::Status)
  VESK_SHARED_ROWS(FdbKey, FdbEntry, fdbEntry, 131072)

  [[nodiscard]] static std::string mountPath() { return "bridging/status"; }
};

}  // namespace Briskel::Bridging

namespace Vrf::VrfIdMap {

class Status : public Vesk::Entity {
  VESK_RECORD(Vrf::VrfIdMap::Status)
  VESK_SHARED_ROWS(VrfId, Entry, vrfIdToName, 1024)

  [[nodiscard]] static std::string mountPath() { return "vrf/vrfIdMapStatus"; }
};

}  // namespace Vrf::VrfIdMap

namespace Routing::Multicast {

class MvpnIntfStatus : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::MvpnIntfStatus)
  VESK_SHARED_ROWS(Vrf::VrfIdMap::VrfId, VrfIntfId, vrfIntfId, 1024)

  [[nodiscard]] static std::string mountPath() { return "multicast/mvpn/intfStatus"; }
};

class PegDrStatus : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::PegDrStatus)
  VESK_SHARED_ROWS(Bridging::VlanId, PegDrVlan, pegDrVlan, 4096)

  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af) {
    return fmt::format("multicast/{}/peg/drStatus", Pavlin::stringValue(af));
  }
};

class PegVlanStatus : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::PegVlanStatus)
  VESK_SHARED_ROWS(Bridging::VlanId, PegVlan, pegVlan, 4096)

  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af) {
    return fmt::format("multicast/{}/peg/vlanStatus", Pavlin::stringValue(af));
  }
};

class PegVlanNeighbor : public Vesk::Keyed<Bridging::ExtendedVlanId> {
  VESK_RECORD(Routing::Multicast::PegVlanNeighbor)
  VESK_KEY(vlanId)
  /// Tunnel endpoints of the gateways that are neighbours in this vlan.
  VESK_SHARED_SET(Pavlin::IpGenAddr, tep, 16384)
};

class PegNeighborStatus : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::PegNeighborStatus)
  VESK_INSTANCES(Bridging::ExtendedVlanId, PegVlanNeighbor, pegVlanNeighbor)

  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af) {
    return fmt::format("multicast/{}/peg/neighborStatus", Pavlin::stringValue(af));
  }
};

}  // namespace Routing::Multicast

namespace Irb::Multicast {

class IgmpProxyStatus : public Vesk::Entity {
  VESK_RECORD(Irb::Multicast::IgmpProxyStatus)
  /// Membership says that the proxy is enabled in the vlan (RFC 9251).
  VESK_SHARED_SET(Bridging::VlanId, igmpProxyVlan, 4096)

  /// IGMP and MLD together, as one family needs them.
  [[nodiscard]] static std::string mergedAfMountPath(Pavlin::AddressFamily af) {
    return fmt::format("multicast/{}/irb/igmpProxyStatus/merged", Pavlin::stringValue(af));
  }
};

/// Vlans whose traffic is shared with other gateways, one record for both families.
class GatewayEsStatus : public Vesk::Entity {
  VESK_RECORD(Irb::Multicast::GatewayEsStatus)
  VESK_SHARED_ROWS(Bridging::VlanId, GatewayEsVlanStatus, esVlanStatus, 4096)
  /// For vlans that decide per route: this gateway takes the route.
  VESK_SHARED_MAP(Routing::Multicast::UnderlayRoute, bool, underlayRouteStatus, 16384)

  [[nodiscard]] static std::string mountPath() { return "irb/multicast/gateway/esStatus"; }
};

}  // namespace Irb::Multicast
