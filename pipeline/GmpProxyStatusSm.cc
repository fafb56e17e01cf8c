#include "pipeline/GmpProxyStatusSm.h"

#include "platform/VlanOfIntf.h"

namespace Irb::Multicast {
namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Evpn::EncapType;
using L3::VrfName;
using Lynthe::Change;
using Lynthe::Half;
using Lynthe::Nested;
using Routing::Multicast::MvpnIntfStatus;
using Vrf::VrfIdMap::VrfId;

using ClaimedVlan = Change<Nested<Pavlin::IntfId, VrfName>, VlanIdOrNone>;

const Vesk::TraceHandle traceHandle("GmpProxyStatusSm");

/// Vlan 0 is no vlan.
std::optional<VlanIdOrNone> vlanOrNothing(const std::optional<VlanIdOrNone>& vlan) {
  return vlan && !vlan->isNone() ? vlan : std::nullopt;
}
ClaimedVlan withoutNone(const ClaimedVlan& claim) {
  return {claim.key, vlanOrNothing(claim.old), vlanOrNothing(claim.now)};
}

/// An entry without a name is none. The old name goes before the new one comes: both may stand for
/// the same claims.
template <class Entry>
std::vector<Half<VrfId, VrfName>> names(const Change<VrfId, Entry>& id) {
  const VrfName old = id.old ? id.old->vrfName : VrfName();
  const VrfName now = id.now ? id.now->vrfName : VrfName();
  std::vector<Half<VrfId, VrfName>> halves;
  if (!old.empty() && old != now) halves.push_back({id.key, old, false});
  if (!now.empty()) halves.push_back({id.key, now, true});
  return halves;
}

bool isVxlan1(Pavlin::IntfId intf) {
  return Pavlin::VxlanTunnelIntfId::isVxlanTunnelIntfId(intf) &&
         Pavlin::VxlanTunnelIntfId::vxlanTunnelId(intf) == 1;
}

}  // namespace

GmpProxyStatusSm::GmpProxyStatusSm(Inputs inputs)
    : Pipeline(veskName, inputs.smControl, traceHandle), in(std::move(inputs)) {
  mustBePresent(in.mvpnIntfStatus, "mvpnIntfStatus()");
  mustBePresent(in.vtiStatusDir, "vtiStatusDir()");
  mustBePresent(in.vrfIdStatus, "vrfIdStatus()");
  mustBePresent(in.gmpProxyStatus, "gmpProxyStatus()");
  const auto scans = inputSmScanStateIs();

  const auto mvpnIntfRows = from(
      "MvpnIntfStatusSm0", in.mvpnIntfStatus, MvpnIntfStatus::vrfIntfIdAttr,
      {0, "from( mvpnIntfStatus.vrfIntfId[] )", {scans, InputSmScanState::mvpnIntfStreamScanAttr}});
  const auto mvpnIntfStream =
      mvpnIntfRows.halves()
          .filter(
              "VlanIntfId::isVlanIntfId( vrfIntfId.pmsiIntfId )",
              [](const auto& half) { return ::Multicast::Vpn::isVlanIntf(half.value.pmsiIntfId); })
          .emit([this](const auto& half) {
            return Claim{half.key, nameOf(half.key),
                         Pavlin::VlanIntfId::vlanId(half.value.pmsiIntfId).vlanId(),
                         EncapType::mpls, half.isInsert};
          });

  const auto [vxlanRows] = fromEach(
      "VtiStatusDirSm1", "VtiStatusSm2", in.vtiStatusDir, Vxlan::VtiStatusDir::vtiStatusAttr,
      Lynthe::inner(Vxlan::VtiStatus::vrfToSBDVlanAttr,
                    {1,
                     "from( vtiStatusDir.vtiStatus[].vrfToSBDVlan[] )",
                     {scans, InputSmScanState::vxlanStreamScanAttr}}));
  const auto vxlanStream = vxlanRows
                               .filter("( VxlanTunnelIntfId::vxlanTunnelId( intfId ) == 1 )",
                                       [](const auto& row) { return isVxlan1(row.key.outer); })
                               .emit(withoutNone)
                               .halves()
                               .foreach ("vrfIdStatus.vrfIdToName", [this](const auto& half) {
                                 Claims claims;
                                 for (const VrfId& vrfId : idsOfName_.of(half.key.inner))
                                   claims.push_back({vrfId, half.key.inner, half.value.vlanId(),
                                                     EncapType::vxlan, half.isInsert});
                                 return claims;
                               });

  const auto vrfIdRows =
      from("VrfIdStatusSm3", in.vrfIdStatus, Vrf::VrfIdMap::Status::vrfIdToNameAttr,
           {2, "from( vrfIdStatus.vrfIdToName[] )", {scans, InputSmScanState::vrfIdStreamScanAttr}})
          .indexed([this](const auto& row) {
            if (row.old) idsOfName_.remove(row.old->vrfName, row.key);
            if (row.now) idsOfName_.add(row.now->vrfName, row.key);
          });
  const auto vrfIdStream =
      vrfIdRows.foreach ("vrfEntry.vrfName", [](const auto& row) { return names(row); });
  const auto vrfIdMplsStream = vrfIdStream.foreach ("effectiveSbdVlan", [this](const Name& name) {
    return claimsOf(name, EncapType::mpls, mplsVlanOf(name.key));
  });
  const auto vrfIdVxlanStream = vrfIdStream.foreach ("effectiveSbdVlan", [this](const Name& name) {
    return claimsOf(name, EncapType::vxlan, vxlanVlanOf(name.value));
  });

  publish(merge(mvpnIntfStream, vxlanStream, vrfIdMplsStream, vrfIdVxlanStream));
  begin({scans, InputSmScanState::idleAttr}, {outputState(), OutputState::readyAttr});
}

void GmpProxyStatusSm::publish(const Lynthe::Stream<Claim>& claims) {
  const auto groups = claims.groupby(
      ClaimGroups(this, groupByAttr1Attr, GroupByCollectionValueType1::collAttr),
      [](const Claim& claim) { return claim.vrfId; },
      [](const Claim& claim) { return VlanEncap(claim.sbdVlan, claim.encapType); });

  using Group = Lynthe::Grouped<Claim, VlanEncap>;
  const auto id = [](const Group& group) { return group.event.vrfId; };
  const auto name = [](const Group& group) {
    Ombra::assertThat(group.event.vrfName.has_value(), "vrfName ");
    return *group.event.vrfName;
  };
  const auto best = [](const Group& group) { return group.first->vlanId; };
  groups.filter("bestSbdVlan", [](const Group& group) { return group.first.has_value(); })
      .into(vrfIdToSbdVlan_, id, best)
      .into(sbdVlanToVrfId_, best, id)
      .into(vrfToSbdVlan_, name, best)
      .into(sbdVlanToVrf_, best, name);

  // The last claim has gone. Which name goes is what the table says, and that is read before it is
  // taken out of there. Where another VRF has claimed the same vlan the table may say that one's
  // name; then the VRF's own goes as well, so that no row outlives its claims.
  struct Last {
    Claim claim;
    std::optional<VrfName> vrf;
  };
  const auto lastId = [](const Last& last) { return last.claim.vrfId; };
  const auto lastVlan = [](const Last& last) { return last.claim.sbdVlan; };
  const auto none = [](const auto&) { return std::nullopt; };
  groups.filter("( !bestSbdVlan )", [](const Group& group) { return !group.first; })
      .emit([this](const Group& group) {
        const VlanId vlan = group.event.sbdVlan;
        const bool isNamed = in.gmpProxyStatus->sbdVlanToVrfHas(vlan);
        return Last{group.event,
                    isNamed ? std::optional(in.gmpProxyStatus->sbdVlanToVrf(vlan)) : std::nullopt};
      })
      .into(vrfIdToSbdVlan_, lastId, none)
      .into(sbdVlanToVrfId_, lastVlan, none)
      .into(sbdVlanToVrf_, lastVlan, none)
      .foreach ("[ vrf, vrfName ]",
                [](const Last& last) {
                  std::vector<VrfName> names;
                  if (last.vrf) names.push_back(*last.vrf);
                  if (last.claim.vrfName && last.claim.vrfName != last.vrf)
                    names.push_back(*last.claim.vrfName);
                  return names;
                })
      .into(
          vrfToSbdVlan_, [](const VrfName& vrf) { return vrf; }, none);
}

std::optional<VrfName> GmpProxyStatusSm::nameOf(VrfId vrfId) const {
  const VrfName name = in.vrfIdStatus->vrfIdToName(vrfId).vrfName;
  return name.empty() ? std::nullopt : std::optional(name);
}

std::optional<VlanId> GmpProxyStatusSm::mplsVlanOf(VrfId vrfId) const {
  const Pavlin::IntfId intf = in.mvpnIntfStatus->vrfIntfId(vrfId).pmsiIntfId;
  if (!::Multicast::Vpn::isVlanIntf(intf)) return {};
  return Pavlin::VlanIntfId::vlanId(intf).vlanId();
}

std::optional<VlanId> GmpProxyStatusSm::vxlanVlanOf(const VrfName& vrf) const {
  const auto vti = in.vtiStatusDir->vtiStatus(Pavlin::vxlan1IntfId());
  const VlanIdOrNone vlan = vti ? vti->vrfToSBDVlan(vrf) : VlanIdOrNone();
  return vlan.isNone() ? std::nullopt : std::optional(vlan.vlanId());
}

GmpProxyStatusSm::Claims GmpProxyStatusSm::claimsOf(const Name& name, EncapType encapType,
                                                    std::optional<VlanId> effectiveSbdVlan) const {
  Claims claims;
  const auto claim = [&](VlanId vlan) {
    claims.push_back({name.key, name.value, vlan, encapType, name.isInsert});
  };
  if (name.isInsert) {
    if (effectiveSbdVlan) claim(*effectiveSbdVlan);
  } else if (const auto group = groupByAttr1(name.key)) {
    for (const VlanEncap& tuple : group->collKeys())
      if (tuple.encapType == encapType) claim(tuple.vlanId);
  }
  return claims;
}

}  // namespace Irb::Multicast

VESK_REGISTER(Irb::Multicast::GmpProxyStatusSm)
VESK_REGISTER(Irb::Multicast::GmpProxyStatusSm::InputSmScanState)
VESK_REGISTER(Irb::Multicast::GmpProxyStatusSm::OutputState)
VESK_REGISTER(Irb::Multicast::GmpProxyStatusSm::GroupByCollectionValueType1)
