#include "config/McastEvpnStatusSm.h"

#include "platform/Toggles.h"
#include "runtime/Clock.h"
#include "runtime/Fleetlog.h"
#include "runtime/Log.h"
#include "runtime/Trace.h"

namespace Routing::Multicast {
namespace {

const Vesk::TraceHandle traceHandle{"McastEvpnStatusSm"};
const Fleetlog::TraceHandle ring{"McastEvpnStatusSm"};
constexpr std::size_t ringLevel = 8;

const Vesk::LogDescriptor descriptor{
    .name = "PIM_MAKE_BEFORE_BREAK_NOT_SUPPORTED",
    .format =
        "make-before-break for IIF Switching not supported on the underlay VRF, expect multicast "
        "traffic duplication.",
    .explanation =
        "The switch does not support make-before-break option for VxLAN underlay IIF switch "
        "because of unavailable hardware resources. This could result in persistent overlay "
        "multicast traffic duplication.",
    .recommendedAction =
        "Please disable the make-before-break option for IIF switching using the following command "
        ": \"make-before-break disabled\" under \"router-pim-sparse-ipv4\". VxLAN underlay "
        "multicast traffic may be lost during an IIF switch."};
Vesk::LogHandle notSupportedLog{descriptor, 0, 1.0, 0, 0};

void tell(const char* what, bool enabled) {
  Fleetlog::record(ring, ringLevel, "{} {}", what, enabled);
  if (auto t = traceHandle.at(8)) t << what << enabled;
}

bool holdsGroups(const IpTunnelVlanGroupStatus& status) {
  return status.vlanToMulticastGroupCount() != 0 || status.vlanToFloodGroupCount() != 0;
}

}  // namespace

McastEvpnStatusSm::McastEvpnStatusSm(Inputs inputs) : in(std::move(inputs)) {
  review();
}

void McastEvpnStatusSm::review() {
  updateUnderlayMcastEnabled();
  updateUnderlayHerEnabled();
  updateIgmpProxyEnabled();
}

void McastEvpnStatusSm::updateUnderlayMcastEnabled() {
  const auto& remote = in.remoteDomainTunnelVlanGroupStatus;
  const bool enabled =
      holdsGroups(*in.tunnelVlanGroupStatus) ||
      (::Multicast::Vpn::toggleOismGatewayEnabled() && remote && holdsGroups(*remote));
  tell("updateUnderlayMcastEnabled Underlay Multicast enabled: ", enabled);
  if (in.mcastEvpnStatus->underlayMcastEnabled() != enabled) {
    in.mcastEvpnStatus->underlayMcastEnabledIs(enabled);
    noteChange();
  }
  if (!enabled || in.hwCapabilities->makeBeforeBreakSupported()) return;
  const auto pim = in.pimsmConfigColl->vrfConfig(L3::defaultVrfName());
  if (pim && pim->makeBeforeBreakDisabled()) return;
  if (notSupportedLog.okToLog(0)) notSupportedLog.log({});
}

void McastEvpnStatusSm::updateUnderlayHerEnabled() {
  tell(" Underlay HER enabled: ", true);
  in.mcastEvpnStatus->underlayHerEnabledIs(true);
}

void McastEvpnStatusSm::updateIgmpProxyEnabled() {
  const bool enabled = in.igmpProxyStatus->igmpProxyVlanCount() != 0;
  tell(" IgmpProxy enabled: ", enabled);
  if (in.mcastEvpnStatus->igmpProxyEnabled() == enabled) return;
  in.mcastEvpnStatus->igmpProxyEnabledIs(enabled);
  noteChange();
}

void McastEvpnStatusSm::noteChange() {
  mcastEvpnStatusUpdateTsIs(Vesk::System::currentTime());
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::McastEvpnStatusSm)
