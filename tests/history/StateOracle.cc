#include "tests/history/StateOracle.h"

#include <map>
#include <set>

#include "platform/Toggles.h"
#include "records/Bridging.h"
#include "records/BriskelInputs.h"
#include "records/Evpn.h"
#include "records/ExternalForwarderStatus.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/McastEvpnStatus.h"
#include "records/MulticastGroups.h"
#include "records/MulticastIntfs.h"
#include "records/Tunnels.h"
#include "records/Vxlan.h"
#include "tests/history/Inputs.h"

namespace History {
namespace {

using namespace Routing::Multicast;
using Bridging::VlanId;
using Pavlin::AddressFamily;
using Pavlin::IntfId;

Ombra::Ptr<Vxlan::VtiStatus> vxlan1() {
  return input<Vxlan::VtiStatusDir>()->vtiStatus(Pavlin::vxlan1IntfId());
}
Ombra::Ptr<IpTunnelGroupIntfConfig> config() {
  return groupConfig(Irb::Multicast::Domain::localDomain)->intfConfig(Pavlin::vxlan1IntfId());
}

using Texts = std::set<std::string>;

std::string difference(const std::string& what, const Texts& wanted, const Texts& found,
                       bool mayRemain = false) {
  std::string text;
  for (const auto& row : wanted)
    if (!found.contains(row)) text += "\n  wanted " + what + " " + row;
  for (const auto& row : found)
    if (!wanted.contains(row) && !mayRemain) text += "\n  unwanted " + what + " " + row;
  return text;
}

/// "VRF intf" of each interface that an application wants.
Texts applicationIntfs(AddressFamily af, std::string_view application) {
  Texts found;
  const auto dir = inputDir(MulticastIntfsForApplications::dirMountPath(af, application));
  for (const auto& [name, entity] : dir->entryStateIterator())
    if (const auto* intfs = dynamic_cast<const MulticastIntfsForApplications*>(entity.get()))
      for (const auto& [intf, enabled] : intfs->multicastIntfIterator())
        found.insert(name + " " + intf.stringValue());
  return found;
}

Texts pimGroups(AddressFamily af) {
  Texts found;
  if (af == Pavlin::ipv4()) {
    for (const auto& pair : input<Ip::MulticastGroupsForApplications>()->multicastGroupIterator())
      found.insert(Vesk::textOf(pair));
  } else {
    for (const auto& pair : input<Ip6::MulticastGroupsForApplications>()->multicastGroupIterator())
      found.insert(Vesk::textOf(pair));
  }
  return found;
}

Ombra::Ptr<IpTunnelVlanGroupStatus> encapStatus(AddressFamily af, IpTunnelGroupStatusType type) {
  return inputAt<IpTunnelVlanGroupStatus>(IpTunnelVlanGroupStatus::mountPath(af, type));
}
bool holdsGroups(const IpTunnelVlanGroupStatus& status) {
  return status.vlanToMulticastGroupCount() + status.vlanToFloodGroupCount() != 0;
}

std::string interfaceDifference(AddressFamily af, const Remains& remains) {
  Texts intfs;
  Texts groups;
  Texts sources;
  if (const auto vti = vxlan1()) {
    for (const auto& [vrf, vlan] : vti->vrfToSBDVlanIterator()) {
      if (vlan.isNone()) continue;
      const std::string svi = "Vlan" + std::to_string(vlan.value());
      intfs.insert(std::string(vrf.str()) + " " + svi);
      groups.insert(svi + (af == Pavlin::ipv4() ? ",224.0.0.13" : ",ff02::d"));
    }
    if (holdsGroups(*encapStatus(af, irbEncapStatus())) && vti->srcIntf() != IntfId() &&
        vti->operStatus() == Vxlan::IntfOperStatus::up)
      sources.insert("default " + vti->srcIntf().stringValue());
  }
  return difference("SBD interface", intfs, applicationIntfs(af, "corvane"), remains.sbdShared) +
         difference("PIM group", groups, pimGroups(af)) +
         difference("source interface", sources, applicationIntfs(af, "mcasttunnel"),
                    remains.vtiWent);
}

std::string floodDifference(AddressFamily af) {
  Texts wanted;
  const auto vti = vxlan1();
  const auto typeOf = [](UnderlayRouteType type) {
    return type == UnderlayRouteType::pimSsm ? "PimSsm" : "PimAsm";
  };
  if (config() && vti) {
    for (const auto& [vlan, entry] : config()->vlanToFloodGroupIterator()) {
      const bool is4 = entry.floodGroup.af() == Pavlin::ipv4();
      const bool hasVtep = is4 ? vti->localVtepAddr() != Pavlin::IpAddr()
                               : vti->localVtepAddr6() != Pavlin::Ip6Addr();
      if (entry.floodGroup.af() == AddressFamily::none || !hasVtep ||
          !input<Bridging::VlanStatusDir>()->vlanStatusHas(vlan))
        continue;
      wanted.insert(
          Vesk::textOf(vlan) + " " +
          (is4 ? Vesk::textOf(vti->localVtepAddr()) : Vesk::textOf(vti->localVtepAddr6())) + "," +
          Vesk::textOf(entry.floodGroup) + "," +
          typeOf(entry.configType == VlanTunnelConfigType::floodUnderlay
                     ? config()->floodUnderlayRouteType()
                     : config()->mcastUnderlayRouteType()));
    }
  }
  Texts found;
  for (const auto& [vlan, row] : encapStatus(af, irbEncapStatus())->vlanToFloodGroupIterator())
    for (const auto& route : row->floodGroupIterator())
      found.insert(Vesk::textOf(vlan) + " " + Vesk::textOf(route));
  return difference("flood group", wanted, found);
}

std::string evpnDifference(AddressFamily af) {
  using Irb::Multicast::IgmpProxyStatus;
  const auto status = input<McastEvpnStatus>(af);
  const bool carries = holdsGroups(*encapStatus(af, irbEncapStatus())) ||
                       (::Multicast::Vpn::toggleOismGatewayEnabled() &&
                        holdsGroups(*encapStatus(af, irbRemoteDomainEncapStatus())));
  const auto proxied = sharedTable<IgmpProxyStatus>(IgmpProxyStatus::mergedAfMountPath(af));
  const bool isRight = status->underlayMcastEnabled() == carries && status->underlayHerEnabled() &&
                       status->igmpProxyEnabled() == (proxied->igmpProxyVlanCount() != 0);
  return isRight ? "" : "\n  wrong EVPN status";
}

std::string vniDifference() {
  Texts wanted;
  const auto vti = vxlan1();
  if (!vti || !config() || !(config()->mcastOverlayV4() || config()->mcastOverlayV6()))
    return {};  // nobody looks after the rows
  for (const auto& [vni, vrf] : config()->remoteVniToVrfIterator())
    if (const auto vlan = vti->vrfToSBDVlan(vrf); !vlan.isNone())
      wanted.insert(Vesk::textOf(vni) + " " + Vesk::textOf(vlan));
  Texts found;
  const auto rows = sharedTable<Vxlan::RemoteVniToVlanStatus>(
      Vxlan::RemoteVniToVlanStatus::mountPath("static", Pavlin::vxlan1IntfId()));
  for (const auto& [vni, row] : rows->remoteVniToVlanIterator())
    found.insert(Vesk::textOf(vni) + " " + Vesk::textOf(row.vlanId));
  return difference("remote VNI", wanted, found);
}

/// 0: none, 1: forwarder, 2: forwarder as designated router.
unsigned roleOf(AddressFamily af, const ::Evpn::EthernetSegmentStatus& segment, VlanId vlan) {
  using Irb::Multicast::McastIrbStatus;
  if (!segment.dfVlanHas(vlan)) return 0;
  if (!sharedTable<PegVlanStatus>(PegVlanStatus::mountPath(af))->pegVlan(vlan).pegEnabled) return 1;
  const auto routers = sharedTable<PegDrStatus>(PegDrStatus::mountPath(Pavlin::ipv4()));
  if (routers->pegDrVlan(vlan).pegDrRole == PegDrRole::dr) return 2;
  const auto bound = sharedTable<McastIrbStatus>(
      McastIrbStatus::mountPath(af, Irb::Multicast::App::Client::client3));
  if (!bound->vlanToSbdHas(vlan)) return 1;
  const auto neighbour = sharedTable<PegNeighborStatus>(PegNeighborStatus::mountPath(af))
                             ->pegVlanNeighbor(bound->vlanToSbd(vlan).sbdVlan);
  return neighbour && neighbour->tepCount() != 0 ? 0 : 1;
}

std::string roleDifference(AddressFamily af) {
  if (!::Multicast::Vpn::toggleOismGatewayEnabled()) return {};
  Texts wanted;
  for (const auto& [port, segment] : input<::Evpn::EvpnStatus>()->segmentStatusIterator())
    for (const auto& vlan : segment->configuredVlanIterator())
      if (port.stringValue().starts_with("Ethernet"))
        wanted.insert(Vesk::textOf(port) + " " + Vesk::textOf(vlan) + " " +
                      std::to_string(roleOf(af, *segment, vlan)));
  Texts found;
  const auto roles = sharedTable<ExternalForwarderStatus>(ExternalForwarderStatus::mountPath(af));
  for (const auto& [port, row] : roles->intfStatusIterator())
    found.insert(Vesk::textOf(port.intfId) + " " + Vesk::textOf(port.vlanId) + " " +
                 Vesk::textOf(row.role));
  return difference("role", wanted, found);
}

/// Of an endpoint with ingress replication the row may be missing: the review of PIM requests takes
/// it at a start. The kind of a PIM tunnel is that of the last request, also of one that went.
std::string tunnelDifference() {
  using namespace ::Multicast::Tunnel;
  Texts encap;
  Texts replicated;
  Texts pim;
  for (const auto client : {McastTunnelClientType::client1, McastTunnelClientType::client2}) {
    for (const auto& [endpoint, row] : sharedTable<IrVxlanIpv4TunnelRequestTable>(
                                           IrVxlanIpv4TunnelRequestTable::mountPath(client))
                                           ->tunnelRequestIterator()) {
      encap.insert(Vesk::textOf(endpoint.vtep));
      replicated.insert(Vesk::textOf(endpoint));
    }
    for (const auto& [endpoint, row] :
         sharedTable<PimVxlanTunnelRequestTable>(PimVxlanTunnelRequestTable::mountPath(client))
             ->tunnelRequestIterator())
      pim.insert(Vesk::textOf(endpoint));
  }
  Texts foundEncap;
  for (const auto& [id, row] :
       sharedTable<IrVxlanIpv4TunnelTable>(IrVxlanIpv4TunnelTable::mountPath())->encapIterator())
    foundEncap.insert(Vesk::textOf(row.vtepIp()));
  std::string text = difference("encapsulation", encap, foundEncap);
  Texts foundPim;
  for (const auto& [endpoint, row] : sharedTable<McastTunnelStatus>()->mcastTunnelSetIterator()) {
    const bool isPim = row.defaultTunnelId.tunnelType() == pimVxlan();
    if (isPim) foundPim.insert(Vesk::textOf(endpoint));
    if (!isPim && !replicated.contains(Vesk::textOf(endpoint)))
      text += "\n  unwanted tunnel of " + Vesk::textOf(endpoint);
  }
  return text + difference("PIM tunnel", pim, foundPim);
}

}  // namespace

void Remains::note() {
  const auto vti = vxlan1();
  vtiWent = vtiWent || !vti;
  std::set<Bridging::VlanIdOrNone> named;
  if (!vti) return;
  for (const auto& [vrf, vlan] : vti->vrfToSBDVlanIterator())
    sbdShared = sbdShared || !named.insert(vlan).second;
}

std::string stateDifference(const Remains& remains) {
  std::string text = vniDifference() + tunnelDifference();
  for (const auto af : Pavlin::families)
    if (const auto fault = interfaceDifference(af, remains) + floodDifference(af) +
                           evpnDifference(af) + roleDifference(af);
        !fault.empty())
      text += "\n" + Vesk::textOf(af) + ":" + fault;
  return text;
}

}  // namespace History
