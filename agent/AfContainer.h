// What exists per address family: inputs, tables and the two domain containers.
// Owns: the domain containers and the in-process tables of the family. Written by Agent, which
// mounts everything; the machines of the family are in AfContainerSm.
#pragma once

#include <vector>

#include "agent/DomainContainer.h"
#include "agent/Domains.h"
#include "overlay/IngressL3RouteSm.h"
#include "platform/MulticastIntfsAppRoot.h"
#include "records/AgentStatus.h"
#include "records/BriskelInputs.h"
#include "records/Egress.h"
#include "records/ElectedDf.h"
#include "records/Evpn.h"
#include "records/ExternalForwarderStatus.h"
#include "records/Fib.h"
#include "records/McastEvpnStatus.h"
#include "records/McastIrbStatus.h"
#include "records/MulticastGroups.h"
#include "records/ProactiveArp.h"
#include "records/UnderlayGmp.h"
#include "records/VrfLeak.h"

namespace Multicast::Vpn {

class Agent;

class AfContainer final : public Vesk::Entity {
  VESK_RECORD(Multicast::Vpn::AfContainer)
  struct Inputs {
    Agent* agent = nullptr;
    bool operator==(const Inputs&) const = default;
  };
  AfContainer(Pavlin::AddressFamily family, Inputs inputs) : in(inputs) { afIs(family); }
  const Inputs in;

  [[nodiscard]] Agent* agent() const { return in.agent; }
  /// The container of a domain; null for a remote domain that does not exist.
  [[nodiscard]] Ombra::Ptr<DomainContainer> domainContainer(Irb::Multicast::Domain domain);
  [[nodiscard]] Ombra::Ptr<DomainContainer const> domainContainer(
      Irb::Multicast::Domain domain) const {
    return const_cast<AfContainer*>(this)->domainContainer(domain);
  }
  Ombra::Ptr<DomainContainer> domainContainerIs(Irb::Multicast::Domain domain);
  /// Those of the domains that exist.
  [[nodiscard]] std::vector<Ombra::Ptr<DomainContainer>> domainContainers();

  VESK_VALUE(Pavlin::AddressFamily, af)
  VESK_INSTANCE(DomainContainer, localDomainContainer)
  VESK_INSTANCE(DomainContainer, remoteDomainContainer)
  VESK_REF(McastCommon::AgentStatus const, mcastStatus)
  VESK_REF(Vesk::Dir const, multicastAppDirRoot)
  VESK_INSTANCE(Irb::Multicast::Egress::MembershipJoinStatusColl, membershipJoinStatusColl)
  VESK_REF(Routing::Multicast::Fib::VrfEnabledStatus const, mcastEnabledStatus)
  VESK_REF(Routing::Multicast::Fib::Hardware::Status const, mfibHwStatus)
  VESK_REF(Routing::Multicast::Evpn::Config const, mcastEvpnConfig)
  VESK_REF(Irb::Multicast::IgmpProxyStatus const, mergedGmpProxyStatus)
  VESK_REF(Routing::Multicast::VrfLeak::McastVrfLeakConfig const, vrfLeakConfig)
  VESK_REF(Irb::Multicast::EvpnStaticConfig const, evpnStaticConfig)
  VESK_REF(Routing::Multicast::PegVlanStatus const, pegVlanStatus)
  VESK_REF(Routing::Multicast::PegNeighborStatus const, pegNeighborStatus)
  VESK_REF(IpGen::MulticastGroupsForApplications, sbdVlanMcastGroup)
  VESK_REF(Vesk::Dir, multicastIntfAppDir)
  VESK_REF(Vesk::Dir, underlayMulticastIntfAppDir)
  VESK_REF(Routing::Multicast::McastEvpnStatus, mcastEvpnStatus)
  VESK_REF(Irb::Multicast::McastIrbStatus, mcastIrbStatus)
  VESK_INSTANCE(Routing::Multicast::ElectedDFStatusDir, electedDfStatusDir)
  VESK_REF(Routing::Multicast::ExternalForwarderStatus, externalForwarderStatus)
  VESK_REF(Routing::Gmp::Briskel::Status, underlayGmpStatus)
  VESK_REF(Arp::ProactiveArp::ClientConfig, proactiveArpConfig)
  VESK_INSTANCE(Routing::Multicast::MulticastIntfsAppRootSmColl, mcastIntfSmRoot)
  VESK_INSTANCE(Irb::Multicast::Egress::McastVrfLeakCtx, mcastVrfLeakCtx)
  /// Both domains write one table of proactive ARP requests.
  VESK_INSTANCE(ProactiveArpUse, proactiveArpUse)
};

}  // namespace Multicast::Vpn
