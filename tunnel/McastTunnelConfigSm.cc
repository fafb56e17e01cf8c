#include "tunnel/McastTunnelConfigSm.h"

#include "runtime/Trace.h"

namespace Multicast::Tunnel {
namespace {

const Vesk::TraceHandle traceHandle{"McastTunnelConfigSm"};

McastTunnelEndpoint endpointOf(Pavlin::IpAddr vtep) {
  return {0, Pavlin::IpGenAddr(vtep)};
}

}  // namespace

McastTunnelConfigSm::McastTunnelConfigSm(Inputs inputs) : in(std::move(inputs)) {
  handleInitialized();
  vxlanConfigs_.begin();
}

/// Requests that have outlived their configuration go; the others stay without a gap.
void McastTunnelConfigSm::handleInitialized() {
  for (const McastTunnelEndpoint& endpoint : in.tunnelRequestTable->tunnelRequestKeys())
    deleteUnlisted(endpoint);
}

bool McastTunnelConfigSm::findEndpoint(const McastTunnelEndpoint& endpoint) const {
  const auto found = [&] {
    if (endpoint.vtep.af() != Pavlin::ipv4()) return false;
    for (const auto& [intf, config] : in.vxlanConfigDir->vxlanConfigIterator())
      if (config->floodVtepListHas(endpoint.vtep.v4Addr())) return true;
    return false;
  }();
  if (auto t = traceHandle.at(8)) t << "findEndpoint " << Vesk::textOf(endpoint) << ": " << found;
  return found;
}

void McastTunnelConfigSm::deleteUnlisted(const McastTunnelEndpoint& endpoint) {
  if (!findEndpoint(endpoint)) in.tunnelRequestTable->tunnelRequestDel(endpoint);
}

void McastTunnelConfigSm::VxlanConfigSm::review() {
  for (const auto& [vtep, listed] : in.row->floodVtepListIterator())
    handleFloodVtepList(vtep);
}

void McastTunnelConfigSm::VxlanConfigSm::handleFloodVtepList(Pavlin::IpAddr vtep) {
  const McastTunnelEndpoint endpoint = endpointOf(vtep);
  if (in.row->floodVtepListHas(vtep)) {
    in.parent->in.tunnelRequestTable->tunnelRequestIs({endpoint});
  } else {
    in.parent->deleteUnlisted(endpoint);
  }
}

void McastTunnelConfigSm::VxlanConfigSm::handleDel() {
  for (const auto& [vtep, listed] : in.row->floodVtepListIterator())
    in.parent->deleteUnlisted(endpointOf(vtep));
}

Ombra::Ptr<McastTunnelConfigSm> mcastTunnelConfigSmFactory(
    const Ombra::Ptr<Vxlan::VxlanConfigDir const>& vxlanConfigDir,
    const Ombra::Ptr<IrVxlanIpv4TunnelRequestTable>& tunnelRequestTable) {
  return Ombra::make<McastTunnelConfigSm>(McastTunnelConfigSm::Inputs{
      .vxlanConfigDir = vxlanConfigDir, .tunnelRequestTable = tunnelRequestTable});
}

}  // namespace Multicast::Tunnel

VESK_REGISTER(Multicast::Tunnel::McastTunnelConfigSm)
VESK_REGISTER(Multicast::Tunnel::McastTunnelConfigSm::VxlanConfigSm)
