// The overlay groups that configuration wants: per vlan the any group and every immediate group.
// Owns: one VlanMapSm per vlan of the mapping status. Reads: IpTunnelMappingStatus, the vlans' own
// configuration entries and their VRFs' immediate groups. Writes: the default VlanGroupTable.
// Runs: in reactors only; the table is complete whenever the mapping status is.
// Caveat: one machine per family, groups of the other family are ignored.
#pragma once

#include "records/EncapTables.h"
#include "records/IpTunnelMappingStatus.h"
#include "runtime/Machine.h"
#include "runtime/Record.h"

namespace Multicast::Vpn {

class DefaultOverlayGroupSm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Vpn::DefaultOverlayGroupSm)
  struct Inputs {
    Pavlin::AddressFamily af;
    Ombra::Ptr<IpTunnelMappingStatus const> ipTunnelMappingStatus;
    Ombra::Ptr<VlanGroupTable> vlanGroupTable;
    bool operator==(const Inputs&) const = default;
  };
  explicit DefaultOverlayGroupSm(Inputs inputs);
  const Inputs in;

  /// Follows one vlan's mapping and the immediate groups that it refers to.
  class VlanMapSm final : public Vesk::Machine {
    VESK_RECORD(Multicast::Vpn::DefaultOverlayGroupSm::VlanMapSm)
    struct Inputs {
      DefaultOverlayGroupSm* parent;
      Ombra::Ptr<VlanToGroupMapping const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit VlanMapSm(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;

   private:
    using OverlayAddr = Routing::Multicast::OverlayAddr;
    void handleSbdVlan() { updateVlan(); }
    void handleVlanTunnelConfigEntry();
    void handleVrfImmediateGroupStatus();
    void handleVlanImmediateGroup(OverlayAddr overlayAddr) { updateImmediateGroup(overlayAddr); }
    void handleVrfImmediateGroup(OverlayAddr overlayAddr) { updateImmediateGroup(overlayAddr); }
    void updateImmediateGroup(const OverlayAddr& overlayAddr);
    void updateVlan() { in.parent->updateVlanImmediateGroups(in.row->vlanId(), *in.row); }

    Vesk::Watch sbdVlanWatch_ =
        watch<&VlanMapSm::handleSbdVlan>(in.row, VlanToGroupMapping::isSbdVlanAttr);
    Vesk::Watch vlanEntryWatch_ = watch<&VlanMapSm::handleVlanTunnelConfigEntry>(
        in.row, VlanToGroupMapping::vlanTunnelConfigEntryAttr);
    Vesk::Watch vrfStatusWatch_ = watch<&VlanMapSm::handleVrfImmediateGroupStatus>(
        in.row, VlanToGroupMapping::vrfImmediateGroupStatusAttr);
    Vesk::Watch vlanGroupWatch_ = watch<&VlanMapSm::handleVlanImmediateGroup>(
        in.row->vlanTunnelConfigEntry(),
        Routing::Multicast::IpTunnelConfigEntry::immediateOverlayToUnderlayGroupAttr);
    Vesk::Watch vrfGroupWatch_ = watch<&VlanMapSm::handleVrfImmediateGroup>(
        in.row->vrfImmediateGroupStatus(),
        ImmediateGroupVrfStatus::immediateOverlayToUnderlayGroupAttr);
  };

  VESK_INSTANCES(Bridging::VlanId, VlanMapSm, vlanMappingStatus)

  void review() override;

 private:
  void handleInitialized();
  void handleVlanMappingStatus(Bridging::VlanId vlan);
  void handleVlanStatus(Bridging::VlanId vlan);
  void handleMappingStatusReady();

  void updateVlanImmediateGroups(Bridging::VlanId vlan, const VlanToGroupMapping& mapping);
  /// `source`: the configuration entry of the vlan or the status of its VRF, or null.
  template <class Source>
  void updateImmediateGroups(Bridging::VlanId vlan, const Ombra::Ptr<Source const>& source);
  void updateImmediateGroup(Bridging::VlanId vlan,
                            const Routing::Multicast::OverlayAddr& overlayAddr, bool add);

  Vesk::Watch vlanStatusWatch_ = watch<&DefaultOverlayGroupSm::handleVlanMappingStatus>(
      in.ipTunnelMappingStatus, IpTunnelMappingStatus::vlanStatusAttr);
  Vesk::Watch readyWatch_ = watch<&DefaultOverlayGroupSm::handleMappingStatusReady>(
      in.ipTunnelMappingStatus, IpTunnelMappingStatus::readyAttr);
};

}  // namespace Multicast::Vpn
