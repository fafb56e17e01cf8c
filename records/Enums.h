// The enumerations of the records, their texts, and the small tables that belong to them.
// Owns nothing. Reads and writes: nothing.
// Text of a value: its name, or its number if it has none; masks and roles are always numbers.
// Caveat: numbers are shared with other processes and never change meaning.
#pragma once

#include <array>
#include <charconv>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "runtime/Assert.h"
#include "runtime/ValueTraits.h"

/// Names an enumeration whose values are given after it: CORVANE_ENUM(A::B, {B::x, "x"}, ...).
/// Global namespace only.
#define CORVANE_ENUM(TYPE, ...)                                                        \
  template <>                                                                          \
  struct Vesk::EnumNames<TYPE> {                                                       \
    static constexpr std::string_view name = #TYPE;                                    \
    using enum TYPE;                                                                   \
    static constexpr auto values = std::to_array<Vesk::EnumName<TYPE>>({__VA_ARGS__}); \
  };

namespace Vesk {

/// A leaf that reads names and numbers and prints numbers.
template <class E>
struct NumericEnumLeaf : PlainLeaf<E> {
  static std::string typeName() { return std::string(EnumNames<E>::name); }
  static constexpr std::string_view form = "unsigned";
  static std::string text(E value) {
    return fmt::format("{}", static_cast<std::underlying_type_t<E>>(value));
  }
  static E fromText(const std::string& text) { return enumOf<E>(text); }
  static std::uint64_t hash(E value) { return mixHash(static_cast<std::uint64_t>(value)); }
};

}  // namespace Vesk

// --- domains and clients ---

namespace Irb::Multicast {

/// Which side of the gateway a tree belongs to. A switch over it asserts "Unsupported domain" on
/// anything else.
enum class Domain : std::uint8_t { localDomain = 1, remoteDomain = 2 };

/// Where a membership has receivers; bits, 0 for nowhere.
enum class ReceiverDomain : std::uint8_t {
  none = 0,
  plainIntf = 1,
  remoteOnly = 2,
  localOnly = 4,
  bothDomains = 8,
};

namespace App {

/// The applications that publish joins. client3 is the MLAG peer, and the client under which this
/// agent publishes.
enum class Client : std::uint8_t {
  client0,
  client1,
  client2,
  client3,
  client4,
  client5,
  client6,
  client7,
  client8,
  client9,
  client10,
  client11,
  client12,
  client13,
  unknown = 255,
};

}  // namespace App

namespace Egress {

/// How far down the membership is watched.
enum class Mode : std::uint8_t { groupLevel, interfaceLevel };

}  // namespace Egress

/// What the gateway does for a vlan; on any other value it answers no.
enum class GatewayVlanState : std::uint8_t { pass, perRoute };

}  // namespace Irb::Multicast

CORVANE_ENUM(Irb::Multicast::Domain, {localDomain, "localDomain"}, {remoteDomain, "remoteDomain"})
CORVANE_ENUM(Irb::Multicast::ReceiverDomain, {none, "none"}, {plainIntf, "plainIntf"},
             {remoteOnly, "remoteOnly"}, {localOnly, "localOnly"}, {bothDomains, "bothDomains"})
CORVANE_ENUM(Irb::Multicast::App::Client, {client0, "client0"}, {client1, "client1"},
             {client2, "client2"}, {client3, "client3"}, {client4, "client4"}, {client5, "client5"},
             {client6, "client6"}, {client7, "client7"}, {client8, "client8"}, {client9, "client9"},
             {client10, "client10"}, {client11, "client11"}, {client12, "client12"},
             {client13, "client13"})
CORVANE_ENUM(Irb::Multicast::Egress::Mode, {groupLevel, "groupLevel"},
             {interfaceLevel, "interfaceLevel"})
CORVANE_ENUM(Irb::Multicast::GatewayVlanState, {pass, "pass"}, {perRoute, "perRoute"})

template <>
struct Vesk::Leaf<Irb::Multicast::ReceiverDomain>
    : Vesk::NumericEnumLeaf<Irb::Multicast::ReceiverDomain> {};
template <>
struct Vesk::Leaf<Irb::Multicast::GatewayVlanState>
    : Vesk::NumericEnumLeaf<Irb::Multicast::GatewayVlanState> {};

namespace Irb::Multicast {

[[nodiscard]] constexpr ReceiverDomain operator|(ReceiverDomain a, ReceiverDomain b) {
  return static_cast<ReceiverDomain>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}
[[nodiscard]] constexpr ReceiverDomain operator&(ReceiverDomain a, ReceiverDomain b) {
  return static_cast<ReceiverDomain>(static_cast<unsigned>(a) & static_cast<unsigned>(b));
}
constexpr ReceiverDomain& operator|=(ReceiverDomain& a, ReceiverDomain b) {
  return a = a | b;
}

/// Whether a membership with these receivers makes the domain join. Asserts on a domain that is
/// neither of the two.
[[nodiscard]] inline bool joinDomain(ReceiverDomain mask, Domain domain) {
  using enum ReceiverDomain;
  switch (domain) {
    case Domain::localDomain:
      return (mask & (plainIntf | localOnly | bothDomains)) != none;
    case Domain::remoteDomain:
      return (mask & (plainIntf | remoteOnly | bothDomains)) != none;
  }
  Ombra::assertionFailed("Unsupported domain");
}

namespace App {

/// "client3"; the last part of mount paths.
[[nodiscard]] inline std::string stringValue(Client client) {
  return Vesk::enumText(client);
}

/// The client of this name; Client::unknown if there is none.
[[nodiscard]] inline Client ClientInstance(std::string_view name) {
  // Asked for each client in each judgement: by its number, not by a look at all names.
  constexpr std::string_view prefix = "client";
  const std::string_view digits = name.starts_with(prefix) ? name.substr(prefix.size()) : "";
  unsigned number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  const bool isNumber = error == std::errc() && end == digits.data() + digits.size() &&
                        (digits.front() != '0' || digits.size() == 1);
  return isNumber && number < Vesk::EnumNames<Client>::values.size() ? Client(number)
                                                                     : Client::unknown;
}

}  // namespace App

/// Where the receivers are that a client reports; nowhere for a client that is not known.
[[nodiscard]] constexpr ReceiverDomain receiverDomain(App::Client client) {
  using enum App::Client;
  switch (client) {
    case client0:
    case client2:
    case client4:
      return ReceiverDomain::plainIntf;
    case client3:
      return ReceiverDomain::plainIntf | ReceiverDomain::remoteOnly;
    case client5:
    case client8:
    case client9:
    case client10:
    case client13:
      return ReceiverDomain::bothDomains;
    case client11:
    case client12:
      return ReceiverDomain::localOnly;
    case client1:
    case client6:
    case client7:
    case unknown:
      break;
  }
  return ReceiverDomain::none;
}

}  // namespace Irb::Multicast

// --- routing ---

namespace Routing::Multicast {

/// Which instance of the tunnel group status.
enum class IpTunnelGroupStatusType : std::uint8_t {
  irbEncapStatus = 0,
  irbDecapStatus = 1,
  irbDecapReduced = 2,
  irbRemoteDomainEncapStatus = 3,
  irbRemoteDomainDecapStatus = 4,
};

enum class TunnelType : std::uint8_t { PimSsm, PimAsm };

/// How an underlay tree is built, as configured. Only "is pimSsm" is asked.
enum class UnderlayRouteType : std::uint8_t { pimAsm, pimSsm };

/// What a vlan's underlay group carries.
enum class VlanTunnelConfigType : std::uint8_t { mcastUnderlay = 1, floodUnderlay = 2 };

enum class PegDrRole : std::uint8_t { notDr, dr };

enum class ExternalForwarderRole : std::uint8_t { none, forwarder, drForwarder };

/// Why an underlay route is judged.
enum class UnderlayRouteContextKind : std::uint8_t { multicastGroup, kind1 };

namespace MlagUnderlayJoin {

/// Which underlay groups this peer joins.
enum class State : std::uint8_t { notApplicable, allGroups, noGroups, someGroups };

}  // namespace MlagUnderlayJoin

namespace MlagPeerParity {

/// The peer joins the groups whose lowest bit is this.
enum class Parity : std::uint8_t { parity0, parity1 };

}  // namespace MlagPeerParity

}  // namespace Routing::Multicast

namespace Routing::Gmp::Briskel {

/// The application under which memberships are published.
enum class App : std::uint8_t { corvane = 4 };

}  // namespace Routing::Gmp::Briskel

CORVANE_ENUM(Routing::Multicast::IpTunnelGroupStatusType, {irbEncapStatus, "irbEncapStatus"},
             {irbDecapStatus, "irbDecapStatus"}, {irbDecapReduced, "irbDecapReduced"},
             {irbRemoteDomainEncapStatus, "irbRemoteDomainEncapStatus"},
             {irbRemoteDomainDecapStatus, "irbRemoteDomainDecapStatus"})
CORVANE_ENUM(Routing::Multicast::TunnelType, {PimSsm, "PimSsm"}, {PimAsm, "PimAsm"})
CORVANE_ENUM(Routing::Multicast::UnderlayRouteType, {pimAsm, "pimAsm"}, {pimSsm, "pimSsm"})
CORVANE_ENUM(Routing::Multicast::VlanTunnelConfigType, {mcastUnderlay, "mcastUnderlay"},
             {floodUnderlay, "floodUnderlay"})
CORVANE_ENUM(Routing::Multicast::PegDrRole, {notDr, "notDr"}, {dr, "dr"})
CORVANE_ENUM(Routing::Multicast::ExternalForwarderRole, {none, "none"}, {forwarder, "forwarder"},
             {drForwarder, "drForwarder"})
CORVANE_ENUM(Routing::Multicast::UnderlayRouteContextKind, {multicastGroup, "multicastGroup"},
             {kind1, "kind1"})
CORVANE_ENUM(Routing::Multicast::MlagUnderlayJoin::State, {notApplicable, "notApplicable"},
             {allGroups, "allGroups"}, {noGroups, "noGroups"}, {someGroups, "someGroups"})
CORVANE_ENUM(Routing::Multicast::MlagPeerParity::Parity, {parity0, "parity0"}, {parity1, "parity1"})
CORVANE_ENUM(Routing::Gmp::Briskel::App, {corvane, "corvane"})

template <>
struct Vesk::Leaf<Routing::Multicast::VlanTunnelConfigType>
    : Vesk::NumericEnumLeaf<Routing::Multicast::VlanTunnelConfigType> {};
template <>
struct Vesk::Leaf<Routing::Multicast::PegDrRole>
    : Vesk::NumericEnumLeaf<Routing::Multicast::PegDrRole> {};
template <>
struct Vesk::Leaf<Routing::Multicast::ExternalForwarderRole>
    : Vesk::NumericEnumLeaf<Routing::Multicast::ExternalForwarderRole> {};
template <>
struct Vesk::Leaf<Routing::Multicast::UnderlayRouteContextKind>
    : Vesk::NumericEnumLeaf<Routing::Multicast::UnderlayRouteContextKind> {};

namespace Routing::Multicast {

[[nodiscard]] constexpr IpTunnelGroupStatusType irbEncapStatus() {
  return IpTunnelGroupStatusType::irbEncapStatus;
}
[[nodiscard]] constexpr IpTunnelGroupStatusType irbDecapStatus() {
  return IpTunnelGroupStatusType::irbDecapStatus;
}
[[nodiscard]] constexpr IpTunnelGroupStatusType irbDecapReduced() {
  return IpTunnelGroupStatusType::irbDecapReduced;
}
[[nodiscard]] constexpr IpTunnelGroupStatusType irbRemoteDomainEncapStatus() {
  return IpTunnelGroupStatusType::irbRemoteDomainEncapStatus;
}
[[nodiscard]] constexpr IpTunnelGroupStatusType irbRemoteDomainDecapStatus() {
  return IpTunnelGroupStatusType::irbRemoteDomainDecapStatus;
}

/// "irbDecapStatus"; the entity's name and the last part of its mount path.
[[nodiscard]] inline std::string stringValue(IpTunnelGroupStatusType type) {
  return Vesk::enumText(type);
}

/// The kind of tunnel that an underlay route of this type needs.
[[nodiscard]] constexpr TunnelType tunnelTypeOf(UnderlayRouteType type) {
  return type == UnderlayRouteType::pimSsm ? TunnelType::PimSsm : TunnelType::PimAsm;
}

}  // namespace Routing::Multicast

// --- tunnels and readiness ---

namespace Multicast::Vpn {

/// One family of one domain.
enum class EncapDecapReadyClient : std::uint8_t { ipv4Local, ipv6Local, ipv4Remote, ipv6Remote };

}  // namespace Multicast::Vpn

namespace Multicast::Tunnel {

/// 0 is no tunnel.
enum class McastTunnelType : std::uint8_t { IrVxlanIpv4 = 1, PimVxlan = 2 };

/// Who asks for tunnels.
enum class McastTunnelClientType : std::uint8_t { client1 = 1, client2 = 2 };

namespace PimVxlanTunnel {

enum class PimTunnelType : std::uint8_t { pimSsm, pimAsm };

}  // namespace PimVxlanTunnel

}  // namespace Multicast::Tunnel

CORVANE_ENUM(Multicast::Vpn::EncapDecapReadyClient, {ipv4Local, "ipv4Local"},
             {ipv6Local, "ipv6Local"}, {ipv4Remote, "ipv4Remote"}, {ipv6Remote, "ipv6Remote"})
CORVANE_ENUM(Multicast::Tunnel::McastTunnelType, {IrVxlanIpv4, "irVxlanIpv4"},
             {PimVxlan, "pimVxlan"})
CORVANE_ENUM(Multicast::Tunnel::McastTunnelClientType, {client1, "client1"}, {client2, "client2"})
CORVANE_ENUM(Multicast::Tunnel::PimVxlanTunnel::PimTunnelType, {pimSsm, "pimSsm"},
             {pimAsm, "pimAsm"})

namespace Multicast::Tunnel {

[[nodiscard]] constexpr McastTunnelType irVxlanIpv4() {
  return McastTunnelType::IrVxlanIpv4;
}
[[nodiscard]] constexpr McastTunnelType pimVxlan() {
  return McastTunnelType::PimVxlan;
}

/// "irVxlanIpv4", "pimVxlan"; parts of mount paths.
[[nodiscard]] inline std::string stringValue(McastTunnelType type) {
  return Vesk::enumText(type);
}
/// "client1", "client2"; parts of mount paths.
[[nodiscard]] inline std::string stringValue(McastTunnelClientType type) {
  return Vesk::enumText(type);
}

namespace PimVxlanTunnel {

inline std::ostream& operator<<(std::ostream& out, PimTunnelType type) {
  return out << Vesk::enumText(type);
}

}  // namespace PimVxlanTunnel

}  // namespace Multicast::Tunnel

// --- the rest of the switch ---

namespace McastCommon::AgentState {

/// What the supervisor wants of the agent: nothing yet, not to run, to run.
enum class AgentState : std::uint8_t { idle, stop, run };

}  // namespace McastCommon::AgentState

namespace Evpn {

enum class EncapType : std::uint8_t { vxlan = 1, mpls = 2 };

}  // namespace Evpn

namespace Vxlan {

enum class VtepType : std::uint8_t { vtepType1 = 1 };

enum class IntfOperStatus : std::uint8_t { unknown, up, down };

}  // namespace Vxlan

namespace Mlag {

enum class MlagState : std::uint8_t { disabled, inactive, negotiating, primary, secondary };

}  // namespace Mlag

namespace Redundancy {

/// Other modes are known by number.
enum class RedundancyMode : std::uint32_t { standby = 3 };

}  // namespace Redundancy

CORVANE_ENUM(McastCommon::AgentState::AgentState, {idle, "idle"}, {stop, "stop"}, {run, "run"})
CORVANE_ENUM(Evpn::EncapType, {vxlan, "vxlan"}, {mpls, "mpls"})
CORVANE_ENUM(Vxlan::VtepType, {vtepType1, "vtepType1"})
CORVANE_ENUM(Vxlan::IntfOperStatus, {unknown, "unknown"}, {up, "up"}, {down, "down"})
CORVANE_ENUM(Mlag::MlagState, {disabled, "disabled"}, {inactive, "inactive"},
             {negotiating, "negotiating"}, {primary, "primary"}, {secondary, "secondary"})
CORVANE_ENUM(Redundancy::RedundancyMode, {standby, "standby"})
