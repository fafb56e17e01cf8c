#include "config/IpTunnelGroupConfigSm.h"

#include "runtime/Trace.h"

namespace Routing::Multicast {
namespace {

const Vesk::TraceHandle traceHandle{"IpTunnelGroupConfigSm"};

}  // namespace

IpTunnelGroupConfigSm::IpTunnelGroupConfigSm(Inputs inputs) : in(std::move(inputs)) {
  intfConfigs_.begin();
  handleInitialized();
}

void IpTunnelGroupConfigSm::handleIntf(Pavlin::IntfId intfId) {
  if (auto t = traceHandle.at(8)) t << "handleIntf " << intfId;
  const auto config = in.vlanToGroupConfig->intfConfig(intfId);
  const auto vti = in.vtiStatusDir->vtiStatus(intfId);
  const bool overlayEnabled =
      config && (in.vlanToGroupStatus->af() == Pavlin::ipv4() ? config->mcastOverlayV4()
                                                              : config->mcastOverlayV6());
  if (!vti || !overlayEnabled) {
    intfSmDel();
    return;
  }
  intfSmIs({.vlanToGroupIntfConfig = config,
            .vlanStatusDir = in.vlanStatusDir,
            .vtiStatus = vti,
            .mcastIntfRoot = in.mcastIntfRoot,
            .vlanToGroupStatus = in.vlanToGroupStatus,
            .ipTunnelMappingStatus = in.ipTunnelMappingStatus});
}

void IpTunnelGroupConfigSm::handleInitialized() {
  if (auto t = traceHandle.at(8)) t << "handleInitialized";
  for (const auto& [intfId, row] : in.vlanToGroupConfig->intfConfigIterator())
    handleIntf(intfId);
  // Also without any interface: readers do not wait for one that is not configured.
  if (in.ipTunnelMappingStatus) in.ipTunnelMappingStatus->readyIs(true);
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::IpTunnelGroupConfigSm)
VESK_REGISTER(Routing::Multicast::IpTunnelGroupConfigSm::NestedSm_VlanIntfGroupConfig)
