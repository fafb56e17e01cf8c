#include "overlay/L3OverlayGroupSm.h"

#include "overlay/VlanOfIntf.h"
#include "runtime/Trace.h"

namespace Multicast::Vpn {

using Bridging::VlanIdOrNone;
using L3::VrfName;
using Routing::Multicast::OverlayAddr;
using Vesk::textOf;

namespace {

const Vesk::TraceHandle traceHandle{"L3OverlayGroupSm"};

}  // namespace

L3OverlayGroupSm::L3OverlayGroupSm(Inputs inputs)
    : WalkSmBase(inputs.scheduler, 3, "L3OverlayGroupSmReview"), in(std::move(inputs)) {
  for (const auto& [vrf, row] : in.ingressL3RouteStatus->vrfStatusIterator())
    vrfStatusIs(vrf, {.parent = this, .row = row});
  handleInitialized();
}

void L3OverlayGroupSm::handleInitialized() {
  handleVxlanIntf();
  outStatusIs();
  handleIngressL3RouteStatusReady();
}

void L3OverlayGroupSm::handleCleanup() {
  vrfStatusDelAll();
  outStatusDel();  // the rows go with their handles
}

void L3OverlayGroupSm::review() {
  scheduleAllInputReview();
  for (const auto& entry : outStatus()->vrfIterator())
    scheduleVrfOutputReview(entry.key);
}

// --- inputs that come and go

void L3OverlayGroupSm::handleVrfStatus(VrfName vrf) {
  const Ombra::Ptr<IngressVrfStatus const> row = in.ingressL3RouteStatus->vrfStatus(vrf);
  if (const auto present = vrfStatus(vrf); present && present->in.row != row) {
    if (row) scheduleVrfOutputReview(vrf);  // it may lack routes of the old one
    vrfStatusDel(vrf);
  }
  if (row) vrfStatusIs(vrf, {.parent = this, .row = row});
  handleVrf(vrf);
}

void L3OverlayGroupSm::handleVrf(const VrfName& vrf) {
  if (in.ingressL3RouteStatus->vrfStatusHas(vrf)) {
    scheduleVrfInputReview(vrf);
  } else {
    scheduleVrfOutputReview(vrf);
  }
}

void L3OverlayGroupSm::handleIngressL3RouteStatusReady() {
  if (!in.ingressL3RouteStatus->ready()) return;
  scheduleAllInputReview();
  if (vrfInputChangeSetCount() != 0) return;
  if (auto t = traceHandle.at(7)) t << "Input is ready and empty. Setting vlanGroupTable ready";
  in.vlanGroupTable->readyIs(true);
}

void L3OverlayGroupSm::handleVxlanIntf() {
  const Ombra::Ptr<Vxlan::VtiStatus const> vti = in.vtiStatusDir->vtiStatus(Pavlin::vxlan1IntfId());
  if (vti == vtiStatus()) return;
  vtiStatusIs(vti);
  for (Vesk::Watch* watch : {&operStatusWatch_, &vlanVniWatch_, &sbdVlanWatch_})
    watch->inputIs(vti);
  handleVtiOperStatus();
  handleVtiStatus();
}

void L3OverlayGroupSm::handleVrfToSbdVlan(VrfName vrf) {
  if (in.ingressL3RouteStatus->vrfStatusHas(vrf)) scheduleVrfInputReview(vrf);
}

// --- what is due

void L3OverlayGroupSm::scheduleVrfInputReview(const VrfName& vrf) {
  vrfInputChangeSetIs(vrf);
  scheduleWalk();
}

void L3OverlayGroupSm::scheduleVrfOutputReview(const VrfName& vrf) {
  vrfOutputChangeSetIs(vrf);
  scheduleWalk();
}

void L3OverlayGroupSm::scheduleAllInputReview() {
  for (const auto& entry : in.ingressL3RouteStatus->vrfStatusIterator())
    vrfInputChangeSetIs(entry.key);
  if (vrfInputChangeSetCount() != 0) scheduleWalk();
}

// --- the walk

bool L3OverlayGroupSm::walkStartedNotification() {
  inputBookmarkIs({});
  outputBookmarkIs({});
  return vrfInputChangeSetCount() != 0 || vrfOutputChangeSetCount() != 0;
}

L3OverlayGroupSm::WalkResult L3OverlayGroupSm::walk() {
  std::size_t processed = 0;
  if (!reviewInputs(processed)) return {true, processed};
  if (in.ingressL3RouteStatus->ready() && !in.vlanGroupTable->ready()) {
    if (auto t = traceHandle.at(7))
      t << "Input is ready and review finished. Setting vlanGroupTable ready";
    in.vlanGroupTable->readyIs(true);
  }
  return {!reviewOutputs(processed), processed};
}

bool L3OverlayGroupSm::reviewInputs(std::size_t& processed) {
  // Only what is in the set: to pass over all the other VRFs would cost as much as they are many.
  for (const VrfName& vrf : vrfInputChangeSetIterator()) {
    // Out first: an event that puts it in again asks for another look.
    vrfInputChangeSetDel(vrf);
    const auto status = in.ingressL3RouteStatus->vrfStatus(vrf);
    if (!status) continue;  // what it left behind is an output review's
    const L3OverlayGroupSmBookmark bookmark = inputBookmark();
    const bool resumed = bookmark != L3OverlayGroupSmBookmark{} && bookmark.vrf == vrf;
    for (const OverlayRouteKey& key :
         resumed ? status->routeIteratorFrom(bookmark.routeKey) : status->routeIterator()) {
      if (processed != 0 && mustYield()) {
        vrfInputChangeSetIs(vrf);
        inputBookmarkIs({vrf, key});
        if (auto t = traceHandle.at(7))
          t << "Input review Yielding, processed " << processed << " routes."
            << " Bookmark: Vrf " << vrf << " routeKey: " << textOf(key);
        return false;
      }
      handleOverlayRoute(vrf, key);
      ++processed;
    }
    inputBookmarkIs({});
  }
  inputBookmarkIs({});
  return true;
}

bool L3OverlayGroupSm::reviewOutputs(std::size_t& processed) {
  for (const VrfName& vrf : vrfOutputChangeSetIterator()) {
    vrfOutputChangeSetDel(vrf);
    const auto status = outStatus()->vrf(vrf);
    if (!status) continue;
    const L3OverlayGroupSmBookmark bookmark = outputBookmark();
    const bool resumed = bookmark != L3OverlayGroupSmBookmark{} && bookmark.vrf == vrf;
    for (const auto& entry : resumed ? status->vlanDedupEntryIteratorFrom(bookmark.routeKey)
                                     : status->vlanDedupEntryIterator()) {
      if (processed != 0 && mustYield()) {
        vrfOutputChangeSetIs(vrf);
        outputBookmarkIs({vrf, entry.key});
        if (auto t = traceHandle.at(7))
          t << "Output review Yielding, processed " << processed << " routes."
            << " Bookmark: Vrf " << vrf << " routeKey: " << textOf(entry.key);
        return false;
      }
      handleOverlayRoute(vrf, entry.key);
      ++processed;
    }
    outputBookmarkIs({});
  }
  outputBookmarkIs({});
  return true;
}

// --- one route

VlanIdOrNone L3OverlayGroupSm::getEffectiveVlan(const VrfName& vrf,
                                                const OverlayRouteKey& routeKey) const {
  if (!vtiStatus()) return {};
  const VlanIdOrNone vlan = vlanOfIntf(routeKey.intfId);
  if (!vlan.isNone() && vtiStatus()->vlanToVniMapHas(vlan.vlanId())) return vlan;
  return vtiStatus()->vrfToSBDVlan(vrf);
}

L3OverlayGroupSm::RouteVerdict L3OverlayGroupSm::judgeRoute(const VrfName& vrf,
                                                            const OverlayRouteKey& key) const {
  const auto status = in.ingressL3RouteStatus->vrfStatus(vrf);
  return {.present = status && status->routeHas(key),
          .vxlanActive = vtiStatus() && vtiStatus()->operStatus() == Vxlan::IntfOperStatus::up,
          .effectiveVlan = getEffectiveVlan(vrf, key)};
}

void L3OverlayGroupSm::handleOverlayRoute(const VrfName& vrf, const OverlayRouteKey& routeKey) {
  const RouteVerdict verdict = judgeRoute(vrf, routeKey);
  if (!verdict.hasRow()) {
    if (auto t = traceHandle.at(7)) {
      t << "Vrf " << vrf << " Route " << textOf(routeKey);
      if (verdict.effectiveVlan.isNone()) t << " No SBD Vlan. Remove ";
      if (!verdict.vxlanActive) t << " Vxlan Inactive. Remove ";
    }
    deleteOverlayRoute(vrf, routeKey);
    return;
  }
  if (auto t = traceHandle.at(7)) t << "Vrf " << vrf << " Route " << textOf(routeKey) << " Add ";
  outStatus()->vrfIs(vrf)->vlanDedupEntryIs(
      routeKey,
      in.vlanGroupDedupTable->dedup({verdict.effectiveVlan.vlanId(), OverlayAddr(routeKey.group)}));
}

void L3OverlayGroupSm::deleteOverlayRoute(const VrfName& vrf, const OverlayRouteKey& routeKey) {
  const auto status = outStatus()->vrf(vrf);
  if (!status) {
    if (auto t = traceHandle.at(7)) t << "No out status for vrf: " << vrf;
    return;
  }
  status->vlanDedupEntryDel(routeKey);
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::L3OverlayGroupSmVrfStatus)
VESK_REGISTER(Multicast::Vpn::L3OverlayGroupSmStatus)
VESK_REGISTER(Multicast::Vpn::L3OverlayGroupSm)
VESK_REGISTER(Multicast::Vpn::L3OverlayGroupSm::VrfSm)
