#include "agent/ExplainEncap.h"

#include "agent/AfContainerSm.h"
#include "agent/Explain.h"
#include "runtime/Clock.h"

namespace Multicast::Vpn {
namespace {

using Routing::Multicast::IpTunnelGroupIntfConfigSm;
using Routing::Multicast::OverlayVlanGroup;
using Reason = IngressL3RouteVrfSm::Reason;
using MappingReason = IpTunnelGroupIntfConfigSm::MappingReason;

/// One chain. Each step says what it found; the first that finds something missing ends it.
class Chain {
 public:
  Chain(ExplainReport& report, const OverlayVlanGroup& key) : report_(report), key_(key) {}

  void tell(const DomainContainerSm& sm) {
    const auto container = sm.domainContainer();
    if (!mapped(sm)) return;
    if (!grouped(sm, *container)) return withAllOthers(*container);
    if (routed(sm, *container)) forwarded(sm, *container);
  }

 private:
  [[nodiscard]] std::string vlanText() const { return "vlan " + Vesk::textOf(key_.vlan); }

  /// Configuration: the vlan can be carried at all.
  bool mapped(const DomainContainerSm& sm) {
    const auto config = sm.ipTunnelGroupConfigSm() ? sm.ipTunnelGroupConfigSm()->intfSm() : nullptr;
    if (!config)
      return report_.stop(
          "no VXLAN interface has group configuration with the overlay of this family enabled");
    const auto mapping = config->getVlanMappingConfig(key_.vlan);
    switch (config->judgeVlanMapping(key_.vlan, mapping)) {
      case MappingReason::usable:
        break;
      case MappingReason::noConfiguration:
        return report_.stop(
            vlanText() + " has no usable group configuration of its own, and no VRF lends it one");
      case MappingReason::interfaceDown:
        return report_.stop("the VXLAN interface is down");
      case MappingReason::noDefaultGroup:
        return report_.stop(vlanText() + " has no default underlay group");
      case MappingReason::noVtep:
        return report_.stop(
            fmt::format("the VXLAN interface has no local VTEP address of the family of {}",
                        Vesk::textOf(mapping->effDefaultUnderlayGroup())));
      case MappingReason::vlanNotActive:
        return report_.stop(vlanText() + " is not active");
      case MappingReason::ingressReplication:
        return report_.stop("underlay multicast is off: traffic goes by ingress replication");
    }
    report_.given(fmt::format("{} is carried{}, default underlay group {}", vlanText(),
                              mapping->isSbdVlan() ? " as an SBD vlan" : "",
                              Vesk::textOf(mapping->effDefaultUnderlayGroup())));
    return true;
  }

  /// A table holds the group: configuration wants it, or a route does.
  bool grouped(const DomainContainerSm& sm, const DomainContainer& container) {
    const auto holds = [&](const std::string& name) {
      const auto table = container.vlanGroupTableColl()->table(name);
      const auto groups = table ? table->vlan(key_.vlan) : nullptr;
      return groups && groups->groupHas(key_.group.genAddr());
    };
    if (holds(VlanGroupTableColl::getDefaultTableName())) {
      report_.given(key_.group.isUnspecified()
                        ? "it stands for all groups without a row of their own"
                        : "configuration names the group");
      return true;
    }
    const bool byRoute = holds(VlanGroupTableColl::getL3TableName());
    tellRoutes(sm, container, byRoute);
    return byRoute || report_.stop("neither configuration nor a route asks for the group");
  }

  /// A group without a row of its own is not lost.
  void withAllOthers(const DomainContainer& container) {
    const auto vlan = container.ipTunnelForwardingStatus()->vlanStatus(key_.vlan);
    const auto all = OverlayVlanGroup::anyGroup(key_.vlan, key_.group.af());
    const auto row =
        vlan ? vlan->overlayToUnderlay(Routing::Multicast::OverlayRoute::wcRoute(all.group))
             : Routing::Multicast::IpTunnelMapping();
    const std::string others = "with all other groups of " + vlanText();
    if (row == Routing::Multicast::IpTunnelMapping())
      return report_.missing(
          fmt::format("it would travel {}, for which no forwarding row is published yet", others));
    report_.given(fmt::format("it travels in {} {}: forwarding row {}",
                              Vesk::textOf(row.underlayRoute.underlayGroup), others,
                              Vesk::textOf(row.underlayRoute)));
  }

  /// What became of each route of the group; with a row in force, of those that hold it.
  void tellRoutes(const DomainContainerSm& sm, const DomainContainer& container, bool inForce) {
    if (!sm.ingressL3RouteSm()) {
      report_.given("no VRF has a range of underlay groups, so routes are not looked at");
      return;
    }
    for (const auto& [vrf, routes] : sm.ingressL3RouteSm()->vrfSmIterator()) {
      const auto selected = container.ingressL3RouteStatus()->vrfStatus(vrf);
      for (const auto& [key, route] : routes->in.vrfStatus->routeIterator()) {
        if (key.group.ipGenAddr() != key_.group.genAddr()) continue;
        const auto verdict = routes->judgeRoute(*route, Vesk::System::currentTime());
        const Routing::Multicast::OverlayRouteKey carried{key.source.ipGenAddr(),
                                                          key.group.ipGenAddr(), verdict.iif};
        const std::string words =
            fmt::format("route {} in VRF {}: ", Vesk::textOf(key), Vesk::textOf(vrf));
        if (verdict.allowed()) {
          tellCarrier(sm, vrf, carried, words);
        } else if (!inForce) {
          report_.missing(words + refusal(verdict));
        } else if (selected && selected->routeHas(carried)) {
          report_.given(words + refusal(verdict) + ", so it leaves at the next review");
        }
      }
    }
  }

  /// Which vlan an allowed route travels in.
  void tellCarrier(const DomainContainerSm& sm, const L3::VrfName& vrf,
                   const Routing::Multicast::OverlayRouteKey& route, const std::string& words) {
    const auto carrier = sm.l3OverlayGroupSm()->judgeRoute(vrf, route);
    if (carrier.effectiveVlan.isNone()) {
      report_.missing(fmt::format("{}VRF {} has no SBD vlan", words, Vesk::textOf(vrf)));
    } else if (!carrier.hasRow()) {
      report_.missing(
          words + (carrier.present ? "the VXLAN interface is down" : "it waits for its review"));
    } else {
      report_.given(
          fmt::format("{}allowed, carried in vlan {}", words, Vesk::textOf(carrier.effectiveVlan)));
    }
  }

  static std::string refusal(const IngressL3RouteVrfSm::Verdict& verdict) {
    const std::string iif = Vesk::textOf(verdict.iif);
    switch (verdict.reason) {
      case Reason::allowed:
        return "allowed";
      case Reason::noIif:
        return "it has no incoming interface";
      case Reason::iifIsNoVlan:
        return fmt::format("it comes in by {}, which no frame can belong to", iif);
      case Reason::prefixGroup:
        return "its group is a prefix, not one group";
      case Reason::vxlanNotActive:
        return "the VXLAN interface is down";
      case Reason::iifIsSbdVlan:
        return fmt::format("it comes in by the SBD vlan's {}, out of the overlay", iif);
      case Reason::noRecentActivity:
        return verdict.lastActivityTime == 0
                   ? "it has never had traffic"
                   : fmt::format("it has had no traffic for {:.0f} s, limit {:.0f} s",
                                 verdict.now - verdict.lastActivityTime, verdict.routeInactiveTime);
      case Reason::nonLocalSource:
        return fmt::format("its source is not known to be local on {}", iif);
      case Reason::notPegDrSbdVlan:
        return fmt::format(
            "it comes in by {} from outside, and this switch is not the gateways' DR for SBD vlan "
            "{}",
            iif, Vesk::textOf(verdict.sbdVlanId));
      case Reason::starGroupRoute:
        return "it is a (*, G) route";
      case Reason::iifIsGatewayVlan:
        return fmt::format("it comes in by the gateway vlan's {}", iif);
      case Reason::iifIsNotVxlanVlan:
        return fmt::format("it comes in by {}, which is not extended by VXLAN", iif);
    }
    return "unknown";
  }

  /// The group has an underlay group and a VTEP.
  bool routed(const DomainContainerSm& sm, const DomainContainer& container) {
    const auto verdict = sm.ipTunnelVlanMcastGroupSm()->judgeGroup(
        key_, container.ipTunnelMappingStatus()->vlanStatus(key_.vlan));
    if (verdict.underlayGroup.isUnspecified())
      return report_.stop("configuration gives the group no underlay group");
    if (verdict.vtep.isUnspecified())
      return report_.stop(fmt::format("there is no local VTEP address of the family of {}",
                                      Vesk::textOf(verdict.underlayGroup)));
    report_.given(fmt::format("it travels in underlay group {} from VTEP {}",
                              Vesk::textOf(verdict.underlayGroup), Vesk::textOf(verdict.vtep)));
    const auto status = container.encapVlanGroupStatus()->vlanToMulticastGroup(key_);
    return (status && status->multicastGroupCount() != 0) ||
           report_.stop("its review has not run yet");
  }

  void forwarded(const DomainContainerSm& sm, const DomainContainer& container) {
    const auto vlan = container.ipTunnelForwardingStatus()->vlanStatus(key_.vlan);
    const auto mapping =
        vlan ? vlan->overlayToUnderlay(Routing::Multicast::OverlayRoute::wcRoute(key_.group))
             : Routing::Multicast::IpTunnelMapping();
    if (const auto wait = sm.ipTunnelMappingSm()->timeUntilServed(key_))
      return report_.missing(fmt::format("waiting {:.0f} s for the settling delay", *wait));
    if (mapping == Routing::Multicast::IpTunnelMapping())
      return report_.missing("no forwarding row is published");
    report_.given("forwarding row: " + Vesk::textOf(mapping.underlayRoute));
  }

  ExplainReport& report_;
  OverlayVlanGroup key_;
};

}  // namespace

void explainEncap(ExplainReport& report, const AfContainerSm& family, Irb::Multicast::Domain domain,
                  const OverlayVlanGroup& key) {
  if (const auto sm = family.domainCntrSm(domain)) return Chain(report, key).tell(*sm);
  report.missing(family.snooping() ? "this switch has no gateway Ethernet segment"
                                   : fmt::format("{} snooping is off",
                                                 family.af == Pavlin::ipv4() ? "IGMP" : "MLD"));
}

}  // namespace Multicast::Vpn
