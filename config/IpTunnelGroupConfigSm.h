// From the group configuration of the VXLAN interface to the mapping status of a domain.
// Owns: the machine of the one interface that is in force, and in it one small machine per row.
// Reads: the configuration, VtiStatus, active vlans, the interfaces of the VRFs.
// Writes: IpTunnelMappingStatus, and `underlayHerEnabled` of the encapsulation status.
// Runs: on every change of these; each run works out whole rows and touches what differs.
// Caveat: the destruction of the interface machine empties the mapping status, so the old one goes
// before a new one is built.
#pragma once

#include "config/IntfVrfIndex.h"
#include "platform/MulticastIntfsAppRoot.h"
#include "records/Bridging.h"
#include "records/IpTunnelMappingStatus.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/TunnelGroupConfig.h"
#include "records/Vxlan.h"
#include "runtime/Record.h"

namespace Routing::Multicast {

/// One VXLAN interface: rows of vlans, immediate groups of VRFs, VTEP addresses.
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

    Vesk::PathWatch<VlanGroupConfigEntry::tunnelConfigEntryTag,
                    IpTunnelConfigEntry::defaultUnderlayGroupTag>
        defaultUnderlayGroup_ =
            watchPath<&NestedSm_VlanToMulticastGroup::handleDefaultUnderlayGroup>(
                in.row, VlanGroupConfigEntry::tunnelConfigEntryAttr,
                IpTunnelConfigEntry::defaultUnderlayGroupAttr);
  };

  /// The configuration entry of one VRF. A replaced entry is a change of its default group, its
  /// pool and its ranges; the last of these rebuilds the single groups too, which is why these are
  /// watched without a word about the replacement.
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
    void handleTunnelConfigEntry() { singleGroup_.inputIs(in.row->tunnelConfigEntry()); }
    void handleDefaultUnderlayGroup() { in.parent->handleVrfToMulticastGroup(in.row->vrfName()); }
    void handleUnderlayGroupRange() { in.parent->handleVrfToMulticastDelayed(in.row->vrfName()); }
    void handleSingleGroup(OverlayAddr overlay) {
      in.parent->handleVrfImmediateGroup(in.row->vrfName(), overlay);
    }
    void handlePrefix() { in.parent->handleVrfImmediatePrefix(in.row->vrfName()); }

    Vesk::Watch singleGroup_ = watch<&NestedSm_VrfToMulticastGroup::handleSingleGroup>(
        in.row->tunnelConfigEntry(), IpTunnelConfigEntry::immediateOverlayToUnderlayGroupAttr);
    Vesk::Watch tunnelConfigEntry_ = watch<&NestedSm_VrfToMulticastGroup::handleTunnelConfigEntry>(
        in.row, VrfGroupConfigEntry::tunnelConfigEntryAttr);
    Vesk::PathWatch<VrfGroupConfigEntry::tunnelConfigEntryTag,
                    IpTunnelConfigEntry::defaultUnderlayGroupTag>
        defaultUnderlayGroup_ =
            watchPath<&NestedSm_VrfToMulticastGroup::handleDefaultUnderlayGroup>(
                in.row, VrfGroupConfigEntry::tunnelConfigEntryAttr,
                IpTunnelConfigEntry::defaultUnderlayGroupAttr);
    Vesk::PathWatch<VrfGroupConfigEntry::tunnelConfigEntryTag,
                    IpTunnelConfigEntry::underlayGroupRangeTag>
        underlayGroupRange_ = watchPath<&NestedSm_VrfToMulticastGroup::handleUnderlayGroupRange>(
            in.row, VrfGroupConfigEntry::tunnelConfigEntryAttr,
            IpTunnelConfigEntry::underlayGroupRangeAttr);
    Vesk::PathWatch<VrfGroupConfigEntry::tunnelConfigEntryTag,
                    IpTunnelConfigEntry::immediateOverlayPrefixToUnderlayGroupTag>
        prefix_ = watchPath<&NestedSm_VrfToMulticastGroup::handlePrefix>(
            in.row, VrfGroupConfigEntry::tunnelConfigEntryAttr,
            IpTunnelConfigEntry::immediateOverlayPrefixToUnderlayGroupAttr);
  };

  /// The last SBD vlan seen of each VRF, and the inverse.
  VESK_MAP(L3::VrfName, Bridging::VlanIdOrNone, vrfToSbdMap)
  VESK_MAP(Bridging::VlanId, L3::VrfName, sbdToVrfMap)
  VESK_INSTANCES(Bridging::VlanId, VlanToOverlayGroup, vlanToOverlayGroup)
  VESK_INSTANCES(L3::VrfName, NestedSm_VrfToMulticastGroup, vrfToMulticastGroup)
  VESK_INSTANCES(Bridging::VlanId, NestedSm_VlanToMulticastGroup, vlanToMulticastGroup)
  VESK_INSTANCE(IntfVrfIndex, intfVrfIndex)

  /// Brings the nested machine in line with the row; false if it follows this row already.
  bool vlanToMulticastGroupIs(const Ombra::Ptr<VlanGroupConfigEntry const>& row);
  bool vrfToMulticastGroupIs(const Ombra::Ptr<VrfGroupConfigEntry const>& row);

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
  void vlanToMulticastGroupDispatch(Bridging::VlanId vlanId);
  void vrfToMulticastGroupDispatch(L3::VrfName vrfName);
  void vrfToSBDVlanDispatch(L3::VrfName vrfName) { handleVrfToSBDVlan(vrfName); }

  [[nodiscard]] Ombra::Ptr<IpTunnelConfigEntry const> vrfTunnelConfig(L3::VrfName vrfName) const;
  /// The VRF's row of immediate groups, which every configured VRF has.
  [[nodiscard]] Ombra::Ptr<::Multicast::Vpn::ImmediateGroupVrfStatus> immediateGroupStatus(
      L3::VrfName vrfName) const;

  using Self = IpTunnelGroupIntfConfigSm;
  Vesk::Watch vlanRow_ = watch<&Self::vlanToMulticastGroupDispatch>(
      in.vlanToGroupIntfConfig, IpTunnelGroupIntfConfig::vlanToMulticastGroupAttr);
  Vesk::Watch vrfRow_ = watch<&Self::vrfToMulticastGroupDispatch>(
      in.vlanToGroupIntfConfig, IpTunnelGroupIntfConfig::vrfToMulticastGroupAttr);
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

/// The root: which VXLAN interface is in force, and that the mapping status is complete.
class IpTunnelGroupConfigSm final : public Vesk::Machine {
  VESK_RECORD(Routing::Multicast::IpTunnelGroupConfigSm)
  struct Inputs {
    Ombra::Ptr<IpTunnelGroupConfig const> vlanToGroupConfig;
    Ombra::Ptr<Bridging::VlanStatusDir const> vlanStatusDir;
    Ombra::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir;
    Ombra::Ptr<MulticastIntfsAppRootSmColl const> mcastIntfRoot;
    Ombra::Ptr<IpTunnelVlanGroupStatus> vlanToGroupStatus;
    Ombra::Ptr<::Multicast::Vpn::IpTunnelMappingStatus> ipTunnelMappingStatus;
    bool operator==(const Inputs&) const = default;
  };
  explicit IpTunnelGroupConfigSm(Inputs inputs);
  const Inputs in;

  /// The overlay families of one interface's configuration.
  class NestedSm_VlanIntfGroupConfig final : public Vesk::Machine {
    VESK_RECORD(Routing::Multicast::IpTunnelGroupConfigSm::NestedSm_VlanIntfGroupConfig)
    struct Inputs {
      IpTunnelGroupConfigSm* parent;
      Ombra::Ptr<IpTunnelGroupIntfConfig const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit NestedSm_VlanIntfGroupConfig(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;

   private:
    void handleMcastOverlay() { in.parent->handleIntf(in.row->intfId()); }

    Vesk::Watch mcastOverlayV4_ = watch<&NestedSm_VlanIntfGroupConfig::handleMcastOverlay>(
        in.row, IpTunnelGroupIntfConfig::mcastOverlayV4Attr);
    Vesk::Watch mcastOverlayV6_ = watch<&NestedSm_VlanIntfGroupConfig::handleMcastOverlay>(
        in.row, IpTunnelGroupIntfConfig::mcastOverlayV6Attr);
  };

  VESK_INSTANCE(IpTunnelGroupIntfConfigSm, intfSm)
  VESK_INSTANCES(Pavlin::IntfId, NestedSm_VlanIntfGroupConfig, vlanIntfGroupConfig)

  /// Brings the nested machine in line with the row.
  void vlanIntfGroupConfigIs(const Ombra::Ptr<IpTunnelGroupIntfConfig const>& row);

  /// The interface handled last decides: it becomes the one in force, or none is.
  void handleIntf(Pavlin::IntfId intfId);
  void handleInitialized();

 private:
  void handleCleanup() override;
  void intfConfigDispatch(Pavlin::IntfId intfId);

  Vesk::Watch intfConfig_ = watch<&IpTunnelGroupConfigSm::intfConfigDispatch>(
      in.vlanToGroupConfig, IpTunnelGroupConfig::intfConfigAttr);
  Vesk::Watch vtiStatus_ = watch<&IpTunnelGroupConfigSm::handleIntf>(
      in.vtiStatusDir, Vxlan::VtiStatusDir::vtiStatusAttr);
};

}  // namespace Routing::Multicast
