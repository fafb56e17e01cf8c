// Composite values: the rows of shared-memory tables and of the records' value maps.
// A row's key fields repeat the key of its collection; the row's text leaves them out.
// Owns nothing. Reads and writes: nothing but the value.
// Caveat: a default row reads as an absent one, and the order of the fields is a shared format.
#pragma once

#include "records/Keys.h"

namespace Routing::Multicast {

struct IpTunnelMapping {
  VESK_STRUCT(Routing::Multicast::IpTunnelMapping)
  VESK_KEY_MEMBER(OverlayRoute, overlayRoute)
  VESK_MEMBER(UnderlayRoute, underlayRoute)

  auto operator<=>(const IpTunnelMapping&) const = default;
};

/// A vlan's flood group as configured; the default is no group.
struct IpTunnelFloodConfigEntry {
  VESK_STRUCT(Routing::Multicast::IpTunnelFloodConfigEntry)
  VESK_MEMBER(VlanTunnelConfigType, configType)
  VESK_MEMBER(Pavlin::IpGenAddr, floodGroup)

  IpTunnelFloodConfigEntry() : configType(VlanTunnelConfigType::mcastUnderlay) {}
  IpTunnelFloodConfigEntry(VlanTunnelConfigType type, const Pavlin::IpGenAddr& group)
      : configType(type), floodGroup(group) {}
  auto operator<=>(const IpTunnelFloodConfigEntry&) const = default;
};

/// Whether this switch forwards to the segment's vlan, and if not, who does.
struct ElectedDFStatus {
  VESK_STRUCT(Routing::Multicast::ElectedDFStatus)
  VESK_KEY_MEMBER(::Multicast::L2PortVlan, portVlan)
  VESK_MEMBER(bool, iAmDF)
  VESK_MEMBER(Pavlin::IpGenAddr, designatedForwarderTepIpAddr)

  auto operator<=>(const ElectedDFStatus&) const = default;
};

struct ExternalForwarderIntfStatus {
  VESK_STRUCT(Routing::Multicast::ExternalForwarderIntfStatus)
  VESK_KEY_MEMBER(::Multicast::L2PortVlan, portVlan)
  VESK_MEMBER(ExternalForwarderRole, role)

  auto operator<=>(const ExternalForwarderIntfStatus&) const = default;
};

struct PegDrVlan {
  VESK_STRUCT(Routing::Multicast::PegDrVlan)
  VESK_KEY_MEMBER(Bridging::VlanId, vlanId)
  VESK_MEMBER(PegDrRole, pegDrRole)

  auto operator<=>(const PegDrVlan&) const = default;
};

struct PegVlan {
  VESK_STRUCT(Routing::Multicast::PegVlan)
  VESK_KEY_MEMBER(Bridging::VlanId, vlanId)
  VESK_MEMBER(bool, pegEnabled)

  auto operator<=>(const PegVlan&) const = default;
};

struct VrfIntfId {
  VESK_STRUCT(Routing::Multicast::VrfIntfId)
  VESK_KEY_MEMBER(Vrf::VrfIdMap::VrfId, vrfId)
  VESK_MEMBER(Pavlin::IntfId, pmsiIntfId)

  auto operator<=>(const VrfIntfId&) const = default;
};

/// What a filter of underlay routes judges.
struct UnderlayRouteContext {
  VESK_STRUCT(Routing::Multicast::UnderlayRouteContext)
  VESK_MEMBER(UnderlayRoute, route)
  VESK_MEMBER(Bridging::VlanId, vlanId)
  VESK_MEMBER(UnderlayRouteContextKind, kind)

  auto operator<=>(const UnderlayRouteContext&) const = default;
};

}  // namespace Routing::Multicast

namespace Routing::Gmp::Briskel {

struct Membership {
  VESK_STRUCT(Routing::Gmp::Briskel::Membership)
  VESK_KEY_MEMBER(RouteIntfKey, key)
  VESK_MEMBER(std::uint8_t, mode)  // 1 for a join

  auto operator<=>(const Membership&) const = default;
};

}  // namespace Routing::Gmp::Briskel

namespace Irb::Multicast {

/// A vlan's supplementary bridge domain vlan; the default, vlan 1, is none.
struct VlanToSbd {
  VESK_STRUCT(Irb::Multicast::VlanToSbd)
  VESK_KEY_MEMBER(Bridging::VlanId, vlanId)
  VESK_MEMBER(Bridging::VlanId, sbdVlan)

  auto operator<=>(const VlanToSbd&) const = default;
};

struct GatewayEsVlanStatus {
  VESK_STRUCT(Irb::Multicast::GatewayEsVlanStatus)
  VESK_KEY_MEMBER(Bridging::VlanId, vlanId)
  VESK_MEMBER(GatewayVlanState, state)

  auto operator<=>(const GatewayEsVlanStatus&) const = default;
};

}  // namespace Irb::Multicast

namespace Vrf::VrfIdMap {

struct Entry {
  VESK_STRUCT(Vrf::VrfIdMap::Entry)
  VESK_KEY_MEMBER(VrfId, vrfId)
  VESK_MEMBER(L3::VrfName, vrfName)

  auto operator<=>(const Entry&) const = default;
};

}  // namespace Vrf::VrfIdMap

namespace Arp::Table {

struct ArpEntry {
  VESK_STRUCT(Arp::Table::ArpEntry)
  VESK_KEY_MEMBER(ArpKey, key)
  VESK_MEMBER(Pavlin::EthAddr, ethAddr)
  VESK_MEMBER(Pavlin::IntfId, intfId)

  auto operator<=>(const ArpEntry&) const = default;
};

}  // namespace Arp::Table

namespace Arp::ProactiveArp {

struct Request {
  VESK_STRUCT(Arp::ProactiveArp::Request)
  VESK_KEY_MEMBER(Entry, entry)

  auto operator<=>(const Request&) const = default;
};

}  // namespace Arp::ProactiveArp

namespace Briskel::Bridging {

struct FdbEntry {
  VESK_STRUCT(Briskel::Bridging::FdbEntry)
  VESK_KEY_MEMBER(FdbKey, key)
  VESK_MEMBER(Pavlin::IntfId, intfId)

  auto operator<=>(const FdbEntry&) const = default;
};

}  // namespace Briskel::Bridging

namespace Vxlan {

struct RemoteVniToVlan {
  VESK_STRUCT(Vxlan::RemoteVniToVlan)
  VESK_KEY_MEMBER(VniExtOrNone, remoteVni)
  VESK_MEMBER(Bridging::VlanId, vlanId)

  auto operator<=>(const RemoteVniToVlan&) const = default;
};

struct RemoteVniCache {
  VESK_STRUCT(Vxlan::RemoteVniCache)
  VESK_KEY_MEMBER(VniExtOrNone, remoteVni)
  VESK_MEMBER(L3::VrfName, vrfName)
  VESK_MEMBER(Bridging::VlanIdOrNone, sbdVlan)

  auto operator<=>(const RemoteVniCache&) const = default;
};

}  // namespace Vxlan

namespace Multicast::Tunnel {

struct McastTunnelSet {
  VESK_STRUCT(Multicast::Tunnel::McastTunnelSet)
  VESK_KEY_MEMBER(McastTunnelEndpoint, endpoint)
  VESK_MEMBER(McastTunnelId, defaultTunnelId)

  auto operator<=>(const McastTunnelSet&) const = default;
};

struct IrVxlanIpv4TunnelRequest {
  VESK_STRUCT(Multicast::Tunnel::IrVxlanIpv4TunnelRequest)
  VESK_KEY_MEMBER(McastTunnelEndpoint, endpoint)

  auto operator<=>(const IrVxlanIpv4TunnelRequest&) const = default;
};

struct PimVxlanTunnelRequest {
  VESK_STRUCT(Multicast::Tunnel::PimVxlanTunnelRequest)
  VESK_KEY_MEMBER(McastTunnelEndpoint, endpoint)
  VESK_MEMBER(PimVxlanTunnel::PimTunnelType, pimTunnelType)

  auto operator<=>(const PimVxlanTunnelRequest&) const = default;
};

struct IrVxlanIpv4TunnelTableEntry {
  VESK_STRUCT(Multicast::Tunnel::IrVxlanIpv4TunnelTableEntry)
  VESK_KEY_MEMBER(McastTunnelId, tunnelId)

  [[nodiscard]] Pavlin::IpAddr vtepIp() const { return IrVxlanIpv4TunnelId::vtepIp(tunnelId); }
  auto operator<=>(const IrVxlanIpv4TunnelTableEntry&) const = default;
};

struct PimVxlanTunnelTableEntry {
  VESK_STRUCT(Multicast::Tunnel::PimVxlanTunnelTableEntry)
  VESK_KEY_MEMBER(McastTunnelId, tunnelId)

  auto operator<=>(const PimVxlanTunnelTableEntry&) const = default;
};

}  // namespace Multicast::Tunnel

namespace Stage {

struct AgentStageStatus {
  VESK_STRUCT(Stage::AgentStageStatus)
  VESK_KEY_MEMBER(AgentStatusKey, key)
  VESK_MEMBER(bool, complete)

  auto operator<=>(const AgentStageStatus&) const = default;
};

}  // namespace Stage
