#include "pipeline/ElectedDFStatusSm.h"

namespace Multicast {
namespace {

using Evpn::EthernetSegmentStatus;
using Evpn::EvpnStatus;

const Vesk::TraceHandle traceHandle("ElectedDFStatusSm");

bool isTunnel(Pavlin::IntfId intf) {
  return Pavlin::VxlanTunnelIntfId::isVxlanTunnelIntfId(intf) ||
         Pavlin::MplsTrunkIntfId::isMplsTrunkIntfId(intf);
}

}  // namespace

ElectedDFStatusSm::ElectedDFStatusSm(Inputs inputs)
    : Pipeline(veskName, inputs.smControl, traceHandle), in(std::move(inputs)) {
  mustBePresent(in.evpnStatus, "evpnStatus()");
  mustBePresent(in.electedDfStatusDir, "electedDfStatusDir()");
  const auto scans = inputSmScanStateIs();
  const auto portVlanOf = [](const auto& row) { return L2PortVlan{row.key.outer, row.key.inner}; };

  const auto [configuredVlans, designatedForwarders] =
      fromEach("EvpnStatusSm0", "SegmentStatusSm1", in.evpnStatus, EvpnStatus::segmentStatusAttr,
               Lynthe::inner(EthernetSegmentStatus::configuredVlanAttr,
                             {0,
                              "from( evpnStatus.segmentStatus[].configuredVlan[] )",
                              {scans, InputSmScanState::lynthe_stream0ScanAttr}}),
               Lynthe::inner(EthernetSegmentStatus::designatedForwarderTepIpAddrAttr,
                             {1,
                              "from( evpnStatus.segmentStatus[].designatedForwarderTepIpAddr[] )",
                              {scans, InputSmScanState::lynthe_stream1ScanAttr}}));
  merge(configuredVlans.emit(portVlanOf), designatedForwarders.emit(portVlanOf))
      .filter(
          "( !( Pavlin::VxlanTunnelIntfId::isVxlanTunnelIntfId( intfId ) || "
          "Pavlin::MplsTrunkIntfId::isMplsTrunkIntfId( intfId ) ) )",
          [](const L2PortVlan& portVlan) { return !isTunnel(portVlan.intfId); })
      .into(
          electedDfStatus_, [](const L2PortVlan& portVlan) { return portVlan; },
          [this](const L2PortVlan& portVlan) { return electedDfStatus(portVlan); });
  begin({scans, InputSmScanState::idleAttr}, {outputState(), OutputState::readyAttr});
}

std::optional<Routing::Multicast::ElectedDFStatus> ElectedDFStatusSm::electedDfStatus(
    const L2PortVlan& portVlan) const {
  const auto segment = in.evpnStatus->segmentStatus(portVlan.intfId);
  if (!segment || !segment->configuredVlanHas(portVlan.vlanId)) return {};
  const bool iAmDF = segment->iAmDF(portVlan.vlanId);
  return ElectedDFStatus{
      portVlan, iAmDF,
      iAmDF ? Pavlin::IpGenAddr() : segment->designatedForwarderTepIpAddr(portVlan.vlanId)};
}

}  // namespace Multicast

VESK_REGISTER(Multicast::ElectedDFStatusSm)
VESK_REGISTER(Multicast::ElectedDFStatusSm::InputSmScanState)
VESK_REGISTER(Multicast::ElectedDFStatusSm::OutputState)
