// The machines of one address family, and what switches them.
// Owns: the domain machines and the family-wide machines. Reads: whether snooping is on for the
// family, whether this switch has a gateway Ethernet segment, and which VRFs use several underlay
// groups. Writes: the encap ready flags of a family without machines, the leak context. Runs on
// each change of what it reads.
#pragma once

#include "agent/AfContainer.h"
#include "agent/DomainContainerSm.h"
#include "agent/OverlayMcastVrfSm.h"
#include "platform/PrefixListConfigSm.h"
#include "platform/VrfLeakHelperSm.h"
#include "records/Bridging.h"
#include "records/GmpProxyStatus.h"

namespace Multicast::Vpn {

class AfContainerSm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Vpn::AfContainerSm)
  struct Inputs {
    Ombra::Ptr<AfContainer> container;
    Ombra::Ptr<Bridging::IgmpSnooping::Status> igmpSnoopingStatus;  ///< of ipv4, else null
    Ombra::Ptr<Bridging::IgmpSnooping::Config> mldSnoopingStatus;   ///< of ipv6, else null
    Ombra::Ptr<Evpn::EvpnStatus const> evpnStatus;
    Ombra::Ptr<Irb::Multicast::GmpProxyStatus const> gmpProxyStatus;
    Ombra::Ptr<EncapReadyStatusColl> encapReadyStatusColl;
    bool operator==(const Inputs&) const = default;
  };
  AfContainerSm(Pavlin::AddressFamily af, Inputs inputs);
  const Pavlin::AddressFamily af;
  const Inputs in;

  /// Snooping is on for the family.
  [[nodiscard]] bool snooping() const;

  VESK_REF(Irb::Multicast::GatewayEsStatus const, gatewayStatus)
  VESK_INSTANCE(DomainContainerSm, localDomainCntrSm)
  VESK_INSTANCE(DomainContainerSm, remoteDomainCntrSm)
  VESK_INSTANCE(OverlayMcastVrfSm, overlayVrfSm)
  VESK_REF(Routing::Policy::PolicyRoot, policyRoot)
  VESK_INSTANCE(Routing::RouteMap::PrefixListConfigSm, prefixListConfigSm)
  VESK_INSTANCE(Routing::RouteMap::PrefixListConfigSm, ipv6PrefixListConfigSm)
  VESK_INSTANCE(Routing::Multicast::VrfLeak::VrfLeakHelperSm, vrfLeakHelperSm)

 private:
  using MappingStatus = IpTunnelMappingStatus;

  void handleInit();
  void makeLeakMachines();
  void markNothingToDo();
  void addIpTunnelConfigStateMachines();
  void deleteIpTunnelConfigStateMachines();
  void handleGatewayStatus();
  void handleSnooping();
  void handleIgmpSnoopingStatus();
  void handleMldSnoopingStatus();
  void updateMultipleUnderlayGroupStateMachines();
  void handleCleanup() override;
  [[nodiscard]] Agent& agent() const { return *in.container->agent(); }

  Vesk::Watch igmp_ = watch<&AfContainerSm::handleIgmpSnoopingStatus>(
      in.igmpSnoopingStatus, Bridging::IgmpSnooping::Status::snoopingActiveAttr);
  Vesk::Watch mld_ = watch<&AfContainerSm::handleMldSnoopingStatus>(
      in.mldSnoopingStatus, Bridging::IgmpSnooping::Config::snoopingEnabledAttr);
  Vesk::PathWatch gateway_ = watchPath<&AfContainerSm::handleGatewayStatus>(
      this, gatewayStatusAttr, Irb::Multicast::GatewayEsStatus::esVlanStatusAttr);
  Vesk::PathWatch localDelayed_ =
      watchPath<&AfContainerSm::updateMultipleUnderlayGroupStateMachines>(
          in.container, AfContainer::localDomainContainerAttr,
          DomainContainer::ipTunnelMappingStatusAttr,
          MappingStatus::multipleUnderlayGroupsDelayedVrfAttr);
  Vesk::PathWatch remoteDelayed_ =
      watchPath<&AfContainerSm::updateMultipleUnderlayGroupStateMachines>(
          in.container, AfContainer::remoteDomainContainerAttr,
          DomainContainer::ipTunnelMappingStatusAttr,
          MappingStatus::multipleUnderlayGroupsDelayedVrfAttr);
};

}  // namespace Multicast::Vpn
