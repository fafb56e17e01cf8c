// Which underlay routes carry each overlay group of a vlan: joins the group tables with the
// configuration. Owns: a nested machine per table, per vlan of a table and per mapping; the set of
// vlans to look at. Reads: VlanGroupTableColl, IpTunnelMappingStatus and the entries that its rows
// refer to. Writes: IpTunnelVlanGroupStatus.vlanToMulticastGroup and vlanGroupStatusReady.
// Runs: one group at once in a reactor, everything wider in a walk that yields. Caveat: the status
// outlives the process, so a row that no table wants is stale only when all inputs are ready.
#pragma once

#include <string>

#include "records/EncapTables.h"
#include "records/IpTunnelMappingStatus.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/ReadyStatus.h"
#include "runtime/Record.h"
#include "runtime/Walk.h"

namespace Multicast::Vpn {

class IpTunnelVlanMcastGroupSm final : public Sylva::WalkSmBase {
  VESK_RECORD(Multicast::Vpn::IpTunnelVlanMcastGroupSm)
  using OverlayAddr = Routing::Multicast::OverlayAddr;
  using OverlayVlanGroup = Routing::Multicast::OverlayVlanGroup;
  using IpTunnelConfigEntry = Routing::Multicast::IpTunnelConfigEntry;

  struct Inputs {
    Sylva::TaskScheduler* scheduler;
    Ombra::Ptr<VlanGroupTableColl const> vlanGroupTableColl;
    Ombra::Ptr<IpTunnelMappingStatus const> ipTunnelMappingStatus;
    Ombra::Ptr<Routing::Multicast::IpTunnelVlanGroupStatus> vlanToGroupStatus;
    Ombra::Ptr<EncapReadyStatus> encapReadyStatus;
    bool operator==(const Inputs&) const = default;
  };
  explicit IpTunnelVlanMcastGroupSm(Inputs inputs);
  const Inputs in;

  /// Follows one group table.
  class TableSm final : public Vesk::Machine {
    VESK_RECORD(Multicast::Vpn::IpTunnelVlanMcastGroupSm::TableSm)
    struct Inputs {
      IpTunnelVlanMcastGroupSm* parent;
      Ombra::Ptr<VlanGroupTable const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit TableSm(Inputs inputs);
    const Inputs in;
    void handleDel();

    /// Follows the groups of one vlan of the table.
    class GroupSm final : public Vesk::Machine {
      VESK_RECORD(Multicast::Vpn::IpTunnelVlanMcastGroupSm::TableSm::GroupSm)
      struct Inputs {
        IpTunnelVlanMcastGroupSm* parent;
        Ombra::Ptr<GroupTable const> row;
        bool operator==(const Inputs&) const = default;
      };
      explicit GroupSm(Inputs inputs) : in(std::move(inputs)) {}
      const Inputs in;
      void handleDel();

     private:
      void handleGroup(Pavlin::IpGenAddr group);
      Vesk::Watch groupWatch_ = watch<&GroupSm::handleGroup>(in.row, GroupTable::groupAttr);
    };

    VESK_INSTANCES(Bridging::VlanId, GroupSm, vlanGroupStatus)

   private:
    void handleVlan(Bridging::VlanId vlan);
    void handleReady() { in.parent->scheduleOutputReview(); }

    Vesk::Watch vlanWatch_ = watch<&TableSm::handleVlan>(in.row, VlanGroupTable::vlanAttr);
    Vesk::Watch readyWatch_ = watch<&TableSm::handleReady>(in.row, VlanGroupTable::readyAttr);
  };

  /// Follows one vlan's mapping and what it refers to.
  class VlanMapSm final : public Vesk::Machine {
    VESK_RECORD(Multicast::Vpn::IpTunnelVlanMcastGroupSm::VlanMapSm)
    struct Inputs {
      IpTunnelVlanMcastGroupSm* parent;
      Ombra::Ptr<VlanToGroupMapping const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit VlanMapSm(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;
    void handleDel() { scheduleReview(); }

   private:
    void handleSbdVlan() { scheduleReview(); }
    void handleVlanTunnelConfigEntry();
    void handleVlanDefaultUnderlayGroup() { scheduleReview(); }
    void handleVrfTunnelConfigEntry();
    void handleVrfDefaultUnderlayGroup() { scheduleReview(); }
    void handleVrfUnderlayGroupRange() { scheduleReview(); }
    void handleVrfImmediateGroupStatus();
    void handleImmediateGroup(OverlayAddr overlayAddr);
    void scheduleReview() { in.parent->scheduleVlanInputReview(in.row->vlanId()); }

    Vesk::Watch sbdVlanWatch_ =
        watch<&VlanMapSm::handleSbdVlan>(in.row, VlanToGroupMapping::isSbdVlanAttr);
    Vesk::Watch vlanEntryWatch_ = watch<&VlanMapSm::handleVlanTunnelConfigEntry>(
        in.row, VlanToGroupMapping::vlanTunnelConfigEntryAttr);
    Vesk::Watch vlanDefaultWatch_ = watch<&VlanMapSm::handleVlanDefaultUnderlayGroup>(
        in.row->vlanTunnelConfigEntry(), IpTunnelConfigEntry::defaultUnderlayGroupAttr);
    Vesk::Watch vlanGroupWatch_ = watch<&VlanMapSm::handleImmediateGroup>(
        in.row->vlanTunnelConfigEntry(), IpTunnelConfigEntry::immediateOverlayToUnderlayGroupAttr);
    Vesk::Watch vrfEntryWatch_ = watch<&VlanMapSm::handleVrfTunnelConfigEntry>(
        in.row, VlanToGroupMapping::vrfTunnelConfigEntryAttr);
    Vesk::Watch vrfDefaultWatch_ = watch<&VlanMapSm::handleVrfDefaultUnderlayGroup>(
        in.row->vrfTunnelConfigEntry(), IpTunnelConfigEntry::defaultUnderlayGroupAttr);
    Vesk::Watch vrfRangeWatch_ = watch<&VlanMapSm::handleVrfUnderlayGroupRange>(
        in.row->vrfTunnelConfigEntry(), IpTunnelConfigEntry::underlayGroupRangeAttr);
    Vesk::Watch vrfStatusWatch_ = watch<&VlanMapSm::handleVrfImmediateGroupStatus>(
        in.row, VlanToGroupMapping::vrfImmediateGroupStatusAttr);
    Vesk::Watch vrfGroupWatch_ = watch<&VlanMapSm::handleImmediateGroup>(
        in.row->vrfImmediateGroupStatus(),
        ImmediateGroupVrfStatus::immediateOverlayToUnderlayGroupAttr);
  };

  VESK_INSTANCES(std::string, TableSm, vlanGroupTableStatus)
  VESK_INSTANCES(Bridging::VlanId, VlanMapSm, vlanMappingStatus)
  VESK_SET(IpTunnelVlanMcastGroupSmInputChangeEntry, vlanInputChangeSet)
  VESK_VALUE(IpTunnelVlanMcastGroupSmInputBookmark, inputBookmark)
  VESK_VALUE(OverlayVlanGroup, outputBookmark)
  /// An output review is due.
  VESK_VALUE(bool, reviewOutput)
  VESK_VALUE(double, vlanToGroupStatusUpdateTs)

  /// Withdraws every row; the domain is going.
  void cleanup();
  void review() override;

  /// What a group's row hangs on; it has one if all three are given.
  struct GroupVerdict {
    bool exists;  ///< some table holds the group
    Routing::Multicast::UnderlayAddr underlayGroup;
    Pavlin::IpGenAddr vtep;

    [[nodiscard]] bool hasRow() const {
      return exists && !underlayGroup.isUnspecified() && !vtep.isUnspecified();
    }
  };
  [[nodiscard]] GroupVerdict judgeGroup(const OverlayVlanGroup& group,
                                        const Ombra::Ptr<VlanToGroupMapping const>& mapping) const;

 private:
  void handleInitialized();
  void handleTable(const std::string& name);
  void handleVlanStatus(Bridging::VlanId vlan);
  void handleMappingStatusReady() { scheduleOutputReview(); }
  void handleVtepAddr() { scheduleAllInputReview(); }
  void handleTunnelType() { scheduleAllInputReview(); }

  void scheduleInputReview(const std::string& tableName, Bridging::VlanId vlan);
  void scheduleVlanInputReview(Bridging::VlanId vlan);
  void scheduleAllInputReview();
  void scheduleOutputReview();
  [[nodiscard]] bool isInputReady() const;

  [[nodiscard]] bool allowWalkRestarts() const override { return true; }
  bool walkStartedNotification() override;
  WalkResult walk() override;
  /// These return false if they yielded.
  [[nodiscard]] bool reviewInputs(std::size_t& processed);
  [[nodiscard]] bool reviewOutputs(std::size_t& processed);

  void updateOverlayGroup(Bridging::VlanId vlan, const Pavlin::IpGenAddr& group,
                          const Ombra::Ptr<VlanToGroupMapping const>& mapping);
  void deleteOverlayGroup(const OverlayVlanGroup& group);
  [[nodiscard]] bool overlayGroupExists(const OverlayVlanGroup& group) const;
  [[nodiscard]] Pavlin::IpGenAddr vtepAddr(Pavlin::AddressFamily af) const;
  [[nodiscard]] Routing::Multicast::TunnelType getTunnelType(const OverlayVlanGroup& group) const;
  void statusWritten() { vlanToGroupStatusUpdateTsIs(Vesk::System::coarseTime()); }

  Vesk::Watch tableWatch_ = watch<&IpTunnelVlanMcastGroupSm::handleTable>(
      in.vlanGroupTableColl, VlanGroupTableColl::tableAttr);
  Vesk::Watch vlanStatusWatch_ = watch<&IpTunnelVlanMcastGroupSm::handleVlanStatus>(
      in.ipTunnelMappingStatus, IpTunnelMappingStatus::vlanStatusAttr);
  Vesk::Watch readyWatch_ = watch<&IpTunnelVlanMcastGroupSm::handleMappingStatusReady>(
      in.ipTunnelMappingStatus, IpTunnelMappingStatus::readyAttr);
  Vesk::Watch vtepWatch_ = watch<&IpTunnelVlanMcastGroupSm::handleVtepAddr>(
      in.ipTunnelMappingStatus, IpTunnelMappingStatus::localVtepAddrAttr);
  Vesk::Watch vtep6Watch_ = watch<&IpTunnelVlanMcastGroupSm::handleVtepAddr>(
      in.ipTunnelMappingStatus, IpTunnelMappingStatus::localVtepAddr6Attr);
  Vesk::Watch tunnelTypeWatch_ = watch<&IpTunnelVlanMcastGroupSm::handleTunnelType>(
      in.ipTunnelMappingStatus, IpTunnelMappingStatus::tunnelTypeAttr);
};

}  // namespace Multicast::Vpn
