#include "config/IpTunnelGroupIntfConfigSm.h"

#include "config/ImmediateGroups.h"
#include "config/IntfInputs.h"
#include "runtime/Fleetlog.h"
#include "runtime/Trace.h"

namespace Routing::Multicast {

using ::Multicast::Vpn::ImmediateGroupVrfStatus;
using ::Multicast::Vpn::VlanToGroupMapping;

namespace {

const Vesk::TraceHandle traceHandle{"IpTunnelGroupIntfConfigSm"};
const Fleetlog::TraceHandle ring{"IpTunnelGroupConfigSm"};
constexpr std::size_t ringLevel = 7;

void ringVlan(const char* action, Bridging::VlanId vlanId) {
  Fleetlog::record(ring, ringLevel, "{} tunnel mapping for vlan {}", action, vlanId.value());
}

/// `what` is what happens, up to the group; `underlayText` stands before the underlay, which is
/// left out without it.
void ringImmediate(const char* what, const OverlayAddr& overlay, const char* underlayText,
                   const UnderlayAddr& underlay, L3::VrfName vrfName) {
  if (!ring.isOn(ringLevel)) return;
  Fleetlog::record(ring, ringLevel, "{} immediate mapping for overlay {}{}{}, vrf {}", what,
                   overlay.text(), underlayText, *underlayText == '\0' ? "" : underlay.text(),
                   vrfName.str());
}

}  // namespace

IpTunnelGroupIntfConfigSm::IpTunnelGroupIntfConfigSm(Inputs inputs) : in(std::move(inputs)) {
  vrfRows_.begin();
  vlanRows_.begin();
  handleInitialized();
}

// --- vlans -------------------------------------------------------------------------------------

Ombra::Ptr<VlanToGroupMapping> IpTunnelGroupIntfConfigSm::getVlanMappingConfig(
    Bridging::VlanId vlanId) const {
  const auto& config = *in.vlanToGroupIntfConfig;
  const bool hasVni = in.vtiStatus->vlanToVniMapHas(vlanId);

  auto vlanEntry = config.vlanToMulticastGroup(vlanId);
  if (vlanEntry && !(in.vlanStatusDir->vlanStatusHas(vlanId) && hasVni)) {
    if (auto t = traceHandle.at(9))
      t << "Vlan " << vlanId << " is not active or does not have a VNI";
    vlanEntry = nullptr;
  }

  // The cache may lag behind the status, which decides.
  L3::VrfName vrfName = sbdToVrfMap(vlanId);
  const bool isSbdVlan = !vrfName.empty() && in.vtiStatus->vrfToSBDVlan(vrfName) == vlanId;
  Ombra::Ptr<VrfGroupConfigEntry const> vrfEntry;
  if (isSbdVlan) {
    vrfEntry = config.vrfToMulticastGroup(vrfName);
    if (auto t = traceHandle.at(9)) t << "Vrf " << vrfName << " has SBD vlan as vlanId " << vlanId;
  }

  // A routed interface wins over the SBD relation, also when its VRF has no configuration.
  if (hasVni) {
    const Pavlin::IntfId intf = Pavlin::VlanIntfId::vlanIdToIntfId(vlanId);
    const L3::VrfName intfVrf = intfVrfIndex()->firstVrf(intf);
    if (!intfVrf.empty() && intfVrf != L3::defaultVrfName()) {
      if (auto t = traceHandle.at(9))
        t << "Found L3 enabled interface for vlanId " << intf << " in non default vrf " << intfVrf;
      vrfName = intfVrf;
      vrfEntry = config.vrfToMulticastGroup(vrfName);
    }
  }

  if (!vlanEntry && !vrfEntry) {
    if (auto t = traceHandle.at(7))
      t << "None of vlan " << vlanId << " or its associated vrf is active";
    return nullptr;
  }
  const auto mapping = Ombra::make<VlanToGroupMapping>(vlanId);
  mapping->isSbdVlanIs(isSbdVlan);
  if (vlanEntry) mapping->vlanTunnelConfigEntryIs(vlanEntry->tunnelConfigEntry());
  if (vrfEntry) {
    mapping->vrfTunnelConfigEntryIs(vrfEntry->tunnelConfigEntry());
    mapping->vrfImmediateGroupStatusIs(immediateGroupStatus(vrfName));
  }
  return mapping;
}

IpTunnelGroupIntfConfigSm::MappingReason IpTunnelGroupIntfConfigSm::judgeVlanMapping(
    Bridging::VlanId vlanId, const Mapping& mapping) const {
  const bool underlayMcast = underlayMcastEnabled();  // asked on every path, for its trace
  if (!mapping) return MappingReason::noConfiguration;
  if (in.vtiStatus->operStatus() != Vxlan::IntfOperStatus::up) return MappingReason::interfaceDown;
  const UnderlayAddr group = mapping->effDefaultUnderlayGroup();
  if (group.isUnspecified()) return MappingReason::noDefaultGroup;
  if (vtepAddr(group.af()).isUnspecified()) return MappingReason::noVtep;
  if (auto t = traceHandle.at(9))
    t << "Vlan " << vlanId << " has a valid default group and corresponding vtep";
  if (!in.vlanStatusDir->vlanStatusHas(vlanId)) return MappingReason::vlanNotActive;
  return underlayMcast ? MappingReason::usable : MappingReason::ingressReplication;
}

void IpTunnelGroupIntfConfigSm::updateVlanTunnelMapping(Bridging::VlanId vlanId,
                                                        const Mapping& mapping, bool vlanActive) {
  if (auto t = traceHandle.at(8))
    t << "updateVlanTunnelMapping " << vlanId << " vlanActive: " << vlanActive;
  const bool add = shouldAddVlanMapping(vlanId, mapping);
  const char* const action = add ? "Adding" : "Delete";
  ringVlan(action, vlanId);
  if (auto t = traceHandle.at(7)) t << action << " tunnel mapping for vlan " << vlanId;
  if (!in.ipTunnelMappingStatus) return;
  if (!add) {
    in.ipTunnelMappingStatus->vlanStatusDel(vlanId);
    return;
  }
  // The row object stays: others watch it.
  const auto row = in.ipTunnelMappingStatus->vlanStatusIs(vlanId);
  row->isSbdVlanIs(mapping->isSbdVlan());
  row->vrfTunnelConfigEntryIs(mapping->vrfTunnelConfigEntry());
  row->vlanTunnelConfigEntryIs(mapping->vlanTunnelConfigEntry());
  row->vrfImmediateGroupStatusIs(mapping->vrfImmediateGroupStatus());
}

bool IpTunnelGroupIntfConfigSm::underlayMcastEnabled() const {
  const bool enabled = !in.vlanToGroupIntfConfig->underlayHerEnabled();
  if (auto t = traceHandle.at(9)) t << " underlayMcastEnabled: " << enabled;
  return enabled;
}

Pavlin::IpGenAddr IpTunnelGroupIntfConfigSm::vtepAddr(Pavlin::AddressFamily af) const {
  return localVtepAddr(*in.vtiStatus, af);
}

void IpTunnelGroupIntfConfigSm::handleVlanToMulticastGroup(Bridging::VlanId vlanId) {
  if (auto t = traceHandle.at(8)) t << "handleVlanToMulticastGroup " << vlanId;
  updateVlanTunnelMapping(vlanId, getVlanMappingConfig(vlanId),
                          in.vlanStatusDir->vlanStatusHas(vlanId));
}

void IpTunnelGroupIntfConfigSm::handleVlanStatus(Bridging::VlanId vlanId) {
  handleVlanToMulticastGroup(vlanId);
}

void IpTunnelGroupIntfConfigSm::handleVlanToVniMap() {
  for (const auto& [vlanId, vni] : in.vtiStatus->vlanToVniMapIterator())
    handleVlanToMulticastGroup(vlanId);
}

void IpTunnelGroupIntfConfigSm::handleIntfStatus(Pavlin::IntfId intfId) {
  if (!Pavlin::VlanIntfId::isVlanIntfId(intfId)) return;
  const Bridging::ExtendedVlanId vlanId = Pavlin::VlanIntfId::vlanId(intfId);
  if (vlanId.isInternal()) return;
  if (auto t = traceHandle.at(8)) t << "handleIntfStatus " << intfId;
  handleVlanToMulticastGroup(vlanId.vlanId());
}

// --- VRFs --------------------------------------------------------------------------------------

void IpTunnelGroupIntfConfigSm::handleVrfToMulticastGroup(L3::VrfName vrfName) {
  if (auto t = traceHandle.at(8)) t << "handleVrfToMulticastGroup " << vrfName;
  if (const auto& status = in.ipTunnelMappingStatus) {
    if (in.vlanToGroupIntfConfig->vrfToMulticastGroupHas(vrfName)) {
      status->vrfImmediateGroupStatusIs(vrfName);
    } else {
      status->vrfImmediateGroupStatusDel(vrfName);
    }
  }
  const Bridging::VlanIdOrNone sbdVlan = in.vtiStatus->vrfToSBDVlan(vrfName);
  if (!sbdVlan.isNone()) handleVlanToMulticastGroup(sbdVlan.vlanId());
  refreshVrf(vrfName);
}

void IpTunnelGroupIntfConfigSm::handleVrfToMulticastGroup() {
  for (const auto& [vrfName, row] : in.vlanToGroupIntfConfig->vrfToMulticastGroupIterator()) {
    if (in.ipTunnelMappingStatus) in.ipTunnelMappingStatus->vrfImmediateGroupStatusIs(vrfName);
    updateVrfImmediateAllMapping(vrfName);
  }
}

void IpTunnelGroupIntfConfigSm::vrfToMulticastGroupDispatch(L3::VrfName vrfName) {
  handleVrfToMulticastGroup(vrfName);
  updateVrfImmediateAllMapping(vrfName);
}

void IpTunnelGroupIntfConfigSm::handleVrfToVniMap(L3::VrfName vrfName) {
  handleVrfToMulticastGroup(vrfName);
}

void IpTunnelGroupIntfConfigSm::handleVrfToSBDVlan(L3::VrfName vrfName) {
  const Bridging::VlanIdOrNone old = vrfToSbdMap(vrfName);
  const Bridging::VlanIdOrNone now = in.vtiStatus->vrfToSBDVlan(vrfName);
  if (auto t = traceHandle.at(8))
    t << "handleVrfToSBDVlan " << vrfName << " old: " << old << " new: " << now;
  if (old.isNone() && now.isNone()) return;
  if (!old.isNone() && old != now) giveUpSbdVlan(old.vlanId(), vrfName);
  if (!now.isNone()) takeSbdVlan(now.vlanId(), vrfName);
  handleVrfToMulticastGroup(vrfName);
}

void IpTunnelGroupIntfConfigSm::giveUpSbdVlan(Bridging::VlanId vlanId, L3::VrfName vrfName) {
  handleVlanToMulticastGroup(vlanId);
  vrfToSbdMapDel(vrfName);
  vrfsOfSbdVlan_.remove(vlanId, vrfName);
  if (const auto next = vrfsOfSbdVlan_.first(vlanId)) {
    sbdToVrfMapIs(vlanId, *next);
    handleVlanToMulticastGroup(vlanId);
  } else {
    sbdToVrfMapDel(vlanId);
  }
}

void IpTunnelGroupIntfConfigSm::takeSbdVlan(Bridging::VlanId vlanId, L3::VrfName vrfName) {
  vrfToSbdMapIs(vrfName, vlanId);
  vrfsOfSbdVlan_.add(vlanId, vrfName);
  sbdToVrfMapIs(vlanId, *vrfsOfSbdVlan_.first(vlanId));
  handleVlanToMulticastGroup(vlanId);
}

void IpTunnelGroupIntfConfigSm::handleVrfToSBDVlan() {
  for (const auto& [vrfName, vlanId] : in.vtiStatus->vrfToSBDVlanIterator())
    handleVrfToSBDVlan(vrfName);
}

void IpTunnelGroupIntfConfigSm::handleVrfToMulticastDelayed() {
  const auto& status = in.ipTunnelMappingStatus;
  if (!status) return;
  for (const auto& [vrfName, row] : in.vlanToGroupIntfConfig->vrfToMulticastGroupIterator())
    handleVrfToMulticastDelayed(vrfName);
  for (const L3::VrfName vrfName : status->multipleUnderlayGroupsDelayedVrfIterator())
    handleVrfToMulticastDelayed(vrfName);
}

void IpTunnelGroupIntfConfigSm::handleVrfToMulticastDelayed(L3::VrfName vrfName) {
  const auto& status = in.ipTunnelMappingStatus;
  if (!status) return;
  const auto entry = vrfTunnelConfig(vrfName);
  if (entry && !entry->underlayGroupRange().isEmpty()) {
    status->multipleUnderlayGroupsDelayedVrfIs(vrfName);
  } else {
    status->multipleUnderlayGroupsDelayedVrfDel(vrfName);
  }
}

void IpTunnelGroupIntfConfigSm::refreshVrf(L3::VrfName vrfName) {
  if (auto t = traceHandle.at(8)) t << "refreshVrf " << vrfName;
  if (const auto members = in.mcastIntfRoot ? in.mcastIntfRoot->vrfSm(vrfName) : nullptr) {
    for (const auto& [intf, enabled] : members->multicastIntfIterator()) {
      if (!Pavlin::VlanIntfId::isVlanIntfId(intf)) continue;
      const Bridging::ExtendedVlanId vlanId = Pavlin::VlanIntfId::vlanId(intf);
      if (!vlanId.isInternal() && in.vtiStatus->vlanToVniMapHas(vlanId.vlanId()))
        handleVlanToMulticastGroup(vlanId.vlanId());
    }
  }
  // The pools of other VRFs are kept by their own events.
  handleVrfToMulticastDelayed(vrfName);
}

// --- immediate groups --------------------------------------------------------------------------

Ombra::Ptr<IpTunnelConfigEntry const> IpTunnelGroupIntfConfigSm::vrfTunnelConfig(
    L3::VrfName vrfName) const {
  const auto row = in.vlanToGroupIntfConfig->vrfToMulticastGroup(vrfName);
  return row ? row->tunnelConfigEntry() : nullptr;
}

Ombra::Ptr<ImmediateGroupVrfStatus> IpTunnelGroupIntfConfigSm::immediateGroupStatus(
    L3::VrfName vrfName) const {
  if (!in.ipTunnelMappingStatus) return nullptr;
  const auto status = in.ipTunnelMappingStatus->vrfImmediateGroupStatus(vrfName);
  Ombra::assertThat(status || !in.vlanToGroupIntfConfig->vrfToMulticastGroupHas(vrfName),
                    "ipTunnelMappingStatus()->vrfImmediateGroupStatusHas( vrfName )");
  return status;
}

void IpTunnelGroupIntfConfigSm::handleVrfImmediateGroup(L3::VrfName vrfName, OverlayAddr overlay) {
  if (auto t = traceHandle.at(8)) t << "handleVrfImmediateGroup " << vrfName << " " << overlay;
  if (const auto entry = vrfTunnelConfig(vrfName))
    updateVrfImmediateOverlayMapping(vrfName, overlay,
                                     entry->immediateOverlayToUnderlayGroupHas(overlay));
}

void IpTunnelGroupIntfConfigSm::handleVrfImmediatePrefix(L3::VrfName vrfName) {
  if (auto t = traceHandle.at(8)) t << "handleVrfImmediatePrefix " << vrfName;
  updateVrfImmediateAllMapping(vrfName);
}

void IpTunnelGroupIntfConfigSm::updateVrfImmediateOverlayMapping(L3::VrfName vrfName,
                                                                 OverlayAddr overlay, bool add) {
  const auto status = immediateGroupStatus(vrfName);
  if (!status) return;
  if (!add && status->immediateOverlayToUnderlayGroupHas(overlay)) {
    const UnderlayAddr underlay = getUnderlayFromVrfPrefixes(vrfName, overlay);
    if (underlay.isUnspecified()) {
      ringImmediate("Delete", overlay, "", underlay, vrfName);
      status->immediateOverlayToUnderlayGroupDel(overlay);
    } else {
      ringImmediate("Updating", overlay, " with underlay ", underlay, vrfName);
      status->immediateOverlayToUnderlayGroupIs(overlay, underlay);
    }
    return;
  }
  const auto entry = vrfTunnelConfig(vrfName);
  const UnderlayAddr underlay =
      entry ? entry->immediateOverlayToUnderlayGroup(overlay) : UnderlayAddr();
  ringImmediate("Adding", overlay, " underlay ", underlay, vrfName);
  status->immediateOverlayToUnderlayGroupIs(overlay, underlay);
}

UnderlayAddr IpTunnelGroupIntfConfigSm::getUnderlayFromVrfPrefixes(L3::VrfName vrfName,
                                                                   OverlayAddr overlay) const {
  const auto entry = vrfTunnelConfig(vrfName);
  return entry ? underlayOfRanges(*entry, overlay) : UnderlayAddr();
}

void IpTunnelGroupIntfConfigSm::updateVrfImmediateAllMapping(L3::VrfName vrfName) {
  const auto status = immediateGroupStatus(vrfName);
  if (!status) return;
  const auto entry = vrfTunnelConfig(vrfName);
  if (!entry) {
    Fleetlog::record(ring, ringLevel, "Delete all immediate mappings for vrf {}", vrfName.str());
    status->immediateOverlayToUnderlayGroupDelAll();
    return;
  }
  OverlayToUnderlay wanted;
  expandImmediateGroups(*entry, vrfName, wanted);
  for (const auto& [overlay, underlay] : status->immediateOverlayToUnderlayGroupIterator()) {
    const UnderlayAddr* const keep = wanted.find(overlay.genAddr());
    if (keep != nullptr && *keep == underlay) {
      wanted.erase(overlay.genAddr());
    } else {
      // A group that moves goes first and comes back with its new underlay group.
      ringImmediate("Delete", overlay, "", underlay, vrfName);
      status->immediateOverlayToUnderlayGroupDel(overlay);
    }
  }
  for (auto c = wanted.begin(); !c.atEnd(); c.advance()) {
    const OverlayAddr overlay(c.key());
    ringImmediate("Adding", overlay, " underlay ", c.value(), vrfName);
    status->immediateOverlayToUnderlayGroupIs(overlay, c.value());
  }
}

// --- all of it ---------------------------------------------------------------------------------

void IpTunnelGroupIntfConfigSm::refreshAll() {
  traceRefresh(traceHandle, *in.vtiStatus, *in.vlanToGroupIntfConfig);
  handleVrfToMulticastDelayed();
  handleVrfToMulticastGroup();
  handleVrfToSBDVlan();
  handleVlanToVniMap();
  updateTunnelMappingType();
  updateVtepAddresses();
}

void IpTunnelGroupIntfConfigSm::updateTunnelMappingType() {
  if (in.ipTunnelMappingStatus)
    in.ipTunnelMappingStatus->tunnelTypeIs(
        tunnelTypeOf(in.vlanToGroupIntfConfig->mcastUnderlayRouteType()));
}

void IpTunnelGroupIntfConfigSm::updateVtepAddresses() {
  if (!in.ipTunnelMappingStatus) return;
  in.ipTunnelMappingStatus->localVtepAddrIs(in.vtiStatus->localVtepAddr());
  in.ipTunnelMappingStatus->localVtepAddr6Is(in.vtiStatus->localVtepAddr6());
}

void IpTunnelGroupIntfConfigSm::handleHerEnabled() {
  const bool enabled = in.vlanToGroupIntfConfig->underlayHerEnabled();
  if (auto t = traceHandle.at(8)) t << "handleHerEnabled underlayHerEnabled: " << enabled;
  // Mapping rows and replication are never in force together: rows go before the flag rises and
  // come back after it has fallen.
  if (enabled) refreshAll();
  if (in.vlanToGroupStatus) in.vlanToGroupStatus->underlayHerEnabledIs(enabled);
  if (!enabled) refreshAll();
}

void IpTunnelGroupIntfConfigSm::handleInitialized() {
  if (auto t = traceHandle.at(8)) t << "handleInitialized";
  refreshAll();
  if (in.vlanToGroupStatus)
    in.vlanToGroupStatus->underlayHerEnabledIs(in.vlanToGroupIntfConfig->underlayHerEnabled());
}

void IpTunnelGroupIntfConfigSm::handleDelete() {
  if (auto t = traceHandle.at(8)) t << "handleDelete";
  const auto& status = in.ipTunnelMappingStatus;
  if (!status) return;
  status->vlanStatusDelAll();
  status->vrfImmediateGroupStatusDelAll();
  status->tunnelTypeIs(TunnelType::PimAsm);
  status->multipleUnderlayGroupsDelayedVrfDelAll();
  status->localVtepAddrIs({});
  status->localVtepAddr6Is({});
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::IpTunnelGroupIntfConfigSm)
VESK_REGISTER(Routing::Multicast::IpTunnelGroupIntfConfigSm::NestedSm_VlanToMulticastGroup)
VESK_REGISTER(Routing::Multicast::IpTunnelGroupIntfConfigSm::NestedSm_VrfToMulticastGroup)
