// The last step of the encapsulating side: overlay route (*,G) to underlay route, for forwarding.
// Owns: a nested machine per overlay vlan group and per vlan, the groups that wait, their timer.
// Reads: the vlan group status, which of its groups are immediate ones, vlanGroupStatusReady.
// Writes: IpTunnelForwardingStatus (shared, outlives the process) and forwardingStatusReady.
// Runs: on changes of the inputs; a live group that moves is withdrawn at once and comes back when
// the timer fires. Caveat: two routes of a group are a moment in its move; nothing happens then.
#pragma once

#include <optional>

#include "records/EncapTables.h"
#include "records/IpTunnelForwardingStatus.h"
#include "records/IpTunnelMappingStatus.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/ReadyStatus.h"
#include "runtime/MachineTask.h"
#include "runtime/Record.h"

namespace Multicast::Vpn {

class IpTunnelMappingSm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Vpn::IpTunnelMappingSm)
  using OverlayAddr = Routing::Multicast::OverlayAddr;
  using OverlayVlanGroup = Routing::Multicast::OverlayVlanGroup;

  struct Inputs {
    Ombra::Ptr<Routing::Multicast::IpTunnelVlanGroupStatus const> vlanToGroupStatus;
    Ombra::Ptr<IpTunnelMappingStatus const> ipTunnelMappingStatus;
    Ombra::Ptr<Routing::Multicast::IpTunnelForwardingStatus> forwardingStatus;
    Ombra::Ptr<EncapReadyStatus> encapReadyStatus;
    Sylva::TaskScheduler* taskScheduler;
    bool operator==(const Inputs&) const = default;
  };
  explicit IpTunnelMappingSm(Inputs inputs);
  const Inputs in;

  /// Follows the underlay routes of one overlay vlan group.
  class NestedSm_VlanToMulticastGroup final : public Vesk::Machine {
    VESK_RECORD(Multicast::Vpn::IpTunnelMappingSm::NestedSm_VlanToMulticastGroup)
    struct Inputs {
      IpTunnelMappingSm* parent;
      Ombra::Ptr<Routing::Multicast::VlanToMulticastGroup const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit NestedSm_VlanToMulticastGroup(Inputs inputs);
    const Inputs in;
    void handleDel() { in.parent->handleMulticastGroup(in.row->overlayVlanGroup(), false); }

    /// Traffic may flow on the group: it has had a route.
    VESK_VALUE(bool, live)

   private:
    void handleNew();
    void handleMulticastGroup();

    Vesk::Watch group_ = watch<&NestedSm_VlanToMulticastGroup::handleMulticastGroup>(
        in.row, Routing::Multicast::VlanToMulticastGroup::multicastGroupAttr);
  };

  /// Follows which groups of one vlan are immediate.
  class VlanMapSm final : public Vesk::Machine {
    VESK_RECORD(Multicast::Vpn::IpTunnelMappingSm::VlanMapSm)
    struct Inputs {
      IpTunnelMappingSm* parent;
      Ombra::Ptr<VlanToGroupMapping const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit VlanMapSm(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;

   private:
    void handleSbdVlan() { in.parent->handleVlanMappingStatus(in.row->vlanId()); }
    void handleImmediateGroup(OverlayAddr overlayAddr) {
      in.parent->handleVlanGroupMappingStatus(in.row->vlanId(), overlayAddr);
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

  VESK_INSTANCES(OverlayVlanGroup, NestedSm_VlanToMulticastGroup, vlanToMulticastGroup)
  VESK_INSTANCES(Bridging::VlanId, VlanMapSm, vlanMappingStatus)
  /// Groups that wait for the coming expiry, and for the one after it.
  VESK_INSTANCE(IpTunnelMappingSmPendingGroups, pendingGroups)
  VESK_INSTANCE(IpTunnelMappingSmPendingGroups, pendingGroups2)
  /// Length of a timer run, and the least wait of a group.
  VESK_VALUE(double, delayTime, 15.0)
  VESK_VALUE(double, minDelayTime, 10.0)
  VESK_VALUE(double, forwardingStatusUpdateTs)
  VESK_VALUE(bool, initialized)

  void review() override;

  /// Seconds until a waiting group is served; none if it does not wait.
  [[nodiscard]] std::optional<double> timeUntilServed(const OverlayVlanGroup& group) const;

 private:
  using IpTunnelMapping = Routing::Multicast::IpTunnelMapping;

  void handleInitialized();
  void handleVlanMappingStatus(Bridging::VlanId vlan);
  void handleVlanGroupMappingStatus(Bridging::VlanId vlan, const OverlayAddr& overlayAddr);
  void handleTimerExpiry();

  /// `delay`: the group is live, so a change of its underlay has to settle.
  void handleMulticastGroup(const OverlayVlanGroup& group, bool delay);
  void delayMapping(const OverlayVlanGroup& group, const IpTunnelMapping& mapping);
  void publishMapping(const OverlayVlanGroup& group, const IpTunnelMapping& mapping);
  void deleteMulticastGroup(const OverlayVlanGroup& group);
  /// Judges the rows in force that are not waiting for the timer.
  void reviewForwardingStatus();
  [[nodiscard]] bool isImmediateGroup(const OverlayVlanGroup& group) const;

  void addToPendingGroup(const OverlayVlanGroup& group);
  [[nodiscard]] bool pending(const OverlayVlanGroup& group) const;
  void setTimer() { timerTask_.scheduleTaskDelay(delayTime()); }
  [[nodiscard]] double timeRemaining() const;
  void maybeSetForwardingStatusReady();
  void forwardingStatusWritten() { forwardingStatusUpdateTsIs(Vesk::System::coarseTime()); }

  Vesk::MachineTimer timerTask_{this, in.taskScheduler, 3, "IpTunnelMappingSmDelayGroups",
                                Vesk::taskBody<&IpTunnelMappingSm::handleTimerExpiry>};
  using Self = IpTunnelMappingSm;
  Vesk::Follow groups_ = follow(
      in.vlanToGroupStatus, Routing::Multicast::IpTunnelVlanGroupStatus::vlanToMulticastGroupAttr,
      vlanToMulticastGroupAttr);
  Vesk::Follow vlans_ = follow<&Self::handleVlanMappingStatus>(
      in.ipTunnelMappingStatus, IpTunnelMappingStatus::vlanStatusAttr, vlanMappingStatusAttr);
  Vesk::Watch ready_ = watch<&Self::maybeSetForwardingStatusReady>(
      in.encapReadyStatus, EncapReadyStatus::vlanGroupStatusReadyAttr);
};

}  // namespace Multicast::Vpn
