#include "config/IpTunnelFloodGroupConfigSm.h"

#include "runtime/Trace.h"

namespace Routing::Multicast {
namespace {

const Vesk::TraceHandle traceHandle{"IpTunnelFloodGroupConfigSm"};

}  // namespace

IpTunnelFloodGroupConfigSm::IpTunnelFloodGroupConfigSm(Inputs inputs) : in(std::move(inputs)) {
  handleInitialized();
}

void IpTunnelFloodGroupConfigSm::handleIntf(Pavlin::IntfId intfId) {
  if (auto t = traceHandle.at(8)) t << "handleIntf " << intfId;
  const auto config = in.vlanToGroupConfig->intfConfig(intfId);
  const auto vti = in.vtiStatusDir->vtiStatus(intfId);
  if (!config || !vti) {
    intfSmDel();
    in.vlanToGroupStatus->vlanToFloodGroupDelAll();
    return;
  }
  intfSmIs({.vlanToGroupIntfConfig = config,
            .vlanStatusDir = in.vlanStatusDir,
            .vtiStatus = vti,
            .vlanToGroupStatus = in.vlanToGroupStatus});
}

void IpTunnelFloodGroupConfigSm::handleInitialized() {
  if (auto t = traceHandle.at(8)) t << "handleInitialized";
  for (const auto& [intfId, row] : in.vlanToGroupConfig->intfConfigIterator())
    handleIntf(intfId);
  if (!intfSm()) in.vlanToGroupStatus->vlanToFloodGroupDelAll();  // what an earlier life has left
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::IpTunnelFloodGroupConfigSm)
