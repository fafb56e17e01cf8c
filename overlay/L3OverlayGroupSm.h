// Which overlay groups the routes of the VRFs need, and on which vlan: the rows of the L3 table.
// Owns: a nested machine per VRF, and per route the handle that keeps its row.
// Reads: IngressL3RouteStatus; of Vxlan1 whether it is up, its vlans and the SBD vlans.
// Writes: the L3 group table, row by row through handles, and its `ready`.
// Runs: one route at once in a reactor, everything wider in a walk that yields. Caveat: a row goes
// with the last of its routes; a route that changes its vlan takes the new row before the old.
#pragma once

#include "overlay/OverlayVlanGroupDedup.h"
#include "records/EncapTables.h"
#include "records/Vxlan.h"
#include "runtime/Record.h"
#include "runtime/Review.h"
#include "runtime/Walk.h"

namespace Multicast::Vpn {

/// The accepted routes of one VRF.
class L3OverlayGroupSmVrfStatus : public Vesk::Keyed<L3::VrfName> {
  VESK_RECORD(Multicast::Vpn::L3OverlayGroupSmVrfStatus)
  VESK_KEY(vrfName)
  VESK_MAP(Routing::Multicast::OverlayRouteKey, VlanGroupDedupTable::Handle, vlanDedupEntry)
};

class L3OverlayGroupSmStatus : public Vesk::Entity {
  VESK_RECORD(Multicast::Vpn::L3OverlayGroupSmStatus)
  /// Entries stay, empty if need be.
  VESK_INSTANCES(L3::VrfName, L3OverlayGroupSmVrfStatus, vrf)
};

class L3OverlayGroupSm final : public Sylva::WalkSmBase {
  VESK_RECORD(Multicast::Vpn::L3OverlayGroupSm)
  using OverlayRouteKey = Routing::Multicast::OverlayRouteKey;

  struct Inputs {
    Sylva::TaskScheduler* scheduler;
    Ombra::Ptr<IngressL3RouteStatus const> ingressL3RouteStatus;
    Ombra::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir;
    Ombra::Ptr<VlanGroupDedupTable> vlanGroupDedupTable;
    Ombra::Ptr<VlanGroupTable> vlanGroupTable;
    bool operator==(const Inputs&) const = default;
  };
  explicit L3OverlayGroupSm(Inputs inputs);
  const Inputs in;
  /// All that it lets go of are handles: rows that a successor holds too stay.
  static constexpr auto succession = Vesk::Succession::goesLast;

  /// Follows the routes of one VRF.
  class VrfSm final : public Vesk::Machine {
    VESK_RECORD(Multicast::Vpn::L3OverlayGroupSm::VrfSm)
    struct Inputs {
      L3OverlayGroupSm* parent;
      Ombra::Ptr<IngressVrfStatus const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit VrfSm(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;
    void handleDel() { in.parent->scheduleVrfOutputReview(in.row->vrfName()); }

   private:
    void handleOverlayRoute(OverlayRouteKey routeKey) {
      in.parent->handleOverlayRoute(in.row->vrfName(), routeKey);
    }
    Vesk::Watch route_ = watch<&VrfSm::handleOverlayRoute>(in.row, IngressVrfStatus::routeAttr);
  };

  VESK_INSTANCES(L3::VrfName, VrfSm, vrfStatus)
  /// The status of Vxlan1, or null.
  VESK_REF(Vxlan::VtiStatus const, vtiStatus)
  VESK_INSTANCE(L3OverlayGroupSmStatus, outStatus)
  VESK_SET(L3::VrfName, vrfInputChangeSet)
  VESK_SET(L3::VrfName, vrfOutputChangeSet)
  VESK_VALUE(std::optional<L3OverlayGroupSmBookmark>, inputBookmark)
  VESK_VALUE(std::optional<L3OverlayGroupSmBookmark>, outputBookmark)

  /// What a route's row hangs on; it has one if all three are given.
  struct RouteVerdict {
    bool present;  ///< the route is selected
    bool vxlanActive;
    Bridging::VlanIdOrNone effectiveVlan;

    [[nodiscard]] bool hasRow() const { return present && vxlanActive && !effectiveVlan.isNone(); }
  };
  [[nodiscard]] RouteVerdict judgeRoute(const L3::VrfName& vrf, const OverlayRouteKey& key) const;
  /// The vlan that carries the route: the one of its interface if that is extended, else the SBD
  /// vlan of the VRF.
  [[nodiscard]] Bridging::VlanIdOrNone getEffectiveVlan(const L3::VrfName& vrf,
                                                        const OverlayRouteKey& routeKey) const;
  void review() override;

 private:
  void handleInitialized();
  void handleVrf(L3::VrfName vrf);
  void handleIngressL3RouteStatusReady();
  void handleVxlanIntf();
  void handleVtiOperStatus() { scheduleAllInputReview(); }
  void handleVlanVni() { scheduleAllInputReview(); }
  void handleVrfToSbdVlan(L3::VrfName vrf);

  void scheduleVrfInputReview(const L3::VrfName& vrf);
  void scheduleVrfOutputReview(const L3::VrfName& vrf);
  void scheduleAllInputReview();

  bool walkStartedNotification() override;
  WalkResult walk() override;
  /// These return false if they yielded.
  [[nodiscard]] bool reviewInputs(Sylva::Slice& slice);
  [[nodiscard]] bool reviewOutputs(Sylva::Slice& slice);
  void traceSkipped() const;

  void handleOverlayRoute(const L3::VrfName& vrf, const OverlayRouteKey& routeKey);
  void deleteOverlayRoute(const L3::VrfName& vrf, const OverlayRouteKey& routeKey);

  /// The round that is under way has begun with all input there.
  bool isInputReady_ = false;
  Sylva::ReviewSet<vrfInputChangeSetTag, inputBookmarkTag> inputReview_{this};
  Sylva::ReviewSet<vrfOutputChangeSetTag, outputBookmarkTag> outputReview_{this};

  using Self = L3OverlayGroupSm;
  Vesk::Follow vrfs_ = follow<&Self::handleVrf>(in.ingressL3RouteStatus,
                                                IngressL3RouteStatus::vrfStatusAttr, vrfStatusAttr);
  Vesk::Watch ready_ = watch<&Self::handleIngressL3RouteStatusReady>(
      in.ingressL3RouteStatus, IngressL3RouteStatus::readyAttr);
  Vesk::Watch vxlanIntf_ =
      watch<&Self::handleVxlanIntf>(in.vtiStatusDir, Vxlan::VtiStatusDir::vtiStatusAttr);
  Vesk::PathWatch operStatus_ =
      watchPath<&Self::handleVtiOperStatus>(this, vtiStatusAttr, Vxlan::VtiStatus::operStatusAttr);
  Vesk::PathWatch vlanVni_ =
      watchPath<&Self::handleVlanVni>(this, vtiStatusAttr, Vxlan::VtiStatus::vlanToVniMapAttr);
  Vesk::PathWatch sbdVlan_ =
      watchPath<&Self::handleVrfToSbdVlan>(this, vtiStatusAttr, Vxlan::VtiStatus::vrfToSBDVlanAttr);
};

}  // namespace Multicast::Vpn
