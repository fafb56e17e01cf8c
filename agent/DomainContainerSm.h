// The encapsulating machines of one domain of one family.
// Owns: the group configuration, default group, vlan group and mapping machines. Reads: the wiring
// of its containers. Writes: the domain's `encapReadyStatus`, which goes with this machine, and the
// ready flags of what is switched off. Runs: at construction, and when the family switches the
// machines for VRFs with several underlay groups.
#pragma once

#include "agent/AfContainer.h"
#include "config/IpTunnelGroupConfigSm.h"
#include "overlay/DefaultOverlayGroupSm.h"
#include "overlay/IngressL3RouteSm.h"
#include "overlay/IpTunnelMappingSm.h"
#include "overlay/IpTunnelVlanMcastGroupSm.h"
#include "overlay/L3OverlayGroupSm.h"

namespace Multicast::Vpn {

class DomainContainerSm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Vpn::DomainContainerSm)
  struct Inputs {
    Irb::Multicast::Domain domain;
    Ombra::Ptr<AfContainer> afContainer;
    bool operator==(const Inputs&) const = default;
  };
  explicit DomainContainerSm(Inputs inputs);
  const Inputs in;

  [[nodiscard]] Ombra::Ptr<DomainContainer> domainContainer() const {
    return in.afContainer->domainContainer(in.domain);
  }
  /// Several underlay groups in one VRF need the L3 route machines; without them their tables are
  /// ready by definition.
  void updateMultipleUnderlayGroupStateMachines(bool shouldEnable);
  /// Group configuration stops before the rest of the domain: both are silent before either goes,
  /// so that what the configuration takes back at its end does not reach the forwarding rows.
  void stopGroupConfig();

  VESK_INSTANCE(DefaultOverlayGroupSm, defaultOverlayGroupSm)
  VESK_INSTANCE(Routing::Multicast::IpTunnelGroupConfigSm, ipTunnelGroupConfigSm)
  VESK_INSTANCE(IpTunnelMappingSm, ipTunnelMappingSm)
  VESK_INSTANCE(IpTunnelVlanMcastGroupSm, ipTunnelVlanMcastGroupSm)
  VESK_INSTANCE(IngressL3RouteSm, ingressL3RouteSm)
  VESK_INSTANCE(L3OverlayGroupSm, l3OverlayGroupSm)

 private:
  void handleInit();
  void handleCleanup() override;
};

}  // namespace Multicast::Vpn
