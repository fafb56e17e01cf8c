#include "egress/L2InjectSm.h"

#include "platform/Toggles.h"
#include "runtime/Assert.h"
#include "runtime/Trace.h"

namespace Irb::Multicast::Egress {

using Vesk::textOf;

namespace {

const Vesk::TraceHandle traceHandle{"L2InjectSm"};

}  // namespace

L2InjectSm::L2InjectSm(Inputs inputs) : in(std::move(inputs)) {
  handleInitialized();
}

void L2InjectSm::handleInitialized() {
  using namespace Routing::Multicast;
  const std::string& name = in.tunnelVlanGroupStatus->name();
  Ombra::assertThat(
      name == stringValue(irbDecapStatus()) || name == stringValue(irbRemoteDomainDecapStatus()),
      "tunnelVlanGroupStatus()->name() == stringValue( Routing::Multicast::irbDecapStatus() ) or "
      "tunnelVlanGroupStatus()->name() == stringValue( "
      "Routing::Multicast::irbRemoteDomainDecapStatus() )");
  vlans_.begin();
  handleFirstReview();
}

/// One family's state reviews both.
void L2InjectSm::handleMlagState() {
  for (const auto& entry : vlanToFloodGroupIterator())
    entry.value->review();
}

void L2InjectSm::handleFirstReview() {
  if (!::Multicast::Vpn::toggleEvpnMulticastSSOEnabled() || in.decapReadyStatus->l2InjectReady())
    return;
  if (auto t = traceHandle.at(8)) t << "First l2 inject review complete, setting l2InjectReady";
  in.decapReadyStatus->l2InjectReadyIs(true);
}

bool L2InjectSm::mlagFilterUnderlayRoute(const UnderlayRoute& route) const {
  const bool joins = in.mlagState->mlagFilterUnderlayRoute(route);
  if (auto t = traceHandle.at(8)) t << "mlagFilterUnderlayRoute " << textOf(route) << " " << joins;
  return joins;
}

bool L2InjectSm::holdsRoute(Bridging::VlanId vlan, const UnderlayRoute& route) const {
  const auto flood = vlanToFloodGroup(vlan);
  return flood && flood->injectRouteHas(route);
}

// --- one vlan

L2InjectSm::FloodGroupSm::FloodGroupSm(Inputs inputs)
    : in(std::move(inputs)), vlanIntf_(Pavlin::VlanIntfId::vlanIdToIntfId(in.row->vlanId())) {
  review();
}

void L2InjectSm::FloodGroupSm::review() {
  for (const UnderlayRoute& route : in.row->floodGroupIterator())
    handleFloodGroup(route);
}

void L2InjectSm::FloodGroupSm::handleFloodGroup(UnderlayRoute route) {
  const L2InjectSm& parent = *in.parent;
  if (in.row->floodGroupHas(route) && parent.mlagFilterUnderlayRoute(route)) {
    if (auto t = traceHandle.at(8))
      t << "Injecting Join " << in.row->vlanId() << " " << textOf(route);
    injectRouteIs(route, parent.in.underlayInjectDedupTable->dedup(
                             Routing::Gmp::Briskel::createRouteIntfKey(vlanIntf_, route)));
    return;
  }
  if (auto t = traceHandle.at(8))
    t << "Maybe Injecting Leave " << in.row->vlanId() << " " << textOf(route);
  injectRouteDel(route);
}

}  // namespace Irb::Multicast::Egress

VESK_REGISTER(Irb::Multicast::Egress::L2InjectSm)
VESK_REGISTER(Irb::Multicast::Egress::L2InjectSm::FloodGroupSm)
