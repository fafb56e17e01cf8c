#include "overlay/L3OverlayGroupSm.h"

#include "platform/VlanOfIntf.h"
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
  vrfs_.begin();
  handleInitialized();
}

void L3OverlayGroupSm::handleInitialized() {
  handleVxlanIntf();
  outStatusIs();
  handleIngressL3RouteStatusReady();
}

void L3OverlayGroupSm::review() {
  scheduleAllInputReview();
  for (const auto& entry : outStatus()->vrfIterator())
    scheduleVrfOutputReview(entry.key);
}

// --- inputs that come and go

void L3OverlayGroupSm::handleVrf(VrfName vrf) {
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
  vtiStatusIs(in.vtiStatusDir->vtiStatus(Pavlin::vxlan1IntfId()));
}

void L3OverlayGroupSm::handleVrfToSbdVlan(VrfName vrf) {
  if (in.ingressL3RouteStatus->vrfStatusHas(vrf)) scheduleVrfInputReview(vrf);
}

// --- what is due

void L3OverlayGroupSm::scheduleVrfInputReview(const VrfName& vrf) {
  inputReview_.note(vrf);
  scheduleWalk();
}

void L3OverlayGroupSm::scheduleVrfOutputReview(const VrfName& vrf) {
  outputReview_.note(vrf);
  scheduleWalk();
}

void L3OverlayGroupSm::scheduleAllInputReview() {
  for (const auto& entry : in.ingressL3RouteStatus->vrfStatusIterator())
    inputReview_.note(entry.key);
  if (inputReview_.isDue()) scheduleWalk();
}

// --- the walk

bool L3OverlayGroupSm::walkStartedNotification() {
  if (traceHandle.isOn(7)) traceSkipped();
  isInputReady_ = in.ingressL3RouteStatus->ready();
  return inputReview_.isDue() || outputReview_.isDue();
}

L3OverlayGroupSm::WalkResult L3OverlayGroupSm::walk() {
  Sylva::Slice turn = slice();
  // What was cut short goes on before anything that came since.
  if (!outputReview_.isUnderWay()) {
    if (!reviewInputs(turn)) return {true, turn.items()};
    if (isInputReady_ && !in.vlanGroupTable->ready()) {
      if (auto t = traceHandle.at(7))
        t << "Input is ready and review finished. Setting vlanGroupTable ready";
      in.vlanGroupTable->readyIs(true);
    }
  }
  return {!reviewOutputs(turn), turn.items()};
}

bool L3OverlayGroupSm::reviewInputs(Sylva::Slice& slice) {
  while (const auto place = inputReview_.next()) {
    const VrfName& vrf = place->key;
    const auto status = in.ingressL3RouteStatus->vrfStatus(vrf);
    if (!status) continue;  // what it left behind is an output review's
    for (const OverlayRouteKey& key : status->routeIteratorFrom(place->item)) {
      if (!slice.take()) {
        inputReview_.stopAt({vrf, key});
        if (auto t = traceHandle.at(7))
          t << "Input review Yielding, processed " << slice.items() << " routes."
            << " Bookmark: Vrf " << vrf << " routeKey: " << textOf(key);
        return false;
      }
      handleOverlayRoute(vrf, key);
    }
  }
  return true;
}

bool L3OverlayGroupSm::reviewOutputs(Sylva::Slice& slice) {
  while (const auto place = outputReview_.next()) {
    const VrfName& vrf = place->key;
    const auto status = outStatus()->vrf(vrf);
    if (!status) continue;
    for (const auto& entry : status->vlanDedupEntryIteratorFrom(place->item)) {
      if (!slice.take()) {
        outputReview_.stopAt({vrf, entry.key});
        if (auto t = traceHandle.at(7))
          t << "Output review Yielding, processed " << slice.items() << " routes."
            << " Bookmark: Vrf " << vrf << " routeKey: " << textOf(entry.key);
        return false;
      }
      handleOverlayRoute(vrf, entry.key);
    }
  }
  return true;
}

void L3OverlayGroupSm::traceSkipped() const {
  const auto skipped = [](const char* review, const VrfName& vrf) {
    if (auto t = traceHandle.at(7))
      t << review << " review. Skipping vrf " << vrf << " not in change set ";
  };
  for (const auto& entry : in.ingressL3RouteStatus->vrfStatusIterator())
    if (!vrfInputChangeSetHas(entry.key)) skipped("Input", entry.key);
  for (const auto& entry : outStatus()->vrfIterator())
    if (!vrfOutputChangeSetHas(entry.key)) skipped("Output", entry.key);
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
