#include "agent/ExplainVni.h"

#include "agent/CorvaneAgent.h"
#include "agent/Explain.h"

namespace Multicast::Vpn {
namespace {

using Vesk::textOf;

/// Ends at the first step that is missing.
bool tellWanted(ExplainReport& report, const Vxlan::StaticRemoteVniToSBDVlanSm& sm,
                const Vxlan::VniExtOrNone& vni) {
  const L3::VrfName vrf = sm.in.ipTunnelGroupIntfConfig->remoteVniToVrf(vni);
  const std::string intf = sm.in.vtiStatus->intfId().stringValue();
  if (vrf.empty())
    return report.stop(fmt::format("no VRF is configured for it below interface {}", intf));
  report.given(fmt::format("configured for VRF {} below interface {}", textOf(vrf), intf));
  const Vxlan::RemoteVniCache cache = sm.rVniCache(vni);
  if (cache.sbdVlan.isNone())
    return report.stop(fmt::format("VRF {} has no SBD vlan on {}", textOf(vrf), intf));
  report.given(fmt::format("SBD vlan of VRF {}: {}", textOf(vrf), textOf(cache.sbdVlan)));
  return true;
}

}  // namespace

void explainVni(ExplainReport& report, const Agent& agent, const Vxlan::VniExtOrNone& vni) {
  report.heading("remote VNI " + textOf(vni));
  const auto configSm = agent.staticRemoteVniToSBDVlanConfigSm();
  if (!configSm) return report.missing(notRunning);
  const auto sm = configSm->staticRemoteVniToSBDVlanSm();
  const bool wanted = sm && tellWanted(report, *sm, vni);
  if (!sm)
    report.missing("no VXLAN interface that is there has a configuration with an overlay family");
  const auto& rows = *configSm->in.remoteVniToSBDVlan;
  if (!rows.remoteVniToVlanHas(vni))
    return report.missing("no row: its packets are bridged nowhere");
  report.given(fmt::format("row: bridged in vlan {}{}", textOf(rows.remoteVniToVlan(vni).vlanId),
                           wanted ? "" : ", left from before until an overlay is configured"));
}

}  // namespace Multicast::Vpn
