#include "config/IpTunnelGroupConfigSm.h"

#include "runtime/Trace.h"

namespace Routing::Multicast {
namespace {

const Vesk::TraceHandle traceHandle{"IpTunnelGroupConfigSm"};

}  // namespace

IpTunnelGroupConfigSm::IpTunnelGroupConfigSm(Inputs inputs) : in(std::move(inputs)) {
  for (const auto& [intfId, row] : in.vlanToGroupConfig->intfConfigIterator())
    vlanIntfGroupConfigIs(row);
  handleInitialized();
}

void IpTunnelGroupConfigSm::vlanIntfGroupConfigIs(
    const Ombra::Ptr<IpTunnelGroupIntfConfig const>& row) {
  const auto present = vlanIntfGroupConfig(row->intfId());
  if (present && present->in.row == row) return;
  vlanIntfGroupConfigAdopt(row->intfId(), Ombra::make<NestedSm_VlanIntfGroupConfig>(
                                              NestedSm_VlanIntfGroupConfig::Inputs{this, row}));
}

void IpTunnelGroupConfigSm::intfConfigDispatch(Pavlin::IntfId intfId) {
  handleIntf(intfId);
  if (const auto row = in.vlanToGroupConfig->intfConfig(intfId)) {
    vlanIntfGroupConfigIs(row);
  } else {
    vlanIntfGroupConfigDel(intfId);
  }
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
  const IpTunnelGroupIntfConfigSm::Inputs wanted{.vlanToGroupIntfConfig = config,
                                                 .vlanStatusDir = in.vlanStatusDir,
                                                 .vtiStatus = vti,
                                                 .mcastIntfRoot = in.mcastIntfRoot,
                                                 .vlanToGroupStatus = in.vlanToGroupStatus,
                                                 .ipTunnelMappingStatus = in.ipTunnelMappingStatus};
  // What the old machine's end clears must not be what the new one has just written.
  if (intfSm() && intfSm()->in != wanted) intfSmDel();
  intfSmIs(wanted);
}

void IpTunnelGroupConfigSm::handleInitialized() {
  if (auto t = traceHandle.at(8)) t << "handleInitialized";
  for (const auto& [intfId, row] : in.vlanToGroupConfig->intfConfigIterator())
    handleIntf(intfId);
  // Also without any interface: readers do not wait for one that is not configured.
  if (in.ipTunnelMappingStatus) in.ipTunnelMappingStatus->readyIs(true);
}

void IpTunnelGroupConfigSm::handleCleanup() {
  intfSmDel();
  vlanIntfGroupConfigDelAll();
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::IpTunnelGroupIntfConfigSm)
VESK_REGISTER(Routing::Multicast::IpTunnelGroupIntfConfigSm::NestedSm_VlanToMulticastGroup)
VESK_REGISTER(Routing::Multicast::IpTunnelGroupIntfConfigSm::NestedSm_VrfToMulticastGroup)
VESK_REGISTER(Routing::Multicast::IpTunnelGroupConfigSm)
VESK_REGISTER(Routing::Multicast::IpTunnelGroupConfigSm::NestedSm_VlanIntfGroupConfig)
