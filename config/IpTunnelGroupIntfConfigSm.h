// From the group configuration of one VXLAN interface to the mapping status of a domain.
// Owns: one small machine per configured vlan and VRF, and who names which SBD vlan.
// Reads: the configuration, VtiStatus, active vlans, the interfaces of the VRFs.
// Writes: IpTunnelMappingStatus but for `ready`, and `underlayHerEnabled` of the encapsulation
// status. Runs: on every change of these; each run works out whole rows and touches what differs.
// Caveat: its end empties the mapping status.
#pragma once

#include "platform/IntfVrfIndex.h"
#include "platform/MulticastIntfsAppRoot.h"
#include "records/Bridging.h"
#include "records/IpTunnelMappingStatus.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/TunnelGroupConfig.h"
#include "records/Vxlan.h"
#include "runtime/OneToMany.h"
#include "runtime/Record.h"

namespace Routing::Multicast {

class IpTunnelGroupIntfConfigSm final : public Vesk::Machine {
  VESK_RECORD(Routing::Multicast::IpTunnelGroupIntfConfigSm)
  /// The two outputs may be null: then nothing is written to them.
  struct Inputs {
    Ombra::Ptr<IpTunnelGroupIntfConfig const> vlanToGroupIntfConfig;
    Ombra::Ptr<Bridging::VlanStatusDir const> vlanStatusDir;
    Ombra::Ptr<Vxlan::VtiStatus const> vtiStatus;
    Ombra::Ptr<MulticastIntfsAppRootSmColl const> mcastIntfRoot;
    Ombra::Ptr<IpTunnelVlanGroupStatus> vlanToGroupStatus;
    Ombra::Ptr<::Multicast::Vpn::IpTunnelMappingStatus> ipTunnelMappingStatus;
    bool operator==(const Inputs&) const = default;
  };
  explicit IpTunnelGroupIntfConfigSm(Inputs inputs);
  const Inputs in;
  /// Its end empties the mapping status.
  static constexpr auto succession = Vesk::Succession::goesFirst;

  using Mapping = Ombra::Ptr<::Multicast::Vpn::VlanToGroupMapping>;

  /// The configuration entry of one vlan.
  class NestedSm_VlanToMulticastGroup final : public Vesk::Machine {
    VESK_RECORD(Routing::Multicast::IpTunnelGroupIntfConfigSm::NestedSm_VlanToMulticastGroup)
    struct Inputs {
      IpTunnelGroupIntfConfigSm* parent;
      Ombra::Ptr<VlanGroupConfigEntry const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit NestedSm_VlanToMulticastGroup(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;

   private:
    void handleDefaultUnderlayGroup() { in.parent->handleVlanToMulticastGroup(in.row->vlanId()); }

    Vesk::PathWatch defaultUnderlayGroup_ =
        watchPath<&NestedSm_VlanToMulticastGroup::handleDefaultUnderlayGroup>(
            in.row, VlanGroupConfigEntry::tunnelConfigEntryAttr,
            IpTunnelConfigEntry::defaultUnderlayGroupAttr);
  };

  /// The configuration entry of one VRF. A replaced entry is a change of its default group, its
  /// pool and its ranges; the last of these rebuilds the single groups too.
  class NestedSm_VrfToMulticastGroup final : public Vesk::Machine {
    VESK_RECORD(Routing::Multicast::IpTunnelGroupIntfConfigSm::NestedSm_VrfToMulticastGroup)
    struct Inputs {
      IpTunnelGroupIntfConfigSm* parent;
      Ombra::Ptr<VrfGroupConfigEntry const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit NestedSm_VrfToMulticastGroup(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;

   private:
    void handleDefaultUnderlayGroup() { in.parent->handleVrfToMulticastGroup(in.row->vrfName()); }
    void handleUnderlayGroupRange() { in.parent->handleVrfToMulticastDelayed(in.row->vrfName()); }
    void handleSingleGroup(OverlayAddr overlay) {
      in.parent->handleVrfImmediateGroup(in.row->vrfName(), overlay);
    }
    void handlePrefix() { in.parent->handleVrfImmediatePrefix(in.row->vrfName()); }

    using Self = NestedSm_VrfToMulticastGroup;
    using Row = VrfGroupConfigEntry;
    Vesk::PathWatch singleGroup_ = watchPathQuietly<&Self::handleSingleGroup>(
        in.row, Row::tunnelConfigEntryAttr,
        IpTunnelConfigEntry::immediateOverlayToUnderlayGroupAttr);
    Vesk::PathWatch defaultUnderlayGroup_ = watchPath<&Self::handleDefaultUnderlayGroup>(
        in.row, Row::tunnelConfigEntryAttr, IpTunnelConfigEntry::defaultUnderlayGroupAttr);
    Vesk::PathWatch underlayGroupRange_ = watchPath<&Self::handleUnderlayGroupRange>(
        in.row, Row::tunnelConfigEntryAttr, IpTunnelConfigEntry::underlayGroupRangeAttr);
    Vesk::PathWatch prefix_ = watchPath<&Self::handlePrefix>(
        in.row, Row::tunnelConfigEntryAttr,
        IpTunnelConfigEntry::immediateOverlayPrefixToUnderlayGroupAttr);
  };

  /// The last SBD vlan seen of each VRF, and the inverse: of several VRFs that name one vlan the
  /// first in collection order has it.
  VESK_MAP(L3::VrfName, Bridging::VlanIdOrNone, vrfToSbdMap)
  VESK_MAP(Bridging::VlanId, L3::VrfName, sbdToVrfMap)
  VESK_INSTANCES(Bridging::VlanId, VlanToOverlayGroup, vlanToOverlayGroup)
  VESK_INSTANCES(L3::VrfName, NestedSm_VrfToMulticastGroup, vrfToMulticastGroup)
  VESK_INSTANCES(Bridging::VlanId, NestedSm_VlanToMulticastGroup, vlanToMulticastGroup)
  VESK_INSTANCE(IntfVrfIndex, intfVrfIndex)

  /// The configuration that applies to the vlan, as a row of nobody; null if none does.
  [[nodiscard]] Mapping getVlanMappingConfig(Bridging::VlanId vlanId) const;
  /// Why a vlan can or cannot be carried: the first missing condition.
  enum class MappingReason : std::uint8_t {
    usable,
    noConfiguration,
    interfaceDown,
    noDefaultGroup,
    noVtep,
    vlanNotActive,
    ingressReplication,
  };
  [[nodiscard]] MappingReason judgeVlanMapping(Bridging::VlanId vlanId,
                                               const Mapping& mapping) const;
  /// Whether the vlan can be carried at this moment.
  [[nodiscard]] bool shouldAddVlanMapping(Bridging::VlanId vlanId, const Mapping& mapping) const {
    return judgeVlanMapping(vlanId, mapping) == MappingReason::usable;
  }
  void updateVlanTunnelMapping(Bridging::VlanId vlanId, const Mapping& mapping, bool vlanActive);
  [[nodiscard]] bool underlayMcastEnabled() const;
  /// The local VTEP address of the family, the unspecified address for any other family.
  [[nodiscard]] Pavlin::IpGenAddr vtepAddr(Pavlin::AddressFamily af) const;

  void handleVlanToMulticastGroup(Bridging::VlanId vlanId);
  void handleVlanToVniMap();
  void handleVlanStatus(Bridging::VlanId vlanId);
  void handleVrfToMulticastGroup(L3::VrfName vrfName);
  void handleVrfToMulticastGroup();
  void handleVrfToVniMap(L3::VrfName vrfName);
  void handleVrfToSBDVlan(L3::VrfName vrfName);
  void handleVrfToSBDVlan();
  void handleVrfToMulticastDelayed(L3::VrfName vrfName);
  void handleVrfToMulticastDelayed();
  void handleIntfStatus(Pavlin::IntfId intfId);
  void handleHerEnabled();
  void handleInitialized();
  void handleDelete();
  void refreshVrf(L3::VrfName vrfName);
  void refreshAll();
  void updateTunnelMappingType();
  void updateVtepAddresses();

  void handleVrfImmediateGroup(L3::VrfName vrfName, OverlayAddr overlay);
  void handleVrfImmediatePrefix(L3::VrfName vrfName);
  void updateVrfImmediateOverlayMapping(L3::VrfName vrfName, OverlayAddr overlay, bool add);
  void updateVrfImmediateAllMapping(L3::VrfName vrfName);
  [[nodiscard]] UnderlayAddr getUnderlayFromVrfPrefixes(L3::VrfName vrfName,
                                                        OverlayAddr overlay) const;

  void review() override { refreshAll(); }

 private:
  void handleCleanup() override { handleDelete(); }
  void vrfToMulticastGroupDispatch(L3::VrfName vrfName);
  void vrfToSBDVlanDispatch(L3::VrfName vrfName) { handleVrfToSBDVlan(vrfName); }
  /// The VRF no longer names the vlan, or names it now.
  void giveUpSbdVlan(Bridging::VlanId vlanId, L3::VrfName vrfName);
  void takeSbdVlan(Bridging::VlanId vlanId, L3::VrfName vrfName);

  [[nodiscard]] Ombra::Ptr<IpTunnelConfigEntry const> vrfTunnelConfig(L3::VrfName vrfName) const;
  /// The VRF's row of immediate groups, which every configured VRF has.
  [[nodiscard]] Ombra::Ptr<::Multicast::Vpn::ImmediateGroupVrfStatus> immediateGroupStatus(
      L3::VrfName vrfName) const;

  Vesk::OneToMany<Bridging::VlanId, L3::VrfName> vrfsOfSbdVlan_;

  using Self = IpTunnelGroupIntfConfigSm;
  Vesk::Follow vlanRows_ = followAfter<&Self::handleVlanToMulticastGroup>(
      in.vlanToGroupIntfConfig, IpTunnelGroupIntfConfig::vlanToMulticastGroupAttr,
      vlanToMulticastGroupAttr);
  Vesk::Follow vrfRows_ = followAfter<&Self::vrfToMulticastGroupDispatch>(
      in.vlanToGroupIntfConfig, IpTunnelGroupIntfConfig::vrfToMulticastGroupAttr,
      vrfToMulticastGroupAttr);
  Vesk::Watch floodUnderlayRouteType_ = watch<&Self::refreshAll>(
      in.vlanToGroupIntfConfig, IpTunnelGroupIntfConfig::floodUnderlayRouteTypeAttr);
  Vesk::Watch mcastUnderlayRouteType_ = watch<&Self::refreshAll>(
      in.vlanToGroupIntfConfig, IpTunnelGroupIntfConfig::mcastUnderlayRouteTypeAttr);
  Vesk::Watch underlayHerEnabled_ = watch<&Self::handleHerEnabled>(
      in.vlanToGroupIntfConfig, IpTunnelGroupIntfConfig::underlayHerEnabledAttr);
  Vesk::Watch vlanStatus_ =
      watch<&Self::handleVlanStatus>(in.vlanStatusDir, Bridging::VlanStatusDir::vlanStatusAttr);
  Vesk::Watch operStatus_ =
      watch<&Self::refreshAll>(in.vtiStatus, Vxlan::VtiStatus::operStatusAttr);
  Vesk::Watch localVtepAddr_ =
      watch<&Self::refreshAll>(in.vtiStatus, Vxlan::VtiStatus::localVtepAddrAttr);
  Vesk::Watch localVtepAddr6_ =
      watch<&Self::refreshAll>(in.vtiStatus, Vxlan::VtiStatus::localVtepAddr6Attr);
  Vesk::Watch mlagVtepAddr_ =
      watch<&Self::refreshAll>(in.vtiStatus, Vxlan::VtiStatus::mlagVtepAddrAttr);
  Vesk::Watch mlagVtepAddr6_ =
      watch<&Self::refreshAll>(in.vtiStatus, Vxlan::VtiStatus::mlagVtepAddr6Attr);
  Vesk::Watch vlanToVniMap_ =
      watch<&Self::handleVlanStatus>(in.vtiStatus, Vxlan::VtiStatus::vlanToVniMapAttr);
  Vesk::Watch vrfToVniMap_ =
      watch<&Self::handleVrfToVniMap>(in.vtiStatus, Vxlan::VtiStatus::vrfToVniMapAttr);
  Vesk::Watch vrfToSBDVlan_ =
      watch<&Self::vrfToSBDVlanDispatch>(in.vtiStatus, Vxlan::VtiStatus::vrfToSBDVlanAttr);
  Vesk::Watch intfStatus_ = watch<&Self::handleIntfStatus>(
      intfVrfIndexIs({.mcastIntfRoot = in.mcastIntfRoot}), IntfVrfIndex::firstVrfAttr);
};

}  // namespace Routing::Multicast
