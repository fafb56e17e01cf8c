// What exists per address family and domain: the domain's inputs, tables and outputs.
// Owns: the mapping status, the group tables, their dedup table and the ingress route status.
// Everything here outlives the machines that work on it (DomainContainerSm). Written by Agent (the
// mounted records) and at construction.
#pragma once

#include "overlay/OverlayVlanGroupDedup.h"
#include "records/EncapTables.h"
#include "records/IpTunnelForwardingStatus.h"
#include "records/IpTunnelMappingStatus.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/ReadyStatus.h"

namespace Multicast::Vpn {

class DomainContainer final : public Vesk::Entity {
  VESK_RECORD(Multicast::Vpn::DomainContainer)
  struct Inputs {
    Irb::Multicast::Domain domain = Irb::Multicast::Domain::localDomain;
    bool operator==(const Inputs&) const = default;
  };
  explicit DomainContainer(Inputs inputs);
  const Inputs in;

  /// Takes back the groups of the domain, at a start that has no machines for it: those of a life
  /// that was cut short.
  void clearGroupStatus() { encapVlanGroupStatus()->vlanToMulticastGroupDelAll(); }

  VESK_VALUE(Irb::Multicast::Domain, domain)
  VESK_VALUE(EncapDecapReadyClient, domainClient)
  VESK_REF(Routing::Multicast::IpTunnelVlanGroupStatus const, decapVlanGroupStatus)
  VESK_REF(Routing::Multicast::IpTunnelVlanGroupStatus, encapVlanGroupStatus)
  VESK_REF(Routing::Multicast::IpTunnelForwardingStatus, ipTunnelForwardingStatus)
  VESK_REF(DecapReadyStatus, decapReadyStatus)
  VESK_INSTANCE(IpTunnelMappingStatus, ipTunnelMappingStatus)
  VESK_REF(EncapReadyStatus, encapReadyStatus)
  VESK_INSTANCE(OverlayVlanGroupLifetimeNotifiee, overlayVlanGroupLifetimeNotifiee)
  VESK_INSTANCE(VlanGroupDedupTable, vlanGroupDedupTable)
  VESK_INSTANCE(VlanGroupTableColl, vlanGroupTableColl)
  VESK_INSTANCE(IngressL3RouteStatus, ingressL3RouteStatus)
};

}  // namespace Multicast::Vpn
