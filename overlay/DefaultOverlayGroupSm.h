// The overlay groups that configuration wants: per vlan the any group and every immediate group.
// Owns: one VlanMapSm per vlan of the mapping status. Reads: IpTunnelMappingStatus, the vlans' own
// configuration entries and their VRFs' immediate groups. Writes: the default VlanGroupTable.
// Runs: in reactors only; the table is complete whenever the mapping status is.
// Caveat: one machine per family, groups of the other family are ignored.
#pragma once

#include "records/EncapTables.h"
#include "records/IpTunnelMappingStatus.h"
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
    void handleSbdVlan() { in.parent->updateVlanImmediateGroups(in.row->vlanId(), *in.row); }
    void handleImmediateGroup(Routing::Multicast::OverlayAddr overlayAddr) {
      in.parent->updateImmediateGroup(in.row->vlanId(), overlayAddr,
                                      in.row->ownsImmediateGroup(overlayAddr));
    }

    Vesk::Watch sbdVlan_ =
        watch<&VlanMapSm::handleSbdVlan>(in.row, VlanToGroupMapping::isSbdVlanAttr);
    Vesk::PathWatch vlanGroup_ = watchPath<&VlanMapSm::handleImmediateGroup>(
        in.row, VlanToGroupMapping::vlanTunnelConfigEntryAttr,
        Routing::Multicast::IpTunnelConfigEntry::immediateOverlayToUnderlayGroupAttr);
    Vesk::PathWatch vrfGroup_ = watchPath<&VlanMapSm::handleImmediateGroup>(
        in.row, VlanToGroupMapping::vrfImmediateGroupStatusAttr,
        ImmediateGroupVrfStatus::immediateOverlayToUnderlayGroupAttr);
  };

  VESK_INSTANCES(Bridging::VlanId, VlanMapSm, vlanMappingStatus)

  void review() override;

 private:
  void handleInitialized();
  void handleVlanStatus(Bridging::VlanId vlan);
  void handleMappingStatusReady();

  void updateVlanImmediateGroups(Bridging::VlanId vlan, const VlanToGroupMapping& mapping);
  void updateImmediateGroup(Bridging::VlanId vlan,
                            const Routing::Multicast::OverlayAddr& overlayAddr, bool add);

  Vesk::Follow vlans_ = follow<&DefaultOverlayGroupSm::handleVlanStatus>(
      in.ipTunnelMappingStatus, IpTunnelMappingStatus::vlanStatusAttr, vlanMappingStatusAttr);
  Vesk::Watch ready_ = watch<&DefaultOverlayGroupSm::handleMappingStatusReady>(
      in.ipTunnelMappingStatus, IpTunnelMappingStatus::readyAttr);
};

}  // namespace Multicast::Vpn
