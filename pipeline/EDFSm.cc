#include "pipeline/EDFSm.h"

namespace Multicast {
namespace {

using Bridging::VlanId;
using Irb::Multicast::McastIrbStatus;
using Routing::Multicast::ElectedDFStatusDir;
using Routing::Multicast::PegDrStatus;
using Routing::Multicast::PegNeighborStatus;
using Routing::Multicast::PegVlanNeighbor;
using Routing::Multicast::PegVlanStatus;

const Vesk::TraceHandle traceHandle("EDFSm");

}  // namespace

EDFSm::EDFSm(Inputs inputs)
    : Pipeline(veskName, inputs.smControl, traceHandle), in(std::move(inputs)) {
  mustBePresent(in.electedDfStatusDir, "electedDfStatusDir()");
  mustBePresent(in.pegDrStatus, "pegDrStatus()");
  mustBePresent(in.pegVlanStatus, "pegVlanStatus()");
  mustBePresent(in.pegNeighborStatus, "pegNeighborStatus()");
  mustBePresent(in.mcastIrbStatus, "mcastIrbStatus()");
  mustBePresent(in.externalForwarderStatus, "externalForwarderStatus()");
  const auto scans = inputSmScanStateIs();
  const auto keyOf = [](const auto& row) { return row.key; };

  const auto electedDfStatusDirStream =
      from("ElectedDfStatusDirSm7", in.electedDfStatusDir, ElectedDFStatusDir::electedDfStatusAttr,
           {4,
            "from( electedDfStatusDir.electedDfStatus[] )",
            {scans, InputSmScanState::electedDfStatusDirStreamScanAttr}})
          .indexed([this](const auto& row) {
            row.now ? portsOfVlan_.add(row.key.vlanId, row.key)
                    : portsOfVlan_.remove(row.key.vlanId, row.key);
          });
  const auto [teps] =
      fromEach("PegNeighborStatusSm5", "PegVlanNeighborSm6", in.pegNeighborStatus,
               PegNeighborStatus::pegVlanNeighborAttr,
               Lynthe::inner(PegVlanNeighbor::tepAttr,
                             {3,
                              "from( pegNeighborStatus.pegVlanNeighbor[].{{ tep[] }} )",
                              {scans, InputSmScanState::fromPegNeighborStatusScanAttr}}));
  const auto pegDrVlans = from(
      "PegDrStatusSm4", in.pegDrStatus, PegDrStatus::pegDrVlanAttr,
      {2, "from( pegDrStatus.pegDrVlan[] )", {scans, InputSmScanState::lynthe_stream2ScanAttr}});
  const auto pegVlans = from(
      "PegVlanStatusSm3", in.pegVlanStatus, PegVlanStatus::pegVlanAttr,
      {1, "from( pegVlanStatus.pegVlan[] )", {scans, InputSmScanState::lynthe_stream1ScanAttr}});
  const auto vlanToSbd = from("McastIrbStatusSm2", in.mcastIrbStatus, McastIrbStatus::vlanToSbdAttr,
                              {0,
                               "from( mcastIrbStatus.vlanToSbd[] )",
                               {scans, InputSmScanState::lynthe_stream0ScanAttr}})
                             .indexed([this](const auto& row) {
                               if (row.old) vlansOfSbd_.remove(row.old->sbdVlan, row.key);
                               if (row.now) vlansOfSbd_.add(row.now->sbdVlan, row.key);
                             });

  const auto fromMcastIrbStatus =
      merge(vlanToSbd.emit(keyOf), pegVlans.emit(keyOf), pegDrVlans.emit(keyOf));
  const auto fromPegNeighborStatus =
      teps.foreach ("mcastIrbStatus.vlanToSbd",
                    [this](const auto& tep) { return vlansOfSbd_.of(tep.key.outer.vlanId()); });
  const auto vlanIdStream = merge(fromMcastIrbStatus, fromPegNeighborStatus)
                                .foreach ("electedDfStatusDir.electedDfStatus",
                                          [this](VlanId vlan) { return portsOfVlan_.of(vlan); });
  merge(vlanIdStream, electedDfStatusDirStream.emit(keyOf))
      .into(
          intfStatus_, [](const L2PortVlan& portVlan) { return portVlan; },
          [this](const L2PortVlan& portVlan) { return role(portVlan); });
  begin({scans, InputSmScanState::idleAttr}, {outputState(), OutputState::readyAttr});
}

std::optional<Routing::Multicast::ExternalForwarderIntfStatus> EDFSm::role(
    const L2PortVlan& portVlan) const {
  // A port that was withdrawn is none, even while its row stands.
  std::optional<Routing::Multicast::ElectedDFStatus> elected;
  if (portsOfVlan_.has(portVlan.vlanId, portVlan) &&
      in.electedDfStatusDir->electedDfStatusHas(portVlan))
    elected = in.electedDfStatusDir->electedDfStatus(portVlan);
  return ExternalForwarderStatus::determineRole(elected, *in.mcastIrbStatus, *in.pegVlanStatus,
                                                *in.pegNeighborStatus, *in.pegDrStatus);
}

}  // namespace Multicast

VESK_REGISTER(Multicast::EDFSm)
VESK_REGISTER(Multicast::EDFSm::InputSmScanState)
VESK_REGISTER(Multicast::EDFSm::OutputState)
