#include "tunnel/PimVxlanTunnelRequestSm.h"

#include "runtime/Assert.h"
#include "tunnel/Requests.h"

namespace Multicast::Tunnel {

PimVxlanTunnelRequestSm::PimVxlanTunnelRequestSm(Inputs inputs) : in(std::move(inputs)) {
  requestTables_.begin();
  handleInitialized();
}

void PimVxlanTunnelRequestSm::handleInitialized() {
  for (const McastTunnelEndpoint& endpoint : in.tunnelStatus->mcastTunnelSetKeys())
    cleanupEndpoint(endpoint);
}

bool PimVxlanTunnelRequestSm::findEndpoint(const McastTunnelEndpoint& endpoint) const {
  return isRequested(*in.requestDir, endpoint);
}

void PimVxlanTunnelRequestSm::RequestSm::review() {
  for (const McastTunnelEndpoint& endpoint : in.row->tunnelRequestKeys())
    handleTunnelRequest(endpoint);
}

void PimVxlanTunnelRequestSm::RequestSm::handleTunnelRequest(McastTunnelEndpoint endpoint) {
  const PimVxlanTunnelRequest request = in.row->tunnelRequest(endpoint);
  if (request != PimVxlanTunnelRequest{}) {
    in.parent->addEndpoint(endpoint, request.pimTunnelType);
  } else {
    in.parent->cleanupEndpoint(endpoint);
  }
}

/// An endpoint may move between kinds of PIM tunnels, but not from one type of tunnel to another.
void PimVxlanTunnelRequestSm::addEndpoint(const McastTunnelEndpoint& endpoint,
                                          PimVxlanTunnel::PimTunnelType pimTunnelType) {
  if (in.tunnelStatus->mcastTunnelSetHas(endpoint))
    Ombra::assertThat(
        in.tunnelStatus->mcastTunnelSet(endpoint).defaultTunnelId.tunnelType() == pimVxlan(),
        "tunnelSet.defaultTunnelId().tunnelType() == pimVxlan() && \"Only one tunnel type per "
        "tunnelendpoint supported\"");
  in.tunnelStatus->mcastTunnelSetIs({endpoint, in.tunnelTable->tunnel(pimTunnelType)});
}

void PimVxlanTunnelRequestSm::cleanupEndpoint(const McastTunnelEndpoint& endpoint) {
  if (!findEndpoint(endpoint)) in.tunnelStatus->mcastTunnelSetDel(endpoint);
}

}  // namespace Multicast::Tunnel

VESK_REGISTER(Multicast::Tunnel::PimVxlanTunnelRequestSm)
VESK_REGISTER(Multicast::Tunnel::PimVxlanTunnelRequestSm::RequestSm)
