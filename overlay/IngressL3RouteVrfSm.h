// The routes of one VRF that may enter the overlay here, and the sources that need a neighbour.
// Owns: a notifiee per route, and under which interface each route in use was entered. Reads: the
// VRF's multicast FIB, of Vxlan1 the vlans and the SBD vlan, neighbours and where they are learnt,
// the designated-router roles, transit VRFs and gateway vlans. Writes: the VRF's IngressVrfStatus;
// the proactive ARP records of its owner. Runs: one route at a time, from its notifiee or from the
// owner's walk.
#pragma once

#include <optional>

#include "records/BriskelInputs.h"
#include "records/EncapTables.h"
#include "records/Evpn.h"
#include "records/Fib.h"
#include "records/ProactiveArp.h"
#include "runtime/Record.h"

namespace Multicast::Vpn {

class IngressL3RouteSm;
class ProactiveArp;

class IngressL3RouteVrfSm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Vpn::IngressL3RouteVrfSm)
  using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;
  using RouteStatus = Routing::Multicast::Fib::Hardware::RouteStatus;
  using ArpRecord = Arp::ProactiveArp::Entry;

  struct Inputs {
    L3::VrfName vrfName;
    IngressL3RouteSm* ingressL3RouteSm;
    Ombra::Ptr<Routing::Multicast::Fib::Hardware::VrfStatus const> vrfStatus;
    Ombra::Ptr<Vrf::VrfIdMap::Status const> arpBriskelVrfIdMap;
    Ombra::Ptr<Arp::Table::Status const> arpStatus;
    Ombra::Ptr<Briskel::Bridging::Status const> bridgingStatus;
    Ombra::Ptr<Routing::Multicast::PegDrStatus const> pegDrStatus;
    Ombra::Ptr<Routing::Multicast::Evpn::Config const> mcastEvpnConfig;
    Ombra::Ptr<IngressL3RouteStatus> ingressL3RouteStatus;
    Ombra::Ptr<Arp::ProactiveArp::ClientConfig> proactiveArpConfig;
    Ombra::Ptr<Irb::Multicast::GatewayEsStatus const> gatewayESStatus;  ///< null without gateways
    bool operator==(const Inputs&) const = default;
  };
  explicit IngressL3RouteVrfSm(Inputs inputs);
  const Inputs in;

  /// Follows the attributes of one route; routes are many, so it listens once for all of them.
  class RouteSm final : public Vesk::Machine {
    VESK_RECORD(Multicast::Vpn::IngressL3RouteVrfSm::RouteSm)
    struct Inputs {
      IngressL3RouteVrfSm* parent;
      Ombra::Ptr<RouteStatus const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit RouteSm(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;

    void handleDel() { in.parent->iifVlanIs(*this, {}); }

   private:
    friend class IngressL3RouteVrfSm;
    Bridging::VlanIdOrNone iifVlan_;  ///< as last judged
    Vesk::Watch row_{this, in.row, Vesk::Listener::anyField,
                     [](Vesk::Listener& self, Ombra::FieldId, const void*) {
                       auto& sm = static_cast<RouteSm&>(*self.owner());
                       sm.in.parent->handleRouteChange(sm.in.row->key());
                     }};
  };

  /// The VRF's SBD vlan.
  VESK_VALUE(Bridging::VlanIdOrNone, sbdVlanId)
  /// For each route in use, allowed or ARPed: the interface under which it was entered.
  VESK_MAP(RouteKey, Pavlin::IntfId, acceptingIntfId)
  VESK_INSTANCES(RouteKey, RouteSm, routeSm)

  /// Why a route is allowed or refused, resp. its source is ARPed or not.
  enum class Reason : std::uint8_t {
    allowed,
    noIif,
    iifIsNoVlan,
    prefixGroup,
    vxlanNotActive,
    iifIsSbdVlan,
    noRecentActivity,
    nonLocalSource,
    notPegDrSbdVlan,
    starGroupRoute,
    iifIsGatewayVlan,
    iifIsNotVxlanVlan,
  };
  /// How far the search for the source's port came.
  struct SourceVerdict {
    enum class Step : std::uint8_t { noVrfId, noArpEntry, notLearnt, behindTunnel, local };
    Step step;
    std::optional<Briskel::Bridging::FdbKey> fdbKey;  ///< what was looked up, from `notLearnt` on
    Pavlin::IntfId intfId;                            ///< where it was learnt
  };

  /// The first missing condition, or `allowed`, with what the conditions were tested on.
  struct Verdict {
    Reason reason;
    Pavlin::IntfId iif;
    Bridging::VlanIdOrNone sbdVlanId;
    double lastActivityTime;
    double now;
    double routeInactiveTime;
    std::optional<SourceVerdict> source;  ///< if the source was asked for

    [[nodiscard]] bool allowed() const { return reason == Reason::allowed; }
  };
  [[nodiscard]] Verdict judgeRoute(const RouteStatus& route, double now) const;
  [[nodiscard]] Verdict judgeProactiveArp(const RouteStatus& route, double now) const;
  [[nodiscard]] bool allowProactiveArp(const RouteStatus& route, double now) const {
    return judgeProactiveArp(route, now).allowed();
  }

  [[nodiscard]] SourceVerdict judgeSource(Pavlin::IntfId intf,
                                          const Pavlin::IpGenAddr& source) const;

  [[nodiscard]] bool isVxlanVlan(Pavlin::IntfId intf) const;
  [[nodiscard]] bool isExternalIntf(Pavlin::IntfId intf) const { return !isVxlanVlan(intf); }
  [[nodiscard]] bool isGatewayVlan(Pavlin::IntfId intf) const;
  [[nodiscard]] bool isSbdVlan(Pavlin::IntfId intf) const;
  [[nodiscard]] bool isPegDrForVlan(Bridging::VlanId vlan) const;
  [[nodiscard]] bool isPegDrSBDVlan() const;
  [[nodiscard]] bool isActiveRoute(const RouteStatus& route, double now) const;

  void updateSbdVlanId();
  void handleRoute(const RouteKey& key, double now);
  /// Judges all routes from this source by this interface.
  void handleSource(const ArpRecord& entry, double now);
  /// Takes over what an earlier machine of the VRF left in the ARP records: each record becomes
  /// one of its route's, or goes if there is no such route any more.
  void adoptArpRecords();
  void review() override;

 private:
  void handleRouteChange(RouteKey key);
  void handleCleanup() override;

  [[nodiscard]] Reason missing(const RouteStatus& route, Reason reason) const;
  [[nodiscard]] Reason isSparseModeRoute(const RouteStatus& route) const;
  [[nodiscard]] Reason isSourceAndVxlanActiveAndIIFNonSBD(const RouteStatus& route,
                                                          double now) const;
  [[nodiscard]] Reason routeReason(const RouteStatus& route, double now,
                                   std::optional<SourceVerdict>& source) const;
  [[nodiscard]] Reason proactiveArpReason(const RouteStatus& route, double now) const;
  [[nodiscard]] Verdict verdict(const RouteStatus& route, double now, Reason reason) const;

  void iifVlanIs(RouteSm& routeSm, Bridging::VlanIdOrNone vlan);
  [[nodiscard]] bool updateProactiveArp(const RouteKey& key, const RouteStatus* route, double now,
                                        const std::optional<SourceVerdict>& source);
  /// `route` is null if it is gone or not to be carried.
  [[nodiscard]] bool updateRoute(const RouteKey& key, const RouteStatus* route);
  [[nodiscard]] ProactiveArp& proactiveArp() const;

  /// Routes per vlan of their incoming interface.
  Vesk::KeyedMap<Bridging::VlanId, std::uint32_t> routesOfVlan_;
  Vesk::Follow routes_ = follow<&IngressL3RouteVrfSm::handleRouteChange>(
      in.vrfStatus, Routing::Multicast::Fib::Hardware::VrfStatus::routeAttr, routeSmAttr);
};

}  // namespace Multicast::Vpn
