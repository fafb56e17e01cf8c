// Composite keys of the records' collections, and the bookmarks at which walks resume.
// Plain values: equality, hash, and an order field by field.
// Owns nothing. Reads and writes: nothing but the value. Text and bytes: the fields in order.
// Caveat: the order of the fields is the format that other processes read.
#pragma once

#include <optional>

#include "records/Enums.h"
#include "runtime/values/IntfId.h"
#include "runtime/values/OverlayAddr.h"
#include "runtime/values/Prefixes.h"
#include "runtime/values/Vlan.h"
#include "runtime/values/Vni.h"
#include "runtime/values/VrfName.h"

namespace Vesk {

template <class T>
using Optional = std::optional<T>;

}  // namespace Vesk

// --- overlay and underlay ---

namespace Routing::Multicast {

/// A group of a vlan.
struct OverlayVlanGroup {
  VESK_STRUCT(Routing::Multicast::OverlayVlanGroup)
  VESK_MEMBER(Bridging::VlanId, vlan)
  VESK_MEMBER(OverlayAddr, group)

  /// Stands for every group of the family on the vlan.
  [[nodiscard]] static OverlayVlanGroup anyGroup(Bridging::VlanId anyVlan,
                                                 Pavlin::AddressFamily af) {
    return {anyVlan, OverlayAddr(Pavlin::IpGenAddr(af))};
  }
  auto operator<=>(const OverlayVlanGroup&) const = default;
};

/// An overlay route and the interface that it comes in by.
struct OverlayRouteKey {
  VESK_STRUCT(Routing::Multicast::OverlayRouteKey)
  VESK_MEMBER(Pavlin::IpGenAddr, source)
  VESK_MEMBER(Pavlin::IpGenAddr, group)
  VESK_MEMBER(Pavlin::IntfId, intfId)

  auto operator<=>(const OverlayRouteKey&) const = default;
};

struct OverlayRoute {
  VESK_STRUCT(Routing::Multicast::OverlayRoute)
  VESK_MEMBER(Pavlin::IpGenAddr, source)
  VESK_MEMBER(Pavlin::IpGenAddr, group)

  /// (*, G): the source is the any address of the group's family.
  [[nodiscard]] static OverlayRoute wcRoute(const OverlayAddr& overlayAddr) {
    return {Pavlin::IpGenAddr(overlayAddr.af()), overlayAddr.genAddr()};
  }
  auto operator<=>(const OverlayRoute&) const = default;
};

/// A tree of the transport network, rooted at a VTEP.
struct UnderlayRoute {
  VESK_STRUCT(Routing::Multicast::UnderlayRoute)
  VESK_MEMBER_AS(Pavlin::IpGenAddr, source, "underlaySource")
  VESK_MEMBER(UnderlayAddr, underlayGroup)
  VESK_MEMBER(TunnelType, tunnelType)

  [[nodiscard]] const Pavlin::IpGenAddr& underlaySource() const { return source; }
  auto operator<=>(const UnderlayRoute&) const = default;
};

namespace Fib {

struct IpGenRouteKey {
  VESK_STRUCT(Routing::Multicast::Fib::IpGenRouteKey)
  VESK_MEMBER(Pavlin::IpGenPrefix, source)
  VESK_MEMBER(Pavlin::IpGenPrefix, group)

  auto operator<=>(const IpGenRouteKey&) const = default;
};

}  // namespace Fib

}  // namespace Routing::Multicast

namespace Routing::Gmp::Briskel {

/// An underlay route and the vlan interface that joins it.
struct RouteIntfKey {
  VESK_STRUCT(Routing::Gmp::Briskel::RouteIntfKey)
  VESK_MEMBER(Pavlin::IpGenAddr, source)
  VESK_MEMBER(Pavlin::IpGenAddr, group)
  VESK_MEMBER(Pavlin::IntfId, intfId)

  auto operator<=>(const RouteIntfKey&) const = default;
};

/// The membership by which an underlay route is joined for the vlan of this interface.
[[nodiscard]] inline RouteIntfKey createRouteIntfKey(Pavlin::IntfId vlanIntf,
                                                     const Multicast::UnderlayRoute& route) {
  return {route.underlaySource(), route.underlayGroup.genAddr(), vlanIntf};
}

}  // namespace Routing::Gmp::Briskel

namespace Multicast {

/// A vlan of an Ethernet segment.
struct L2PortVlan {
  VESK_STRUCT(Multicast::L2PortVlan)
  VESK_MEMBER(Pavlin::IntfId, intfId)
  VESK_MEMBER(Bridging::VlanId, vlanId)

  auto operator<=>(const L2PortVlan&) const = default;
};

}  // namespace Multicast

namespace Evpn {

/// A vlan and how its traffic is encapsulated.
struct VlanEncap {
  VESK_STRUCT(Evpn::VlanEncap)
  VESK_MEMBER(Bridging::VlanId, vlanId)
  VESK_MEMBER(EncapType, encapType)

  VlanEncap() : encapType(EncapType::vxlan) {}
  VlanEncap(Bridging::VlanId vlan, EncapType type) : vlanId(vlan), encapType(type) {}
  auto operator<=>(const VlanEncap&) const = default;
};

}  // namespace Evpn

// --- tunnels ---

namespace Multicast::Tunnel {

/// A remote end. The qualifier is 0 in all tables of today.
struct McastTunnelEndpoint {
  VESK_STRUCT(Multicast::Tunnel::McastTunnelEndpoint)
  VESK_MEMBER(std::uint32_t, qualifier)
  VESK_MEMBER(Pavlin::IpGenAddr, vtep)

  auto operator<=>(const McastTunnelEndpoint&) const = default;
};

/// Bits 63..56 the type, 31..0 what tells tunnels of the type apart; 0 is no tunnel.
class McastTunnelId : public Vesk::NumberValue<McastTunnelId, std::uint64_t> {
 public:
  static constexpr std::string_view typeName = "Multicast::Tunnel::McastTunnelId";

  constexpr McastTunnelId() : NumberValue(0) {}
  constexpr explicit McastTunnelId(std::uint64_t value) : NumberValue(value) {}
  constexpr McastTunnelId(McastTunnelType type, std::uint32_t tunnel)
      : NumberValue(std::uint64_t{static_cast<std::uint8_t>(type)} << 56 | tunnel) {}

  [[nodiscard]] constexpr McastTunnelType tunnelType() const {
    return static_cast<McastTunnelType>(value() >> 56);
  }
  /// The lower half: an address or a kind, as the type says.
  [[nodiscard]] constexpr std::uint32_t tunnel() const {
    return static_cast<std::uint32_t>(value());
  }

  constexpr auto operator<=>(const McastTunnelId&) const = default;
};

struct IrVxlanIpv4TunnelId {
  [[nodiscard]] static constexpr McastTunnelId makeTunnel(Pavlin::IpAddr vtep) {
    return {irVxlanIpv4(), vtep.value()};
  }
  /// The address that makeTunnel was given.
  [[nodiscard]] static constexpr Pavlin::IpAddr vtepIp(McastTunnelId id) {
    return Pavlin::IpAddr(id.tunnel());
  }
};

struct PimVxlanTunnelId {
  [[nodiscard]] static constexpr McastTunnelId makeTunnel(PimVxlanTunnel::PimTunnelType kind) {
    return {pimVxlan(), static_cast<std::uint32_t>(kind)};
  }
};

}  // namespace Multicast::Tunnel

// --- other tables of the switch ---

namespace Arp::ProactiveArp {

struct Entry {
  VESK_STRUCT(Arp::ProactiveArp::Entry)
  VESK_MEMBER(Pavlin::IpGenAddr, addr)
  VESK_MEMBER(Pavlin::IntfId, intfId)

  auto operator<=>(const Entry&) const = default;
};

}  // namespace Arp::ProactiveArp

namespace Arp::Table {

struct ArpKey {
  VESK_STRUCT(Arp::Table::ArpKey)
  VESK_MEMBER(Vrf::VrfIdMap::VrfId, vrfId)
  VESK_MEMBER(Pavlin::IpGenAddr, addr)
  VESK_MEMBER(Pavlin::IntfId, intfId)

  auto operator<=>(const ArpKey&) const = default;
};

}  // namespace Arp::Table

namespace Briskel::Bridging {

struct FdbKey {
  VESK_STRUCT(Briskel::Bridging::FdbKey)
  VESK_MEMBER(::Bridging::VlanId, vlanId)
  VESK_MEMBER(Pavlin::EthAddr, ethAddr)

  auto operator<=>(const FdbKey&) const = default;
};

}  // namespace Briskel::Bridging

namespace Stage {

struct AgentStatusKey {
  VESK_STRUCT(Stage::AgentStatusKey)
  VESK_MEMBER(std::string, agent)
  VESK_MEMBER(std::string, stage)
  VESK_MEMBER(std::string, instance)

  auto operator<=>(const AgentStatusKey&) const = default;
};

}  // namespace Stage

namespace IpGen {

/// An address on an interface.
struct IntfAddrInfo {
  VESK_STRUCT(IpGen::IntfAddrInfo)
  VESK_MEMBER(Pavlin::IntfId, intfId)
  VESK_MEMBER(Pavlin::IpGenAddr, addr)

  auto operator<=>(const IntfAddrInfo&) const = default;
};

}  // namespace IpGen

namespace Ip {

/// An IPv4 address on an interface.
struct IntfAddrInfo {
  VESK_STRUCT(Ip::IntfAddrInfo)
  VESK_MEMBER(Pavlin::IntfId, intfId)
  VESK_MEMBER(Pavlin::IpAddr, addr)

  auto operator<=>(const IntfAddrInfo&) const = default;
};

}  // namespace Ip

namespace Ip6 {

/// An IPv6 address on an interface.
struct IntfAddrInfo {
  VESK_STRUCT(Ip6::IntfAddrInfo)
  VESK_MEMBER(Pavlin::IntfId, intfId)
  VESK_MEMBER(Pavlin::Ip6Addr, addr)

  auto operator<=>(const IntfAddrInfo&) const = default;
};

}  // namespace Ip6

// --- change sets and bookmarks ---

namespace Multicast::Vpn {

/// A vlan of a group table that has to be looked at.
struct IpTunnelVlanMcastGroupSmInputChangeEntry {
  VESK_STRUCT(Multicast::Vpn::IpTunnelVlanMcastGroupSmInputChangeEntry)
  VESK_MEMBER(std::string, tableName)
  VESK_MEMBER(Bridging::VlanId, vlanId)

  auto operator<=>(const IpTunnelVlanMcastGroupSmInputChangeEntry&) const = default;
};

/// Where a review has stopped: whose items, and the first one that is left.
struct L3OverlayGroupSmBookmark {
  VESK_STRUCT(Multicast::Vpn::L3OverlayGroupSmBookmark)
  VESK_MEMBER(L3::VrfName, vrf)
  VESK_MEMBER(Routing::Multicast::OverlayRouteKey, routeKey)

  [[nodiscard]] const L3::VrfName& subject() const { return vrf; }
  [[nodiscard]] const Routing::Multicast::OverlayRouteKey& item() const { return routeKey; }
  auto operator<=>(const L3OverlayGroupSmBookmark&) const = default;
};

struct IngressL3RouteSmBookmark {
  VESK_STRUCT(Multicast::Vpn::IngressL3RouteSmBookmark)
  VESK_MEMBER(L3::VrfName, vrfName)
  VESK_MEMBER(Routing::Multicast::Fib::IpGenRouteKey, key)

  [[nodiscard]] const L3::VrfName& subject() const { return vrfName; }
  [[nodiscard]] const Routing::Multicast::Fib::IpGenRouteKey& item() const { return key; }
  auto operator<=>(const IngressL3RouteSmBookmark&) const = default;
};

struct IpTunnelVlanMcastGroupSmInputBookmark {
  VESK_STRUCT(Multicast::Vpn::IpTunnelVlanMcastGroupSmInputBookmark)
  VESK_MEMBER(std::string, tableName)
  VESK_MEMBER(Bridging::VlanId, vlanId)
  VESK_MEMBER(Pavlin::IpGenAddr, group)

  [[nodiscard]] IpTunnelVlanMcastGroupSmInputChangeEntry subject() const {
    return {tableName, vlanId};
  }
  [[nodiscard]] const Pavlin::IpGenAddr& item() const { return group; }
  /// False for the default value.
  explicit operator bool() const { return *this != IpTunnelVlanMcastGroupSmInputBookmark{}; }
  auto operator<=>(const IpTunnelVlanMcastGroupSmInputBookmark&) const = default;
};

}  // namespace Multicast::Vpn
