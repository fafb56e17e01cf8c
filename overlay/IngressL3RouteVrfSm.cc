#include "overlay/IngressL3RouteSm.h"
#include "platform/VlanOfIntf.h"
#include "runtime/Trace.h"

namespace Routing::Multicast::Fib::PimIntf {

bool PrefixRouteInfo::isPrefixGroup(const Pavlin::IpGenPrefix& group) {
  return group.length() != Pavlin::IpGenPrefix::maxLength(group.af());
}

}  // namespace Routing::Multicast::Fib::PimIntf

namespace Multicast::Vpn {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Briskel::Bridging::FdbEntry;
using Briskel::Bridging::FdbKey;
using Pavlin::IntfId;
using Pavlin::IpGenAddr;
using Pavlin::IpGenPrefix;
using Routing::Multicast::OverlayRouteKey;
using Routing::Multicast::Fib::PimIntf::PrefixRouteInfo;
using Vesk::textOf;

namespace {

const Vesk::TraceHandle traceHandle{"IngressL3RouteVrfSm"};

const char* traceText(IngressL3RouteVrfSm::Reason reason) {
  using enum IngressL3RouteVrfSm::Reason;
  switch (reason) {
    case allowed:
      break;
    case noIif:
      return " Do not allow route/proactive arp. No iif ";
    case iifIsNoVlan:
      return " Do not allow route/proactive arp. IIF is no vlan ";
    case prefixGroup:
      return " Do not allow route/proactive arp. Prefix mroute ";
    case vxlanNotActive:
      return " Do not allow route/proactive arp. Vxlan not active";
    case iifIsSbdVlan:
      return " Do not allow route/proactive arp. IIF is SBD Vlan";
    case noRecentActivity:
      return " Do not allow route/proactive arp. No recent traffic activity";
    case nonLocalSource:
      return " Do not allow route. IIF Vxlan Vlan: non local source";
    case notPegDrSbdVlan:
      return " Do not allow route. IIF External Inteface: not peg DR SBD Vlan";
    case starGroupRoute:
      return " Do not allow proactive ARP. *, G route";
    case iifIsGatewayVlan:
      return " Do not allow proactive ARP. IIF is a Vxlan Vlan and gateway Vlan";
    case iifIsNotVxlanVlan:
      return " Do not allow proactive ARP. IIF is not a Vxlan Vlan";
  }
  return "";
}

}  // namespace

IngressL3RouteVrfSm::IngressL3RouteVrfSm(Inputs inputs) : in(std::move(inputs)) {
  updateSbdVlanId();
  routes_.begin();
}

ProactiveArp& IngressL3RouteVrfSm::proactiveArp() const {
  return in.ingressL3RouteSm->proactiveArp();
}

void IngressL3RouteVrfSm::handleCleanup() {
  auto& owner = *in.ingressL3RouteSm;
  owner.sbdVlanChange(in.vrfName, sbdVlanId(), {});
  for (auto c = routesOfVlan_.begin(); !c.atEnd(); c.advance())
    owner.routesOfVlanChange(c.key(), in.vrfName, false);
  proactiveArp().vrfGoes(in.vrfName);
}

void IngressL3RouteVrfSm::review() {
  in.ingressL3RouteSm->reviewVrfInput(in.vrfName);
}

void IngressL3RouteVrfSm::updateSbdVlanId() {
  const auto& vti = in.ingressL3RouteSm->vtiStatus();
  const VlanIdOrNone vlan = vti ? vti->vrfToSBDVlan(in.vrfName) : VlanIdOrNone();
  in.ingressL3RouteSm->sbdVlanChange(in.vrfName, sbdVlanId(), vlan);
  sbdVlanIdIs(vlan);
}

// --- what an interface, a source and a route are

bool IngressL3RouteVrfSm::isVxlanVlan(IntfId intf) const {
  const VlanIdOrNone vlan = vlanOfIntf(intf);
  const auto& vti = in.ingressL3RouteSm->vtiStatus();
  return !vlan.isNone() && vti && vti->vlanToVniMapHas(vlan.vlanId());
}

bool IngressL3RouteVrfSm::isGatewayVlan(IntfId intf) const {
  const VlanIdOrNone vlan = vlanOfIntf(intf);
  return !vlan.isNone() && in.gatewayESStatus && in.gatewayESStatus->esVlanStatusHas(vlan.vlanId());
}

bool IngressL3RouteVrfSm::isSbdVlan(IntfId intf) const {
  const VlanIdOrNone vlan = vlanOfIntf(intf);
  return !vlan.isNone() && vlan == sbdVlanId();
}

bool IngressL3RouteVrfSm::isPegDrForVlan(VlanId vlan) const {
  return in.pegDrStatus->pegDrVlan(vlan).pegDrRole == Routing::Multicast::PegDrRole::dr;
}

bool IngressL3RouteVrfSm::isPegDrSBDVlan() const {
  return !sbdVlanId().isNone() && isPegDrForVlan(sbdVlanId().vlanId());
}

bool IngressL3RouteVrfSm::isActiveRoute(const RouteStatus& route, double now) const {
  const double last = route.lastActivityTime();
  return last != 0 && now - last <= in.ingressL3RouteSm->routeInactiveTime();
}

IngressL3RouteVrfSm::SourceVerdict IngressL3RouteVrfSm::judgeSource(IntfId intf,
                                                                    const IpGenAddr& source) const {
  using enum SourceVerdict::Step;
  const auto vrfId = in.ingressL3RouteSm->getVrfIdFromVrfName(in.vrfName);
  if (!vrfId) return {noVrfId, {}, {}};
  const auto neighbour = in.arpStatus->firstEntry(*vrfId, source);
  const VlanIdOrNone vlan = vlanOfIntf(intf);
  if (!neighbour || vlan.isNone()) return {noArpEntry, {}, {}};
  const FdbKey key{vlan.vlanId(), neighbour->ethAddr};
  const FdbEntry learnt = in.bridgingStatus->fdbEntry(key);
  if (learnt == FdbEntry{}) return {notLearnt, key, {}};
  const bool tunnel = Pavlin::VxlanTunnelIntfId::isVxlanTunnelIntfId(learnt.intfId);
  return {tunnel ? behindTunnel : local, key, learnt.intfId};
}

// --- the decisions

IngressL3RouteVrfSm::Reason IngressL3RouteVrfSm::missing(const RouteStatus& route,
                                                         Reason reason) const {
  if (auto t = traceHandle.at(7))
    t << "Vrf " << in.vrfName << " Route " << textOf(route.key()) << traceText(reason);
  return reason;
}

IngressL3RouteVrfSm::Reason IngressL3RouteVrfSm::isSparseModeRoute(const RouteStatus& route) const {
  if (route.iif().empty()) return missing(route, Reason::noIif);
  if (isOfNoVlan(route.iif())) return missing(route, Reason::iifIsNoVlan);
  if (PrefixRouteInfo::isPrefixGroup(route.key().group)) return missing(route, Reason::prefixGroup);
  return Reason::allowed;
}

IngressL3RouteVrfSm::Reason IngressL3RouteVrfSm::isSourceAndVxlanActiveAndIIFNonSBD(
    const RouteStatus& route, double now) const {
  const auto& vti = in.ingressL3RouteSm->vtiStatus();
  if (!vti || vti->operStatus() != Vxlan::IntfOperStatus::up)
    return missing(route, Reason::vxlanNotActive);
  if (isSbdVlan(route.iif())) return missing(route, Reason::iifIsSbdVlan);
  if (!isActiveRoute(route, now)) return missing(route, Reason::noRecentActivity);
  return Reason::allowed;
}

IngressL3RouteVrfSm::Reason IngressL3RouteVrfSm::routeReason(
    const RouteStatus& route, double now, std::optional<SourceVerdict>& judged) const {
  if (const Reason r = isSparseModeRoute(route); r != Reason::allowed) return r;
  const IntfId iif = route.iif();
  const bool gateway = isGatewayVlan(iif);
  if (const Reason r = isSourceAndVxlanActiveAndIIFNonSBD(route, now);
      r != Reason::allowed && !gateway)
    return r;
  if (isExternalIntf(iif)) {
    if (in.mcastEvpnConfig && in.mcastEvpnConfig->transitVrfHas(in.vrfName)) return Reason::allowed;
    return isPegDrSBDVlan() ? Reason::allowed : missing(route, Reason::notPegDrSbdVlan);
  }
  const IpGenAddr& source = route.key().source.ipGenAddr();
  if (source.isUnspecified()) return Reason::allowed;
  if (gateway) {
    if (auto t = traceHandle.at(7))
      t << "Vrf " << in.vrfName << " Route " << textOf(route.key())
        << " allow route at gateway VTEP";
    return Reason::allowed;
  }
  // What came in over the overlay must not be sent into it again.
  judged = judgeSource(iif, source);
  return judged->step == SourceVerdict::Step::local ? Reason::allowed
                                                    : missing(route, Reason::nonLocalSource);
}

IngressL3RouteVrfSm::Reason IngressL3RouteVrfSm::proactiveArpReason(const RouteStatus& route,
                                                                    double now) const {
  if (const Reason r = isSparseModeRoute(route); r != Reason::allowed) return r;
  if (const Reason r = isSourceAndVxlanActiveAndIIFNonSBD(route, now); r != Reason::allowed)
    return r;
  if (route.key().source.ipGenAddr().isUnspecified()) return missing(route, Reason::starGroupRoute);
  if (isGatewayVlan(route.iif())) return missing(route, Reason::iifIsGatewayVlan);
  return isVxlanVlan(route.iif()) ? Reason::allowed : missing(route, Reason::iifIsNotVxlanVlan);
}

IngressL3RouteVrfSm::Verdict IngressL3RouteVrfSm::verdict(const RouteStatus& route, double now,
                                                          Reason reason) const {
  return {.reason = reason,
          .iif = route.iif(),
          .sbdVlanId = sbdVlanId(),
          .lastActivityTime = route.lastActivityTime(),
          .now = now,
          .routeInactiveTime = in.ingressL3RouteSm->routeInactiveTime(),
          .source = {}};
}

IngressL3RouteVrfSm::Verdict IngressL3RouteVrfSm::judgeRoute(const RouteStatus& route,
                                                             double now) const {
  std::optional<SourceVerdict> source;
  Verdict judged = verdict(route, now, routeReason(route, now, source));
  judged.source = source;
  return judged;
}

IngressL3RouteVrfSm::Verdict IngressL3RouteVrfSm::judgeProactiveArp(const RouteStatus& route,
                                                                    double now) const {
  return verdict(route, now, proactiveArpReason(route, now));
}

// --- one route

void IngressL3RouteVrfSm::handleRouteChange(RouteKey key) {
  handleRoute(key, Vesk::System::currentTime());
}

void IngressL3RouteVrfSm::handleRoute(const RouteKey& key, double now) {
  const Ombra::Ptr<RouteStatus const> route = in.vrfStatus->route(key);
  if (const auto sm = routeSm(key); sm && route) iifVlanIs(*sm, vlanOfIntf(route->iif()));
  // Both may have to delete what was entered under the old interface.
  // Judged once: the ARP record hangs on the same row of the source as the route does.
  std::optional<Verdict> verdict;
  if (route) verdict = judgeRoute(*route, now);
  const bool arpAllowed =
      updateProactiveArp(key, route.get(), now, verdict ? verdict->source : std::nullopt);
  const bool routeAllowed = updateRoute(key, verdict && verdict->allowed() ? route.get() : nullptr);
  if (arpAllowed || routeAllowed) {
    acceptingIntfIdIs(key, route->iif());
  } else {
    acceptingIntfIdDel(key);
  }
}

void IngressL3RouteVrfSm::handleSource(const ArpRecord& entry, double now) {
  const auto groups = proactiveArp().groupsOf({in.vrfName, entry});
  if (!groups) return;
  for (const IpGenAddr& group : groups->groupIterator())
    handleRoute({IpGenPrefix(entry.addr), IpGenPrefix(group)}, now);
}

void IngressL3RouteVrfSm::iifVlanIs(RouteSm& routeSm, VlanIdOrNone vlan) {
  const VlanIdOrNone old = std::exchange(routeSm.iifVlan_, vlan);
  if (old == vlan) return;
  if (!old.isNone()) {
    std::uint32_t* const routes = routesOfVlan_.find(old.vlanId());
    if (--*routes == 0) {
      routesOfVlan_.erase(old.vlanId());
      in.ingressL3RouteSm->routesOfVlanChange(old.vlanId(), in.vrfName, false);
    }
  }
  if (vlan.isNone()) return;
  if (std::uint32_t* const routes = routesOfVlan_.find(vlan.vlanId())) {
    ++*routes;
  } else {
    routesOfVlan_.insert(vlan.vlanId(), 1);
    in.ingressL3RouteSm->routesOfVlanChange(vlan.vlanId(), in.vrfName, true);
  }
}

bool IngressL3RouteVrfSm::updateRoute(const RouteKey& key, const RouteStatus* route) {
  const IpGenAddr& source = key.source.ipGenAddr();
  const IpGenAddr& group = key.group.ipGenAddr();
  const IntfId accepting = acceptingIntfId(key);
  if (route != nullptr) {
    const auto status = in.ingressL3RouteStatus->vrfStatusIs(in.vrfName);
    if (!accepting.empty() && accepting != route->iif())
      status->routeDel({source, group, accepting});
    if (auto t = traceHandle.at(6))
      t << "Vrf: " << in.vrfName << " Add " << textOf(key) << " intfId " << route->iif();
    status->routeIs({source, group, route->iif()});
    return true;
  }
  const auto status = in.ingressL3RouteStatus->vrfStatus(in.vrfName);
  if (!status || accepting.empty()) {
    if (auto t = traceHandle.at(8))
      t << "Vrf " << in.vrfName << " Route " << textOf(key)
        << (status ? " no local accepting intfId. Nothing to delete"
                   : " no vrf status. Nothing to delete");
    return false;
  }
  status->routeDel({source, group, accepting});
  if (status->routeCount() == 0) {
    if (auto t = traceHandle.at(6)) t << "Vrf " << in.vrfName << " delete VRF. No routes ";
    in.ingressL3RouteStatus->vrfStatusDel(in.vrfName);
  }
  return false;
}

// --- proactive ARP

bool IngressL3RouteVrfSm::updateProactiveArp(const RouteKey& key, const RouteStatus* route,
                                             double now,
                                             const std::optional<SourceVerdict>& judged) {
  const IpGenAddr& source = key.source.ipGenAddr();
  const IpGenAddr& group = key.group.ipGenAddr();
  const IntfId accepting = acceptingIntfId(key);
  const bool allowed = route != nullptr && allowProactiveArp(*route, now);
  if (auto t = traceHandle.at(8))
    t << "Vrf " << in.vrfName << " Route " << textOf(key)
      << (allowed ? " Allow proactive ARP" : " Do not allow proactive ARP");
  if (!accepting.empty() && (!allowed || accepting != route->iif())) {
    proactiveArp().needNoMore({in.vrfName, {source, accepting}}, group);
  } else if (!allowed) {
    if (auto t = traceHandle.at(8))
      t << "Vrf " << in.vrfName << " Route " << textOf(key)
        << " no local accepting intfId. Nothing to delete";
  }
  if (!allowed) return false;
  const ProactiveArp::Source wanted{in.vrfName, {source, route->iif()}};
  proactiveArp().need(wanted, group);
  proactiveArp().fdbKeyIs(wanted, judged ? judged->fdbKey : std::nullopt);
  return true;
}

void IngressL3RouteVrfSm::adoptArpRecords() {
  for (const auto& [entry, record] : in.ingressL3RouteSm->arpEntryVrfCollIterator()) {
    const auto groups = record->vrf(in.vrfName);
    if (!groups) continue;
    for (const IpGenAddr& group : groups->groupIterator()) {
      const RouteKey key{IpGenPrefix(entry.addr), IpGenPrefix(group)};
      if (in.vrfStatus->routeHas(key)) {
        acceptingIntfIdIs(key, entry.intfId);
      } else {
        proactiveArp().needNoMore({in.vrfName, entry}, group);
      }
    }
  }
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::IngressL3RouteVrfSm)
VESK_REGISTER(Multicast::Vpn::IngressL3RouteVrfSm::RouteSm)
