#include "records/ExternalForwarderStatus.h"

namespace Routing::Multicast {
namespace {

/// A member that reads as corrupt is none, and hides no other.
bool hasTep(const PegVlanNeighbor& neighbour) {
  const auto& teps = PegVlanNeighbor::tepTag::attr(neighbour);
  for (auto c = teps.map().begin(); !c.atEnd(); c.advance())
    if (!teps.damaged(neighbour, c.key())) return true;
  return false;
}

}  // namespace

std::optional<ExternalForwarderIntfStatus> ExternalForwarderStatus::determineRole(
    const std::optional<ElectedDFStatus>& electedDfStatus,
    const Irb::Multicast::McastIrbStatus& mcastIrbStatus, const PegVlanStatus& pegVlanStatus,
    const PegNeighborStatus& pegNeighborStatus, const PegDrStatus& pegDrStatus) {
  using enum ExternalForwarderRole;
  if (!electedDfStatus) return {};
  const ::Multicast::L2PortVlan& port = electedDfStatus->portVlan;
  if (!electedDfStatus->iAmDF) return ExternalForwarderIntfStatus{port, none};
  if (!pegVlanStatus.pegVlan(port.vlanId).pegEnabled)
    return ExternalForwarderIntfStatus{port, forwarder};
  if (pegDrStatus.pegDrVlan(port.vlanId).pegDrRole == PegDrRole::dr)
    return ExternalForwarderIntfStatus{port, drForwarder};
  const auto sbdVlan = mcastIrbStatus.sbdOf(port.vlanId);
  const auto neighbour = sbdVlan ? pegNeighborStatus.pegVlanNeighbor(*sbdVlan) : nullptr;
  const bool otherForwards = neighbour && hasTep(*neighbour);
  return ExternalForwarderIntfStatus{port, otherForwards ? none : forwarder};
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::ExternalForwarderStatus)
