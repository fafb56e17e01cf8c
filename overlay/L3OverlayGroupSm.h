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
#include "runtime/Walk.h"

/// A handle reads and prints as the value that it stands for.
template <>
struct Vesk::Leaf<Multicast::Vpn::VlanGroupDedupTable::Handle> {
  using Value = Routing::Multicast::OverlayVlanGroup;
  using Handle = Multicast::Vpn::VlanGroupDedupTable::Handle;
  static void toBytes(const Handle& handle, std::string& out) {
    Vesk::toBytes(handle ? handle->value() : Value(), out);
  }
  /// Nobody makes a reference out of bytes: this is none.
  static Handle fromBytes(std::string_view& in) {
    (void)Vesk::fromBytes<Value>(in);
    return nullptr;
  }
};
template <>
inline const Vesk::ValueType& Vesk::valueType<Multicast::Vpn::VlanGroupDedupTable::Handle>() {
  return valueType<Routing::Multicast::OverlayVlanGroup>();
}

namespace Multicast::Vpn {

/// The reflection of a value asks for an order; a bookmark has no other use for one.
inline bool operator<(const L3OverlayGroupSmBookmark& a, const L3OverlayGroupSmBookmark& b) {
  return a.vrf == b.vrf ? a.routeKey < b.routeKey : a.vrf < b.vrf;
}

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

   private:
    void handleOverlayRoute(OverlayRouteKey routeKey) {
      in.parent->handleOverlayRoute(in.row->vrfName(), routeKey);
    }
    Vesk::Watch routeWatch_ =
        watch<&VrfSm::handleOverlayRoute>(in.row, IngressVrfStatus::routeAttr);
  };

  VESK_INSTANCES(L3::VrfName, VrfSm, vrfStatus)
  /// The status of Vxlan1, or null.
  VESK_REF(Vxlan::VtiStatus const, vtiStatus)
  VESK_INSTANCE(L3OverlayGroupSmStatus, outStatus)
  VESK_SET(L3::VrfName, vrfInputChangeSet)
  VESK_SET(L3::VrfName, vrfOutputChangeSet)
  VESK_VALUE(L3OverlayGroupSmBookmark, inputBookmark)
  VESK_VALUE(L3OverlayGroupSmBookmark, outputBookmark)

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
  void handleCleanup() override;
  void handleVrfStatus(L3::VrfName vrf);
  void handleVrf(const L3::VrfName& vrf);
  void handleIngressL3RouteStatusReady();
  void handleVxlanIntf();
  void handleVtiOperStatus() { scheduleAllInputReview(); }
  void handleVtiStatus() { scheduleAllInputReview(); }
  void handleVlanVni() { scheduleAllInputReview(); }
  void handleVrfToSbdVlan(L3::VrfName vrf);

  void scheduleVrfInputReview(const L3::VrfName& vrf);
  void scheduleVrfOutputReview(const L3::VrfName& vrf);
  void scheduleAllInputReview();

  [[nodiscard]] bool allowWalkRestarts() const override { return true; }
  bool walkStartedNotification() override;
  WalkResult walk() override;
  /// These return false if they yielded.
  [[nodiscard]] bool reviewInputs(std::size_t& processed);
  [[nodiscard]] bool reviewOutputs(std::size_t& processed);

  void handleOverlayRoute(const L3::VrfName& vrf, const OverlayRouteKey& routeKey);
  void deleteOverlayRoute(const L3::VrfName& vrf, const OverlayRouteKey& routeKey);

  Vesk::Watch vrfWatch_ = watch<&L3OverlayGroupSm::handleVrfStatus>(
      in.ingressL3RouteStatus, IngressL3RouteStatus::vrfStatusAttr);
  Vesk::Watch readyWatch_ = watch<&L3OverlayGroupSm::handleIngressL3RouteStatusReady>(
      in.ingressL3RouteStatus, IngressL3RouteStatus::readyAttr);
  Vesk::Watch vxlanIntfWatch_ = watch<&L3OverlayGroupSm::handleVxlanIntf>(
      in.vtiStatusDir, Vxlan::VtiStatusDir::vtiStatusAttr);
  Vesk::Watch operStatusWatch_ =
      watch<&L3OverlayGroupSm::handleVtiOperStatus>(vtiStatus(), Vxlan::VtiStatus::operStatusAttr);
  Vesk::Watch vlanVniWatch_ =
      watch<&L3OverlayGroupSm::handleVlanVni>(vtiStatus(), Vxlan::VtiStatus::vlanToVniMapAttr);
  Vesk::Watch sbdVlanWatch_ =
      watch<&L3OverlayGroupSm::handleVrfToSbdVlan>(vtiStatus(), Vxlan::VtiStatus::vrfToSBDVlanAttr);
};

}  // namespace Multicast::Vpn
