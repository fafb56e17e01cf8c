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
#include "runtime/Review.h"
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
        TableSm* parent;
        Ombra::Ptr<GroupTable const> row;
        bool operator==(const Inputs&) const = default;
      };
      explicit GroupSm(Inputs inputs) : in(std::move(inputs)) {}
      const Inputs in;
      void handleDel();

     private:
      void handleGroup(Pavlin::IpGenAddr group);
      Vesk::Watch group_ = watch<&GroupSm::handleGroup>(in.row, GroupTable::groupAttr);
    };

    VESK_INSTANCES(Bridging::VlanId, GroupSm, vlanGroupStatus)

   private:
    void handleVlan(Bridging::VlanId vlan);
    void handleReady() { in.parent->scheduleOutputReview(); }

    Vesk::Follow vlans_ =
        follow<&TableSm::handleVlan>(in.row, VlanGroupTable::vlanAttr, vlanGroupStatusAttr);
    Vesk::Watch ready_ = watch<&TableSm::handleReady>(in.row, VlanGroupTable::readyAttr);
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

   private:
    void scheduleReview() { in.parent->scheduleVlanInputReview(in.row->vlanId()); }
    void handleImmediateGroup(OverlayAddr overlayAddr) {
      in.parent->updateOverlayGroup(in.row->vlanId(), overlayAddr.genAddr(), in.row);
    }

    using Mapping = VlanToGroupMapping;
    Vesk::Watch sbdVlan_ = watch<&VlanMapSm::scheduleReview>(in.row, Mapping::isSbdVlanAttr);
    Vesk::PathWatch vlanDefault_ = watchPath<&VlanMapSm::scheduleReview>(
        in.row, Mapping::vlanTunnelConfigEntryAttr, IpTunnelConfigEntry::defaultUnderlayGroupAttr);
    Vesk::PathWatch vrfDefault_ = watchPath<&VlanMapSm::scheduleReview>(
        in.row, Mapping::vrfTunnelConfigEntryAttr, IpTunnelConfigEntry::defaultUnderlayGroupAttr);
    Vesk::PathWatch vrfRange_ = watchPath<&VlanMapSm::scheduleReview>(
        in.row, Mapping::vrfTunnelConfigEntryAttr, IpTunnelConfigEntry::underlayGroupRangeAttr);
    // Of all groups of a replaced source the review of the vlan takes care.
    Vesk::Watch vrfStatus_ =
        watch<&VlanMapSm::scheduleReview>(in.row, Mapping::vrfImmediateGroupStatusAttr);
    Vesk::PathWatch vlanGroup_ = watchPathQuietly<&VlanMapSm::handleImmediateGroup>(
        in.row, Mapping::vlanTunnelConfigEntryAttr,
        IpTunnelConfigEntry::immediateOverlayToUnderlayGroupAttr);
    Vesk::PathWatch vrfGroup_ = watchPathQuietly<&VlanMapSm::handleImmediateGroup>(
        in.row, Mapping::vrfImmediateGroupStatusAttr,
        ImmediateGroupVrfStatus::immediateOverlayToUnderlayGroupAttr);
  };

  VESK_INSTANCES(std::string, TableSm, vlanGroupTableStatus)
  VESK_INSTANCES(Bridging::VlanId, VlanMapSm, vlanMappingStatus)
  VESK_SET(IpTunnelVlanMcastGroupSmInputChangeEntry, vlanInputChangeSet)
  VESK_VALUE(std::optional<IpTunnelVlanMcastGroupSmInputBookmark>, inputBookmark)
  VESK_VALUE(std::optional<OverlayVlanGroup>, outputBookmark)
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
  void handleVlanStatus(Bridging::VlanId vlan) { scheduleVlanInputReview(vlan); }
  void handleMappingStatusReady() { scheduleOutputReview(); }
  void handleVtepAddr() { scheduleAllInputReview(); }
  void handleTunnelType() { scheduleAllInputReview(); }

  void scheduleInputReview(const std::string& tableName, Bridging::VlanId vlan);
  void scheduleVlanInputReview(Bridging::VlanId vlan);
  void scheduleAllInputReview();
  void scheduleOutputReview();
  [[nodiscard]] bool isInputReady() const;

  bool walkStartedNotification() override;
  WalkResult walk() override;
  /// These return false if they yielded.
  [[nodiscard]] bool reviewInputs(Sylva::Slice& slice);
  [[nodiscard]] bool reviewOutputs(Sylva::Slice& slice);
  void traceSkippedInputs() const;

  void updateOverlayGroup(Bridging::VlanId vlan, const Pavlin::IpGenAddr& group,
                          const Ombra::Ptr<VlanToGroupMapping const>& mapping);
  void deleteOverlayGroup(const OverlayVlanGroup& group);
  [[nodiscard]] bool overlayGroupExists(const OverlayVlanGroup& group) const;
  [[nodiscard]] Pavlin::IpGenAddr vtepAddr(Pavlin::AddressFamily af) const;
  [[nodiscard]] Routing::Multicast::TunnelType getTunnelType(const OverlayVlanGroup& group) const;
  void statusWritten() { vlanToGroupStatusUpdateTsIs(Vesk::System::coarseTime()); }

  Sylva::ReviewSet<vlanInputChangeSetTag, inputBookmarkTag> inputReview_{this};
  Sylva::ReviewPass<reviewOutputTag, outputBookmarkTag> outputReview_{this};

  using Self = IpTunnelVlanMcastGroupSm;
  using Status = IpTunnelMappingStatus;
  Vesk::Follow tables_ = follow<&Self::handleTable>(
      in.vlanGroupTableColl, VlanGroupTableColl::tableAttr, vlanGroupTableStatusAttr);
  Vesk::Follow vlans_ = follow<&Self::handleVlanStatus>(
      in.ipTunnelMappingStatus, Status::vlanStatusAttr, vlanMappingStatusAttr);
  Vesk::Watch ready_ =
      watch<&Self::handleMappingStatusReady>(in.ipTunnelMappingStatus, Status::readyAttr);
  Vesk::Watch vtep_ =
      watch<&Self::handleVtepAddr>(in.ipTunnelMappingStatus, Status::localVtepAddrAttr);
  Vesk::Watch vtep6_ =
      watch<&Self::handleVtepAddr>(in.ipTunnelMappingStatus, Status::localVtepAddr6Attr);
  Vesk::Watch tunnelType_ =
      watch<&Self::handleTunnelType>(in.ipTunnelMappingStatus, Status::tunnelTypeAttr);
};

}  // namespace Multicast::Vpn
