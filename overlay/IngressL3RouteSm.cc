#include "overlay/IngressL3RouteSm.h"

#include "runtime/Assert.h"
#include "runtime/Trace.h"

namespace Multicast::Vpn {

using Arp::ProactiveArp::Request;
using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Briskel::Bridging::FdbKey;
using L3::VrfName;
using Pavlin::IntfId;
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
  use_->startingIs(use_->starting() + 1);
  createVrfSMs();
  const auto nameToId = arpBriskelVrfNameToIdMapIs();
  arpBriskelVrfIdReverseMapperIs({.vrfIdMap = in.arpBriskelVrfIdMap, .nameToIdMap = nameToId});
  vrfIdWatch_.inputIs(nameToId);
  handleVxlanIntf();
  updateAllSbdVlanIds();
  reviewAllInput();
  if (vrfInputChangeSetCount() == 0) {
    if (auto t = traceHandle.at(7))
      t << "There is no input to review. Setting ingressL3RouteStatus ready";
    in.ingressL3RouteStatus->readyIs(true);
    markStarted();
  }
  reviewArpOutput();
}

void IngressL3RouteSm::handleCleanup() {
  markStarted();
  vrfSmDelAll();
  in.ingressL3RouteStatus->vrfStatusDelAll();
  for (const auto& record : arpEntryVrfCollIterator()) {
    arpEntryVrfCollDel(record.key);
    handleArpEntry(record.key);
  }
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
  for (Vesk::Watch* watch : {&operStatusWatch_, &vlanVniWatch_, &sbdVlanWatch_})
    watch->inputIs(vti);
  handleVtiOperStatus();
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
  if (needArpOutputReview()) sm->adoptArpRecords();
}

void IngressL3RouteSm::deleteVrfSM(const VrfName& vrf) {
  if (auto t = traceHandle.at(6)) t << "Delete status and sm for vrf: " << vrf;
  in.ingressL3RouteStatus->vrfStatusDel(vrf);
  vrfSmDel(vrf);
  vrfInputChangeSetDel(vrf);
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
  vrfInputChangeSetIs(vrf);
  scheduleWalk();
}

void IngressL3RouteSm::reviewAllInput() {
  for (const auto& entry : vrfSmIterator())
    vrfInputChangeSetIs(entry.key);
  if (vrfInputChangeSetCount() != 0) scheduleWalk();
}

void IngressL3RouteSm::reviewArpOutput() {
  needArpOutputReviewIs(true);
  scheduleWalk();
}

// --- the walk

bool IngressL3RouteSm::walkStartedNotification() {
  inputBookmarkIs({});
  outputBookmarkIs({});
  return vrfInputChangeSetCount() != 0 || needArpOutputReview();
}

IngressL3RouteSm::WalkResult IngressL3RouteSm::walk() {
  const double now = Vesk::System::currentTime();
  std::size_t routes = 0;
  std::size_t entries = 0;
  if (!reviewInputs(now, routes)) return {true, routes};
  inputReviewed();
  if (!reviewArpRequests(routes, entries)) return {true, routes + entries};
  if (auto t = traceHandle.at(7))
    t << "Finished processing Mfib Vrfs, processed " << routes << " routes " << entries
      << " arp entries ";
  return {false, routes + entries};
}

void IngressL3RouteSm::walkFinishedNotification() {
  if (!reviewTimer_.taskScheduled()) reviewTimer_.scheduleTaskDelay(reviewInterval());
}

bool IngressL3RouteSm::reviewInputs(double now, std::size_t& routes) {
  for (const VrfName& vrf : vrfInputChangeSetIterator()) {
    // Out first: an event that puts it in again asks for another look.
    vrfInputChangeSetDel(vrf);
    const auto sm = vrfSm(vrf);
    Ombra::assertThat(sm != nullptr, "ingressVrfSm");
    const auto& fib = *sm->in.vrfStatus;
    const IngressL3RouteSmBookmark bookmark = inputBookmark();
    const bool resumed = bookmark != IngressL3RouteSmBookmark{} && bookmark.vrfName == vrf;
    for (const auto& entry : resumed ? fib.routeIteratorFrom(bookmark.key) : fib.routeIterator()) {
      if (routes != 0 && mustYield()) {
        vrfInputChangeSetIs(vrf);
        inputBookmarkIs({vrf, entry.key});
        if (auto t = traceHandle.at(7))
          t << "Yielding, processed " << routes << " routes."
            << " Bookmark: VRF " << vrf << " route " << textOf(entry.key);
        return false;
      }
      sm->handleRoute(entry.key, now);
      ++routes;
    }
    inputBookmarkIs({});
  }
  inputBookmarkIs({});
  return true;
}

void IngressL3RouteSm::inputReviewed() {
  if (!in.ingressL3RouteStatus->ready()) {
    if (auto t = traceHandle.at(7))
      t << "First input review finished. Setting ingressL3RouteStatus ready";
    in.ingressL3RouteStatus->readyIs(true);
  }
  markStarted();
}

void IngressL3RouteSm::markStarted() {
  if (started_) return;
  use_->startingIs(use_->starting() - 1);
  started_ = true;
}

void IngressL3RouteSm::handleStarting() {
  if (started_ && use_->starting() == 0 && needArpOutputReview()) scheduleWalk();
}

// --- proactive ARP

bool IngressL3RouteSm::reviewArpRequests(std::size_t routes, std::size_t& entries) {
  if (!needArpOutputReview()) return true;
  // The machine of the other domain may want what nobody wants so far; its word wakes this one.
  if (use_->starting() != 0) return true;
  const auto& config = *in.proactiveArpConfig;
  const ArpRecord bookmark = outputBookmark();
  for (const auto& request :
       bookmark == ArpRecord{} ? config.requestIterator() : config.requestIteratorFrom(bookmark)) {
    const ArpRecord entry = request.key;
    if (routes + entries != 0 && mustYield()) {
      outputBookmarkIs(entry);
      if (auto t = traceHandle.at(7))
        t << "Yielding, processed " << routes << " routes, " << entries << " arp entries "
          << " Bookmark: Arp Entry " << textOf(entry);
      return false;
    }
    if (arpEntryVrfCollHas(entry)) {
      dropVrfsWithoutSm(entry);
    } else if (use_->users(entry) == 0) {
      if (auto t = traceHandle.at(6))
        t << " Review deleting arp config entry (source " << entry.addr << ", intfId  "
          << entry.intfId << ")";
      in.proactiveArpConfig->requestDel(entry);
    }
    ++entries;
  }
  outputBookmarkIs({});
  needArpOutputReviewIs(false);
  return true;
}

void IngressL3RouteSm::dropVrfsWithoutSm(const ArpRecord& entry) {
  const auto record = arpEntryVrfColl(entry);
  for (const auto& vrf : record->vrfIterator())
    if (!vrfSmHas(vrf.key)) record->vrfDel(vrf.key);
  if (record->vrfCount() != 0) return;
  arpEntryVrfCollDel(entry);
  handleArpEntry(entry);
}

void IngressL3RouteSm::handleArpEntry(const ArpRecord& entry) {
  const std::uint32_t users = use_->users(entry);
  if (arpEntryVrfCollHas(entry)) {
    if (auto t = traceHandle.at(6))
      t << " Adding arp config entry (source " << entry.addr << ", intfId " << entry.intfId << ")";
    intfsOfSource_.add(entry.addr, entry.intfId);
    use_->usersIs(entry, users + 1);
    in.proactiveArpConfig->requestIs(Request{.entry = entry});
    return;
  }
  intfsOfSource_.remove(entry.addr, entry.intfId);
  if (users > 1) {
    use_->usersIs(entry, users - 1);
    return;
  }
  if (auto t = traceHandle.at(6))
    t << " Deleting arp config entry (source " << entry.addr << ", intfId " << entry.intfId << ")";
  use_->usersDel(entry);
  in.proactiveArpConfig->requestDel(entry);
}

void IngressL3RouteSm::handleArpStatusEntry(Arp::Table::ArpKey arpKey) {
  // Of several neighbours of one address the first counts, whatever its interface: so every record
  // of the address is concerned.
  const std::vector<IntfId> intfs = intfsOfSource_.of(arpKey.addr);
  if (intfs.empty()) {
    if (auto t = traceHandle.at(8)) t << "No interest in this arp entry " << textOf(arpKey);
    return;
  }
  const VrfName vrf = in.arpBriskelVrfIdMap->vrfIdToName(arpKey.vrfId).vrfName;
  const auto sm = vrfSm(vrf);
  const double now = Vesk::System::currentTime();
  bool interest = false;
  for (const IntfId intf : intfs) {
    const auto record = arpEntryVrfColl({arpKey.addr, intf});
    if (!record || !record->vrfHas(vrf)) continue;
    interest = true;
    if (sm) sm->handleSource({arpKey.addr, intf}, now);
  }
  if (!interest) {
    if (auto t = traceHandle.at(8)) t << "No VRF interest in this arp entry " << textOf(arpKey);
  } else if (!sm) {
    if (auto t = traceHandle.at(8)) t << "No state machine for this VRF " << vrf;
  }
}

void IngressL3RouteSm::handleFdbEntry(FdbKey fdbKey) {
  const double now = Vesk::System::currentTime();
  for (const VrfSource& source : sourcesOfFdbKey_.of(fdbKey))
    if (const auto sm = vrfSm(source.vrf)) sm->handleSource(source.entry, now);
}

// --- whom an event concerns

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

void IngressL3RouteSm::fdbKeyChange(const FdbKey& key, const VrfName& vrf, const ArpRecord& entry,
                                    bool used) {
  if (used) {
    sourcesOfFdbKey_.add(key, {vrf, entry});
  } else {
    sourcesOfFdbKey_.remove(key, {vrf, entry});
  }
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::ProactiveArpUse)
VESK_REGISTER(Multicast::Vpn::IngressL3RouteSm)
