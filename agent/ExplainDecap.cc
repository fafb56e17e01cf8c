#include "agent/ExplainDecap.h"

#include "agent/AfContainerSm.h"
#include "agent/CorvaneAgent.h"
#include "agent/Explain.h"
#include "platform/Toggles.h"

namespace Multicast::Vpn {
namespace {

using namespace Irb::Multicast;
using Bridging::VlanId;
using Routing::Gmp::Briskel::RouteIntfKey;
using Routing::Multicast::OverlayVlanGroup;
using Routing::Multicast::UnderlayRoute;
using Vesk::textOf;

std::string textOfDomain(Domain domain) {
  return domain == Domain::localDomain ? "local" : "remote";
}

/// One chain. Who wants the group is told in full; then each step says what it found, and the first
/// that finds something missing ends it.
class Chain {
 public:
  Chain(ExplainReport& report, const AfContainerSm& family, Domain domain,
        const OverlayVlanGroup& key)
      : report_(report),
        family_(family),
        container_(*family.in.container),
        sm_(*family.vpnInjectSm()),
        isLocal_(domain == Domain::localDomain),
        domain_(domain),
        key_(key),
        target_{container_.mcastIrbStatus()->targetOf(key.vlan), key.group} {}

  void tell() {
    tellVlan();
    if (wanted() && begun() && entered()) joined();
    flooded();
  }

 private:
  [[nodiscard]] auto reviewSm() const {
    return isLocal_ ? sm_.vpnInjectReviewSm() : sm_.vpnInjectReviewRemoteDomainSm();
  }
  [[nodiscard]] auto reduceSm() const {
    return isLocal_ ? sm_.ipTunnelVlanGroupReduceSm() : sm_.ipTunnelVlanGroupReduceSmRemoteDomain();
  }
  [[nodiscard]] auto l2InjectSm() const {
    return isLocal_ ? sm_.l2InjectSm() : sm_.l2InjectSmRemoteDomain();
  }
  [[nodiscard]] const Egress::MembershipJoinStatusColl& joins() const {
    return *container_.membershipJoinStatusColl();
  }
  static std::string vlanText(VlanId vlan) { return "vlan " + textOf(vlan); }

  // --- through which vlan

  void tellVlan() {
    if (const auto sbd = sm_.sbdToVlanStatus()->sbdStatus(key_.vlan))
      return report_.given(fmt::format("{} is the SBD vlan of {} {}", vlanText(key_.vlan),
                                       sbd->vlanIdCount(),
                                       sbd->vlanIdCount() == 1 ? "vlan" : "vlans"));
    if (family_.mcastIrbStatusSm()) {
      tellVlanOfPipeline(*family_.mcastIrbStatusSm());
    } else if (family_.vxlanSm()) {
      tellVlanOfVxlan(*family_.vxlanSm());
    }
  }
  void tellVlanOfPipeline(const McastIrbStatusSm& sm) {
    const auto vrf = sm.vrfOf(key_.vlan);
    if (!vrf) return standsForItself("its SVI is in no overlay VRF");
    const auto sbd = sm.judgeVrf(*vrf).effective();
    if (!sbd) return standsForItself(fmt::format("VRF {} has no SBD vlan", textOf(*vrf)));
    tellVlanInVrf(*vrf, *sbd, container_.mergedGmpProxyStatus()->igmpProxyVlanHas(key_.vlan));
  }
  void tellVlanOfVxlan(const VxlanSm& sm) {
    const auto verdict = sm.judge(key_.vlan);
    switch (verdict.reason) {
      case VxlanSm::Reason::notRouted:
        return standsForItself("its SVI is in no overlay VRF");
      case VxlanSm::Reason::noVti:
        return standsForItself("the VXLAN interface is down");
      case VxlanSm::Reason::noSbdVlan:
        return standsForItself(fmt::format("VRF {} has no SBD vlan", textOf(verdict.vrf)));
      default:
        return tellVlanInVrf(verdict.vrf, verdict.sbdVlan.vlanId(),
                             verdict.reason != VxlanSm::Reason::notProxied);
    }
  }
  void tellVlanInVrf(const L3::VrfName& vrf, VlanId sbd, bool isProxied) {
    if (sbd == key_.vlan) {
      report_.given(fmt::format("{} is the SBD vlan of VRF {}", vlanText(sbd), textOf(vrf)));
    } else if (!isProxied) {
      standsForItself("it is not proxied");
    } else {
      report_.given(fmt::format("{} is routed in VRF {} and served through SBD vlan {}",
                                vlanText(key_.vlan), textOf(vrf), textOf(sbd)));
    }
  }
  void standsForItself(const std::string& why) {
    report_.given(fmt::format("{} stands for itself: {}", vlanText(key_.vlan), why));
  }

  // --- who wants it

  bool wanted() {
    tellReceivers(key_.vlan);
    ReceiverDomain mask = activeIn(target_.vlan);
    std::string others;
    const auto count = [&](VlanId vlan) {
      if (vlan == key_.vlan || !joinDomain(activeIn(vlan), domain_)) return;
      others += (others.empty() ? "" : ", ") + textOf(vlan);
    };
    count(target_.vlan);
    if (const auto sbd = sm_.sbdToVlanStatus()->sbdStatus(target_.vlan)) {
      for (const VlanId& member : sbd->vlanIdIterator()) {
        mask |= activeIn(member);
        count(member);
      }
    }
    if (!others.empty())
      report_.given(fmt::format("SBD vlan {} has receivers for it in vlan {} too",
                                textOf(target_.vlan), others));
    return joinDomain(mask, domain_) ||
           report_.stop(fmt::format("no client has receivers for it in the {} domain",
                                    textOfDomain(domain_)));
  }
  [[nodiscard]] ReceiverDomain activeIn(VlanId vlan) const {
    return key_.group.isUnspecified() ? joins().vlanActive(vlan)
                                      : joins().groupActive(vlan, key_.group.genAddr());
  }

  void tellReceivers(VlanId vlan) {
    for (const auto& [name, status] : joins().localMembershipIterator())
      if (const auto membership = status->vlan(vlan)) tellClient(name, *membership);
    for (const auto& [name, status] : joins().peerMembershipIterator()) {
      const auto membership = status->vlan(vlan);
      if (!membership) continue;
      for (const auto& [group, join] : membership->groupIterator())
        if (key_.group.isUnspecified() || group == key_.group.genAddr()) tellPeer(name, *join);
    }
  }
  /// `count` tells whether receivers of this kind count here.
  void tellIfCounts(const std::string& words, ReceiverDomain mask) {
    if (joinDomain(mask, domain_)) return report_.given(words);
    const bool remote = joinDomain(mask, Domain::remoteDomain);
    const bool local = joinDomain(mask, Domain::localDomain);
    report_.missing(words + (remote  ? ", which count for the remote domain only"
                             : local ? ", which count for the local domain only"
                                     : ", which count for no domain"));
  }
  void tellClient(const std::string& name, const Gmp::VlanMembershipJoin& membership) {
    const ReceiverDomain mask = receiverDomain(App::ClientInstance(name));
    const std::string where = " in " + vlanText(membership.vlanId());
    for (const auto& [group, join] : membership.groupIterator()) {
      if (group.isUnspecified()) {
        tellIfCounts(fmt::format("{} has joined everything{}", name, where), mask);
      } else if (key_.group.isUnspecified() || group == key_.group.genAddr()) {
        const std::string words =
            fmt::format("{} has receivers{}{}", name, where,
                        key_.group.isUnspecified() ? " of " + textOf(group) : std::string());
        if (joins().leakedGroup(membership.vlanId(), group)) {
          report_.missing(
              fmt::format("{}, but the group leaks to VRF {}", words, leakTarget(group)));
        } else {
          tellIfCounts(words, mask);
        }
      }
    }
  }
  [[nodiscard]] std::string leakTarget(const Pavlin::IpGenAddr& group) const {
    const auto context = container_.mcastVrfLeakCtx();
    const auto vrf = context->vxlanEnabledStatus()->sbdVlanToVrf(target_.vlan.value());
    return textOf(context->vrfLeakMatcherStatus()->shouldLeak(vrf, group));
  }
  void tellPeer(const std::string& name, const Gmp::GroupMembershipJoin& join) {
    const ReceiverDomain mask = receiverDomain(App::ClientInstance(name));
    const auto tellIntf = [&](const Pavlin::IntfId& intf) {
      const bool tunnel = Multicast::Tunnel::McastTunnelIntfId::isMcastTunnelIntfId(intf);
      tellIfCounts(fmt::format("the MLAG peer has receivers on {}", textOf(intf)),
                   mask & (tunnel ? ReceiverDomain::remoteOnly : ReceiverDomain::plainIntf));
    };
    for (const auto& [addr, source] : join.sourceIterator()) {
      for (const Pavlin::IntfId& intf : source->firstIntfIterator())
        tellIntf(intf);
      for (const Pavlin::IntfId& intf : source->secondIntfIterator())
        tellIntf(intf);
    }
  }

  // --- whether it has been judged

  bool begun() {
    return reviewSm() || report_.stop(
                             "reviews have not begun: they wait for the stage "
                             "CorvaneDecapReconcile of the switchover");
  }

  /// The reduced status has it, under the vlan that the traffic comes out in.
  bool entered() {
    const auto reduced =
        isLocal_ ? sm_.reducedVlanGroupStatus() : sm_.reducedTunnelStatusRemoteDomain();
    if (reduced->vlanToMulticastGroupHas(target_)) return true;
    const auto any = OverlayVlanGroup::anyGroup(target_.vlan, key_.group.genAddr().af());
    return report_.stop(
        reduced->vlanToMulticastGroupHas(any)
            ? fmt::format("it has no underlay group of its own: it comes with all "
                          "other groups of {}",
                          vlanText(target_.vlan))
            : fmt::format("no underlay group is announced for it in {}", vlanText(target_.vlan)));
  }

  void joined() {
    const auto review = reviewSm();
    if (!review->firstReviewComplete())
      report_.given("the first review is under way: stale rows of a former process stay for now");
    const bool isDue = review->isDue(target_);
    if (isDue) report_.missing("its own review has not come to it yet");
    for (const auto& offer : reduceSm()->offersTo(target_)) {
      const std::string words =
          fmt::format("underlay route {} of {}", textOf(offer.route), vlanText(offer.vlan));
      if (!offer.takesPart) {
        report_.missing(fmt::format("{} is refused: {}", words, refusal(offer)));
      } else {
        tellRow(words, offer.route, isDue);
      }
    }
  }
  [[nodiscard]] std::string refusal(
      const Routing::Multicast::IpTunnelVlanGroupReduceSm::Offer& offer) const {
    const Routing::Multicast::UnderlayRouteContext context{.route = offer.route,
                                                           .vlanId = offer.vlan};
    std::string why;
    for (const auto& [number, filter] : sm_.in.filterSet->filterIterator())
      if (!filter->filterUnderlayRoute(context))
        why += (why.empty() ? "" : "; ") + filter->whyNot(context);
    return why;
  }
  void tellRow(const std::string& words, const UnderlayRoute& route, bool isDue) {
    const RouteIntfKey row = rowOf(target_.vlan, route);
    if (hasRow(row)) {
      report_.given(fmt::format("{} is joined: PIM's row {}{}", words, textOf(row),
                                isDue ? ", left by a former process" : ""));
    } else {
      report_.missing(
          fmt::format("{} is not joined yet: PIM's row {} is not there", words, textOf(row)));
    }
  }

  // --- the flood

  void flooded() {
    const auto& container = *container_.domainContainer(domain_);
    const auto flood = container.decapVlanGroupStatus()->vlanToFloodGroup(key_.vlan);
    if (!flood) return;
    for (const UnderlayRoute& route : flood->floodGroupIterator()) {
      const std::string words = fmt::format("underlay route {} carries the flood of {}",
                                            textOf(route), vlanText(key_.vlan));
      if (l2InjectSm() && l2InjectSm()->holdsRoute(key_.vlan, route)) {
        report_.given(fmt::format("{}: PIM's row {}", words, textOf(rowOf(key_.vlan, route))));
      } else {
        report_.missing(words + (l2InjectSm() ? ", and the MLAG peer joins it"
                                              : ", and reviews have not begun"));
      }
    }
  }

  static RouteIntfKey rowOf(VlanId vlan, const UnderlayRoute& route) {
    return Routing::Gmp::Briskel::createRouteIntfKey(Pavlin::VlanIntfId::vlanIdToIntfId(vlan),
                                                     route);
  }
  [[nodiscard]] bool hasRow(const RouteIntfKey& row) const {
    const auto family = row.group.af() == Pavlin::ipv4() ? Pavlin::ipv4() : Pavlin::ipv6();
    return container_.agent()->afContainer(family)->underlayGmpStatus()->membershipHas(row);
  }

  ExplainReport& report_;
  const AfContainerSm& family_;
  const AfContainer& container_;
  const Egress::VpnInjectSm& sm_;
  const bool isLocal_;
  const Domain domain_;
  const OverlayVlanGroup key_;
  /// Where its traffic comes out.
  const OverlayVlanGroup target_;
};

}  // namespace

bool hasDecap(const AfContainerSm& family, Irb::Multicast::Domain domain) {
  return family.vpnInjectSm() &&
         (domain == Irb::Multicast::Domain::localDomain || family.vpnInjectSm()->oismGateway());
}

void explainDecap(ExplainReport& report, const AfContainerSm& family, Irb::Multicast::Domain domain,
                  const OverlayVlanGroup& key) {
  Chain(report, family, domain, key).tell();
}

}  // namespace Multicast::Vpn
