#include "tests/history/StateOracle.h"

#include <map>
#include <set>

#include "platform/Toggles.h"
#include "records/Bridging.h"
#include "records/BriskelInputs.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/McastEvpnStatus.h"
#include "records/MulticastGroups.h"
#include "records/MulticastIntfs.h"
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
  std::string text = vniDifference();
  for (const auto af : Pavlin::families)
    if (const auto fault =
            interfaceDifference(af, remains) + floodDifference(af) + evpnDifference(af);
        !fault.empty())
      text += "\n" + Vesk::textOf(af) + ":" + fault;
  return text;
}

}  // namespace History
