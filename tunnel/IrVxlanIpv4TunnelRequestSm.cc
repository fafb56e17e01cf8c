#include "tunnel/IrVxlanIpv4TunnelRequestSm.h"

#include "runtime/Assert.h"
#include "runtime/Trace.h"
#include "tunnel/Requests.h"

namespace Multicast::Tunnel {

using IrVxlanIpv4::RequestSm;
using IrVxlanIpv4::TunnelSm;
using RequestTableSm = RequestSm::RequestTableSm;

namespace {

const Vesk::TraceHandle traceHandle{"IrVxlanIpv4TunnelSm"};

}  // namespace

// --- the frame

/// The tunnel machine comes first: it has to see every address that the review of requests adds.
void IrVxlanIpv4TunnelRequestSm::handleInitialized() {
  localStatusIs();
  tunnelSmIs({.localStatus = localStatus(), .tunnelTable = in.tunnelTable});
  requestSmIs({.requestDir = in.requestDir,
               .localStatus = localStatus(),
               .tunnelTable = in.tunnelTable,
               .tunnelStatus = in.tunnelStatus});
}

Ombra::Ptr<IrVxlanIpv4TunnelRequestSm> irVxlanIpv4TunnelRequestSmFactory(
    const Ombra::Ptr<IrVxlanIpv4TunnelRequestDir const>& requestDir,
    const Ombra::Ptr<IrVxlanIpv4TunnelTable>& tunnelTable,
    const Ombra::Ptr<McastTunnelStatus>& tunnelStatus) {
  return Ombra::make<IrVxlanIpv4TunnelRequestSm>(IrVxlanIpv4TunnelRequestSm::Inputs{
      .requestDir = requestDir, .tunnelTable = tunnelTable, .tunnelStatus = tunnelStatus});
}

// --- from addresses to encapsulation rows

void TunnelSm::handleVtepStatus() {
  Ombra::assertThat(in.localStatus->vtepStatusCount() == 0,
                    "Sm assumes localStatus to empty at this point");
}

void TunnelSm::handleVtep(Pavlin::IpAddr vtep) {
  const McastTunnelId tunnelId = IrVxlanIpv4TunnelId::makeTunnel(vtep);
  if (in.localStatus->vtepStatusHas(vtep)) {
    if (auto t = traceHandle.at(9)) t << "Adding entry for tunnelId: " << vtep << " - " << tunnelId;
    in.tunnelTable->encapIs({tunnelId});
  } else {
    if (auto t = traceHandle.at(9)) t << "Deleting entry for tunnelId " << tunnelId;
    in.tunnelTable->encapDel(tunnelId);
  }
}

void TunnelSm::handleLocalStatusInit() {
  for (const McastTunnelId& tunnelId : in.tunnelTable->encapKeys())
    handleVtep(IrVxlanIpv4TunnelId::vtepIp(tunnelId));
}

// --- from requests to endpoints

RequestSm::RequestSm(Inputs inputs) : in(std::move(inputs)) {
  requestTables_.begin();
  handleInitialized();
}

void RequestSm::handleInitialized() {
  for (const McastTunnelEndpoint& endpoint : in.tunnelStatus->mcastTunnelSetKeys()) {
    const auto type = in.tunnelStatus->mcastTunnelSet(endpoint).defaultTunnelId.tunnelType();
    if (type == irVxlanIpv4() && !findEndpoint(endpoint))
      in.tunnelStatus->mcastTunnelSetDel(endpoint);
  }
  in.localStatus->initializedIs(true);
}

void RequestSm::handleRequestTable(McastTunnelClientType clientType) {
  Ombra::assertThat(in.requestDir->requestTableHas(clientType),
                    "As of today we dont expect briskel tables to dynamically get created or "
                    "destroyed");
}

bool RequestSm::findEndpoint(const McastTunnelEndpoint& endpoint) const {
  return isRequested(*in.requestDir, endpoint);
}

void RequestTableSm::review() {
  for (const McastTunnelEndpoint& endpoint : in.row->tunnelRequestKeys())
    handleTunnelRequest(endpoint);
}

void RequestTableSm::handleTunnelRequest(McastTunnelEndpoint endpoint) {
  if (in.row->tunnelRequestHas(endpoint)) return in.parent->addEndpoint(endpoint);
  // A damaged row may have a damaged key: one that nobody can have asked for says nothing.
  const auto& rows = IrVxlanIpv4TunnelRequestTable::tunnelRequestTag::attr(*in.row);
  if (!rows.corrupt(endpoint) || endpoint.vtep.af() == Pavlin::ipv4())
    in.parent->cleanupEndpoint(endpoint);
}

void RequestSm::addEndpoint(const McastTunnelEndpoint& endpoint) {
  Ombra::assertThat(endpoint.vtep.af() == Pavlin::ipv4(),
                    "endpoint.vtep().af() == Pavlin::ipv4() && \"Only IPv4 is supported\"");
  const Pavlin::IpAddr vtep = endpoint.vtep.v4Addr();
  in.localStatus->vtepStatusIs(vtep)->endpointIs(endpoint);
  const McastTunnelId tunnelId = in.tunnelTable->tunnel(vtep);
  if (!in.tunnelStatus->mcastTunnelSetHas(endpoint)) {
    in.tunnelStatus->mcastTunnelSetIs({endpoint, tunnelId});
    return;
  }
  Ombra::assertThat(in.tunnelStatus->mcastTunnelSet(endpoint).defaultTunnelId == tunnelId,
                    "tunnelSet.defaultTunnelId() == tunnelId && \"Only one tunnel type per "
                    "tunnelendpoint supported\"");
}

void RequestSm::cleanupEndpoint(const McastTunnelEndpoint& endpoint) {
  Ombra::assertThat(endpoint.vtep.af() == Pavlin::ipv4(),
                    "vtep.af() == Pavlin::ipv4() && \"Only V4 addresses supported\"");
  if (findEndpoint(endpoint)) return;
  in.tunnelStatus->mcastTunnelSetDel(endpoint);
  const Pavlin::IpAddr vtep = endpoint.vtep.v4Addr();
  const auto use = in.localStatus->vtepStatus(vtep);
  if (!use) return;
  use->endpointDel(endpoint);
  if (use->endpointCount() != 0) return;
  if (auto t = traceHandle.at(9)) t << "Last Endpoint for vtep " << vtep;
  in.localStatus->vtepStatusDel(vtep);
}

}  // namespace Multicast::Tunnel

VESK_REGISTER(Multicast::Tunnel::IrVxlanIpv4TunnelRequestSm)
VESK_REGISTER(Multicast::Tunnel::IrVxlanIpv4::TunnelSm)
VESK_REGISTER(Multicast::Tunnel::IrVxlanIpv4::RequestSm)
VESK_REGISTER(Multicast::Tunnel::IrVxlanIpv4::RequestSm::RequestTableSm)
