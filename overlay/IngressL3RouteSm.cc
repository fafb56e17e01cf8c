#include "overlay/IngressL3RouteSm.h"

#include "runtime/Assert.h"
#include "runtime/Trace.h"

namespace Multicast::Vpn {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Briskel::Bridging::FdbKey;
using L3::VrfName;
using Vesk::textOf;

namespace {

const Vesk::TraceHandle traceHandle{"IngressL3RouteSm"};

}  // namespace

std::string IngressL3RouteSm::getTaskName(Pavlin::AddressFamily af) {
  return af == Pavlin::ipv4() ? "IngressL3RouteSmReview4" : "IngressL3RouteSmReview6";
}

IngressL3RouteSm::IngressL3RouteSm(Inputs inputs)
    : WalkSmBase(inputs.scheduler, 3, getTaskName(inputs.addressFamily)), in(std::move(inputs)) {
  handleInitialized();
}

void IngressL3RouteSm::handleInitialized() {
  Ombra::assertThat(in.addressFamily == Pavlin::ipv4(), "addressFamily() == Pavlin::ipv4()");
  in.ingressL3RouteStatus->vrfStatusDelAll();
  createVrfSMs();
  const auto nameToId = arpBriskelVrfNameToIdMapIs();
  arpBriskelVrfIdReverseMapperIs({.vrfIdMap = in.arpBriskelVrfIdMap, .nameToIdMap = nameToId});
  handleVxlanIntf();
  updateAllSbdVlanIds();
  reviewAllInput();
  if (!inputReview_.isDue()) {
    if (auto t = traceHandle.at(7))
      t << "There is no input to review. Setting ingressL3RouteStatus ready";
    in.ingressL3RouteStatus->readyIs(true);
    arp_.start();
  }
  reviewArpOutput();
}

void IngressL3RouteSm::handleCleanup() {
  in.ingressL3RouteStatus->vrfStatusDelAll();
  arp_.withdraw();
}

void IngressL3RouteSm::review() {
  reviewAllInput();
  reviewArpOutput();
}

// --- inputs that come and go

void IngressL3RouteSm::handleVxlanIntf() {
  const Ombra::Ptr<Vxlan::VtiStatus const> vti = in.vtiStatusDir->vtiStatus(Pavlin::vxlan1IntfId());
  if (vti == vtiStatus()) return;
  vtiStatusIs(vti);
  handleVtiStatus();
}

void IngressL3RouteSm::handleVtiStatus() {
  updateAllSbdVlanIds();
  reviewAllInput();
}

void IngressL3RouteSm::handleVrfToSbdVlan(VrfName vrf) {
  if (const auto sm = vrfSm(vrf)) sm->updateSbdVlanId();
  reviewVrfInput(vrf);
}

void IngressL3RouteSm::handlePegDrStatus(VlanId vlan) {
  for (const VrfName& vrf : vrfsOfSbdVlan_.of(vlan))
    reviewVrfInput(vrf);
}

void IngressL3RouteSm::reviewVlan(VlanId vlan) {
  for (const VrfName& vrf : vrfsOfVlan_.of(vlan))
    reviewVrfInput(vrf);
}

void IngressL3RouteSm::updateVrf(const VrfName& vrf) {
  const Ombra::Ptr<Routing::Multicast::Fib::Hardware::VrfStatus const> fib =
      in.mfibStatus->vrfStatus(vrf);
  const bool qualifies = fib && in.ipTunnelMappingStatus->multipleUnderlayGroupsDelayedVrfHas(vrf);
  if (const auto sm = vrfSm(vrf); sm && (!qualifies || sm->in.vrfStatus != fib)) deleteVrfSM(vrf);
  if (!qualifies || vrfSmHas(vrf)) return;
  createVrfSM(vrf);
  reviewVrfInput(vrf);
}

void IngressL3RouteSm::createVrfSMs() {
  for (const auto& entry : in.mfibStatus->vrfStatusIterator()) {
    if (in.ipTunnelMappingStatus->multipleUnderlayGroupsDelayedVrfHas(entry.key)) {
      createVrfSM(entry.key);
    } else if (auto t = traceHandle.at(7)) {
      t << "Not starting SM. Delayed not configured for vrf : " << entry.key;
    }
  }
}

void IngressL3RouteSm::createVrfSM(const VrfName& vrf) {
  const auto sm = vrfSmIs(vrf, {.vrfName = vrf,
                                .ingressL3RouteSm = this,
                                .vrfStatus = in.mfibStatus->vrfStatus(vrf),
                                .arpBriskelVrfIdMap = in.arpBriskelVrfIdMap,
                                .arpStatus = in.arpStatus,
                                .bridgingStatus = in.bridgingStatus,
                                .pegDrStatus = in.pegDrStatus,
                                .mcastEvpnConfig = in.mcastEvpnConfig,
                                .ingressL3RouteStatus = in.ingressL3RouteStatus,
                                .proactiveArpConfig = in.proactiveArpConfig,
                                .gatewayESStatus = in.gatewayESStatus});
  // Only while the review is due can there be records of an earlier machine.
  if (arpReview_.isDue()) sm->adoptArpRecords();
}

void IngressL3RouteSm::deleteVrfSM(const VrfName& vrf) {
  if (auto t = traceHandle.at(6)) t << "Delete status and sm for vrf: " << vrf;
  in.ingressL3RouteStatus->vrfStatusDel(vrf);
  vrfSmDel(vrf);
  inputReview_.forget(vrf);
  reviewArpOutput();
}

void IngressL3RouteSm::updateAllSbdVlanIds() {
  for (const auto& entry : vrfSmIterator())
    entry.value->updateSbdVlanId();
}

std::optional<Vrf::VrfIdMap::VrfId> IngressL3RouteSm::getVrfIdFromVrfName(
    const VrfName& vrf) const {
  const auto& map = arpBriskelVrfNameToIdMap();
  if (!map || !map->vrfNameToIdHas(vrf)) return std::nullopt;
  return map->vrfNameToId(vrf);
}

// --- what is due

void IngressL3RouteSm::reviewVrfInput(const VrfName& vrf) {
  if (!vrfSmHas(vrf)) return;
  inputReview_.note(vrf);
  scheduleWalk();
}

void IngressL3RouteSm::reviewAllInput() {
  for (const auto& entry : vrfSmIterator())
    inputReview_.note(entry.key);
  if (inputReview_.isDue()) scheduleWalk();
}

void IngressL3RouteSm::reviewArpOutput() {
  arpReview_.ask();
  scheduleWalk();
}

void IngressL3RouteSm::handleStarting() {
  if (arp_.hasStarted() && arp_.use()->starting() == 0 && arpReview_.isDue()) scheduleWalk();
}

// --- the walk

bool IngressL3RouteSm::walkStartedNotification() {
  return inputReview_.isDue() || arpReview_.isDue();
}

IngressL3RouteSm::WalkResult IngressL3RouteSm::walk() {
  const double now = Vesk::System::currentTime();
  Sylva::Slice turn = slice();
  // What was cut short goes on before anything that came since.
  if (!arpReview_.isUnderWay()) {
    if (!reviewInputs(now, turn)) return {true, turn.items()};
    handleInputReviewed();
  }
  const std::size_t routes = turn.items();
  if (!arp_.review(turn)) return {true, turn.items()};
  if (auto t = traceHandle.at(7))
    t << "Finished processing Mfib Vrfs, processed " << routes << " routes "
      << turn.items() - routes << " arp entries ";
  return {false, turn.items()};
}

void IngressL3RouteSm::walkFinishedNotification() {
  if (!reviewTimer_.taskScheduled()) reviewTimer_.scheduleTaskDelay(reviewInterval());
}

bool IngressL3RouteSm::reviewInputs(double now, Sylva::Slice& slice) {
  while (const auto place = inputReview_.next()) {
    const VrfName& vrf = place->key;
    const auto sm = vrfSm(vrf);
    Ombra::assertThat(sm != nullptr, "ingressVrfSm");
    for (const auto& entry : sm->in.vrfStatus->routeIteratorFrom(place->item)) {
      if (!slice.take()) {
        inputReview_.stopAt({vrf, entry.key});
        if (auto t = traceHandle.at(7))
          t << "Yielding, processed " << slice.items() << " routes."
            << " Bookmark: VRF " << vrf << " route " << textOf(entry.key);
        return false;
      }
      sm->handleRoute(entry.key, now);
    }
  }
  return true;
}

void IngressL3RouteSm::handleInputReviewed() {
  if (!in.ingressL3RouteStatus->ready()) {
    if (auto t = traceHandle.at(7))
      t << "First input review finished. Setting ingressL3RouteStatus ready";
    in.ingressL3RouteStatus->readyIs(true);
  }
  arp_.start();
}

// --- whom an event concerns

void IngressL3RouteSm::handleArpStatusEntry(Arp::Table::ArpKey arpKey) {
  const auto entries = arp_.entriesOf(arpKey.addr);
  if (entries.empty()) {
    if (auto t = traceHandle.at(8)) t << "No interest in this arp entry " << textOf(arpKey);
    return;
  }
  const VrfName vrf = in.arpBriskelVrfIdMap->vrfIdToName(arpKey.vrfId).vrfName;
  const auto sm = vrfSm(vrf);
  const double now = Vesk::System::currentTime();
  bool interest = false;
  for (const ProactiveArp::Entry& entry : entries) {
    if (!arp_.groupsOf({vrf, entry})) continue;
    interest = true;
    if (sm) sm->handleSource(entry, now);
  }
  if (!interest) {
    if (auto t = traceHandle.at(8)) t << "No VRF interest in this arp entry " << textOf(arpKey);
  } else if (!sm) {
    if (auto t = traceHandle.at(8)) t << "No state machine for this VRF " << vrf;
  }
}

void IngressL3RouteSm::handleFdbEntry(FdbKey fdbKey) {
  const double now = Vesk::System::currentTime();
  for (const ProactiveArp::Source& source : arp_.sourcesAt(fdbKey))
    if (const auto sm = vrfSm(source.vrf)) sm->handleSource(source.entry, now);
}

void IngressL3RouteSm::routesOfVlanChange(VlanId vlan, const VrfName& vrf, bool any) {
  if (any) {
    vrfsOfVlan_.add(vlan, vrf);
  } else {
    vrfsOfVlan_.remove(vlan, vrf);
  }
}

void IngressL3RouteSm::sbdVlanChange(const VrfName& vrf, VlanIdOrNone from, VlanIdOrNone to) {
  if (!from.isNone()) vrfsOfSbdVlan_.remove(from.vlanId(), vrf);
  if (!to.isNone()) vrfsOfSbdVlan_.add(to.vlanId(), vrf);
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::IngressL3RouteSm)
