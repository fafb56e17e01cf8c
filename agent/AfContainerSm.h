// The machines of one address family, and what switches them.
// Owns: the domain machines and the family-wide machines, the decapsulating road among them. Reads:
// whether snooping is on for the family, whether this switch has a gateway Ethernet segment, and
// which VRFs use several underlay groups. Writes: the encap ready flags of a family without
// machines, the leak context. Runs on each change of what it reads. Caveat: receivers are served
// whether or not snooping is on; that gates the encapsulating side alone.
#pragma once

#include <vector>

#include "agent/AfContainer.h"
#include "agent/DomainContainerSm.h"
#include "agent/OverlayMcastVrfSm.h"
#include "config/IpTunnelFloodGroupConfigSm.h"
#include "config/McastEvpnStatusSm.h"
#include "egress/VpnInjectSm.h"
#include "pipeline/EDFSm.h"
#include "pipeline/ElectedDFStatusSm.h"
#include "pipeline/McastIrbStatusSm.h"
#include "platform/PrefixListConfigSm.h"
#include "platform/VrfLeakHelperSm.h"
#include "records/Bridging.h"
#include "records/GmpProxyStatus.h"
#include "vxlan/SbdIntfSm.h"
#include "vxlan/VxlanSm.h"
#include "vxlan/VxlanSrcIntfSm.h"

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
  /// The machines of a domain; null while they do not run.
  [[nodiscard]] Ombra::Ptr<DomainContainerSm> domainCntrSm(Irb::Multicast::Domain domain);
  [[nodiscard]] Ombra::Ptr<DomainContainerSm const> domainCntrSm(
      Irb::Multicast::Domain domain) const {
    return const_cast<AfContainerSm*>(this)->domainCntrSm(domain);
  }

  VESK_REF(Irb::Multicast::GatewayEsStatus const, gatewayStatus)
  VESK_INSTANCE(DomainContainerSm, localDomainCntrSm)
  VESK_INSTANCE(DomainContainerSm, remoteDomainCntrSm)
  VESK_INSTANCE(Irb::Multicast::SbdIntfSm, sbdIntfSm)
  VESK_INSTANCE(OverlayMcastVrfSm, overlayVrfSm)
  /// One of the two writes the SBD vlans: the pipeline where MPLS may claim one as well.
  VESK_INSTANCE(Irb::Multicast::VxlanSm, vxlanSm)
  VESK_INSTANCE(Irb::Multicast::McastIrbStatusSm, mcastIrbStatusSm)
  VESK_INSTANCE(Irb::Multicast::VxlanSrcIntfSm, vxlanSrcIntfSm)
  VESK_REF(Routing::Policy::PolicyRoot, policyRoot)
  VESK_INSTANCE(Routing::RouteMap::PrefixListConfigSm, prefixListConfigSm)
  VESK_INSTANCE(Routing::RouteMap::PrefixListConfigSm, ipv6PrefixListConfigSm)
  VESK_INSTANCE(Routing::Multicast::VrfLeak::VrfLeakHelperSm, vrfLeakHelperSm)
  VESK_INSTANCE(Irb::Multicast::Egress::VpnInjectSm, vpnInjectSm)
  VESK_INSTANCE(Routing::Multicast::IpTunnelFloodGroupConfigSm, ipTunnelFloodGroupConfigSm)
  VESK_INSTANCE(Routing::Multicast::McastEvpnStatusSm, mcastEvpnStatusSm)
  VESK_INSTANCE(ElectedDFStatusSm, electedDfStatusSm)
  VESK_INSTANCE(EDFSm, edfSm)

 private:
  using MappingStatus = IpTunnelMappingStatus;

  void handleInit();
  void makeSbdMachine();
  void makeLeakMachines();
  void makeVpnInjectSm();
  void makeFloodAndEvpnMachines();
  void makeForwarderMachines();
  /// Stores a machine that a factory made.
  template <class Tag>
  void adopt(Tag, const Ombra::Ptr<typename Tag::Attr::Target>& machine) {
    Tag::attr(*this).adopt(*this, Tag::id, machine);
  }
  void markNothingToDo();
  /// Takes back what machines that do not run now left when an earlier life was cut short.
  void clearLeftovers();
  void addIpTunnelConfigStateMachines();
  void deleteIpTunnelConfigStateMachines();
  void handleGatewayStatus();
  void handleSnooping();
  void handleIgmpSnoopingStatus();
  void handleMldSnoopingStatus();
  void updateMultipleUnderlayGroupStateMachines();
  /// Those of the domains that run.
  [[nodiscard]] std::vector<Ombra::Ptr<DomainContainerSm>> domainCntrSms();
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
