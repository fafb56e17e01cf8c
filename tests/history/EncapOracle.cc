#include "tests/history/EncapOracle.h"

#include <algorithm>
#include <optional>
#include <set>
#include <vector>

#include "platform/Toggles.h"
#include "records/AgentStatus.h"
#include "records/Bridging.h"
#include "records/BriskelInputs.h"
#include "records/Evpn.h"
#include "records/Fib.h"
#include "records/IpTunnelForwardingStatus.h"
#include "records/MulticastIntfs.h"
#include "records/Vxlan.h"
#include "tests/history/Inputs.h"
#include "tests/history/RouteOracle.h"

namespace History {
namespace {

using Bridging::VlanId;
using Pavlin::AddressFamily;
using Pavlin::IpGenAddr;
using Routing::Multicast::IpTunnelConfigEntry;
using Routing::Multicast::IpTunnelGroupIntfConfig;
using Routing::Multicast::OverlayAddr;
using Routing::Multicast::UnderlayAddr;
using Groups = std::map<IpGenAddr, UnderlayAddr>;

/// Immediate groups of a VRF: ranges expanded, groups in dispute left out, single groups over
/// everything.
Groups immediateGroups(const IpTunnelConfigEntry* entry) {
  Groups groups;
  if (entry == nullptr) return groups;
  std::set<IpGenAddr> disputed;
  for (const auto& [prefix, underlay] : entry->immediateOverlayPrefixToUnderlayGroupIterator()) {
    if (prefix.ipGenAddr().af() != Pavlin::ipv4() || underlay.genAddr().af() != Pavlin::ipv4())
      continue;
    if (!prefix.isMulticast() || prefix.length() < 25) continue;
    const std::uint32_t first = prefix.ipGenAddr().v4Addr().value();
    for (std::uint32_t i = 0; i < (1U << (32 - prefix.length())); ++i) {
      const IpGenAddr group(Pavlin::IpAddr(first + i));
      const auto [at, isNew] = groups.emplace(group, underlay);
      if (!isNew && at->second != underlay) disputed.insert(group);
    }
  }
  for (const auto& group : disputed)
    groups.erase(group);
  for (const auto& [overlay, underlay] : entry->immediateOverlayToUnderlayGroupIterator())
    groups[overlay.genAddr()] = underlay;
  return groups;
}

const IpTunnelConfigEntry* entryOf(const auto& row) {
  return row ? row->tunnelConfigEntry().get() : nullptr;
}

/// The lowest 32 bits of the address: what a pool of ipv4 groups sees of it.
std::uint32_t lowBits(const IpGenAddr& group) {
  if (group.af() == Pavlin::ipv4()) return group.v4Addr().value();
  const Pavlin::Ip6Addr wide = group.v6Addr();
  std::uint32_t bits = 0;
  for (const auto byte : wide.bytes())
    bits = bits << 8 | static_cast<std::uint8_t>(byte);
  return bits;
}

struct VlanRow {
  bool isSbd = false;
  const IpTunnelConfigEntry* own = nullptr;
  const IpTunnelConfigEntry* vrf = nullptr;
  Groups vrfGroups;

  [[nodiscard]] UnderlayAddr defaultGroup() const {
    if (own != nullptr && !own->defaultUnderlayGroup().isUnspecified())
      return own->defaultUnderlayGroup();
    return vrf != nullptr ? vrf->defaultUnderlayGroup() : UnderlayAddr();
  }
  [[nodiscard]] std::set<IpGenAddr> groups(AddressFamily af) const {
    std::set<IpGenAddr> all;
    if (isSbd) {
      for (const auto& [group, underlay] : vrfGroups)
        all.insert(group);
    } else if (own != nullptr) {
      for (const auto& [overlay, underlay] : own->immediateOverlayToUnderlayGroupIterator())
        all.insert(overlay.genAddr());
    }
    std::erase_if(
        all, [&](const IpGenAddr& group) { return group.af() != af || group.isUnspecified(); });
    all.insert(IpGenAddr(af));
    return all;
  }
  [[nodiscard]] UnderlayAddr underlay(const IpGenAddr& group) const {
    if (group.isUnspecified()) return defaultGroup();
    UnderlayAddr immediate;
    if (!isSbd && own != nullptr)
      immediate = own->immediateOverlayToUnderlayGroup(OverlayAddr(group));
    if (const auto at = vrfGroups.find(group); immediate.isUnspecified() && at != vrfGroups.end())
      immediate = at->second;
    if (!immediate.isUnspecified()) return immediate;
    if (vrf != nullptr && !vrf->underlayGroupRange().isEmpty()) {
      const auto pool = vrf->underlayGroupRange();
      const std::uint32_t host = pool.length() == 32 ? 0 : ~0U >> pool.length();
      return UnderlayAddr(
          IpGenAddr(Pavlin::IpAddr(pool.ipGenAddr().v4Addr().value() | (lowBits(group) & host))));
    }
    return defaultGroup();
  }
};

IpGenAddr vtepOf(const Vxlan::VtiStatus& vti, AddressFamily af) {
  return af == Pavlin::ipv4() ? IpGenAddr(vti.localVtepAddr()) : IpGenAddr(vti.localVtepAddr6());
}

bool usable(const Vxlan::VtiStatus& vti, const UnderlayAddr& group) {
  return !group.isUnspecified() && !vtepOf(vti, group.genAddr().af()).isUnspecified();
}

using SbdVrfs = std::map<unsigned, L3::VrfName>;

VlanRow vlanRow(AddressFamily af, const IpTunnelGroupIntfConfig& config,
                const Vxlan::VtiStatus& vti, const SbdVrfs& sbdVrfs, VlanId vlan) {
  VlanRow row;
  const bool hasVni = vti.vlanToVniMapHas(vlan);
  if (hasVni) row.own = entryOf(config.vlanToMulticastGroup(vlan));
  std::optional<L3::VrfName> vrf;
  if (const auto at = sbdVrfs.find(vlan.value()); at != sbdVrfs.end()) vrf = at->second;
  row.isSbd = vrf.has_value();
  if (hasVni) {
    const auto routed = routedVrf(af, vlan);
    if (routed && routed->str() != "default") vrf = routed;
  }
  if (!vrf) return row;
  row.vrf = entryOf(config.vrfToMulticastGroup(*vrf));
  row.vrfGroups = immediateGroups(row.vrf);
  return row;
}

}  // namespace

std::optional<L3::VrfName> routedVrf(AddressFamily af, VlanId vlan) {
  const auto svi = Pavlin::VlanIntfId::vlanIdToIntfId(vlan.value());
  std::optional<L3::VrfName> first;
  for (const auto& vrf : input<Routing::Multicast::Fib::VrfEnabledStatus>(af)->vrfIterator()) {
    const auto root = inputDir(Routing::Multicast::MulticastIntfsForApplications::dirMountPath(af));
    for (const auto& [name, app] : root->entryStateIterator()) {
      const auto* dir = dynamic_cast<const Vesk::Dir*>(app.get());
      const auto entity = dir == nullptr ? nullptr : dir->entityPtr(std::string(vrf.str()));
      const auto* intfs =
          dynamic_cast<const Routing::Multicast::MulticastIntfsForApplications*>(entity.get());
      if (intfs == nullptr || !intfs->multicastIntfHas(svi)) continue;
      if (!first || Vesk::KeyedMap<L3::VrfName, int>::before(vrf, *first)) first = vrf;
    }
  }
  return first;
}

bool agentRuns() {
  using McastCommon::AgentStatus;
  const bool routing = input<AgentStatus>(Pavlin::ipv4())->multicastRouting() ||
                       input<AgentStatus>(Pavlin::ipv6())->multicastRouting();
  if (routing && input<Vxlan::VtiStatusDir>()->vtiStatusCount() != 0) return true;
  const auto evpn = input<Evpn::EvpnStatus>();
  const auto fixed = input<Irb::Multicast::EvpnStaticStatus>();
  return Multicast::Vpn::toggleOismMplsTunnelEnabled() &&
         (evpn->evpnFlagA() || fixed->evpnFlagA()) &&
         (evpn->evpnFlagB() || evpn->evpnFlagC() || fixed->evpnFlagB() || fixed->evpnFlagC());
}

bool domainRuns(const Domain& domain) {
  const bool snooping = domain.af == Pavlin::ipv4()
                            ? input<Bridging::IgmpSnooping::Status>()->snoopingActive() != 0
                            : input<Bridging::IgmpSnooping::Config>()->snoopingEnabled();
  const bool gateway = Multicast::Vpn::toggleOismGatewayEnabled() &&
                       sharedInput<Irb::Multicast::GatewayEsStatus>()->esVlanStatusCount() != 0;
  return agentRuns() && snooping &&
         (domain.domain == Irb::Multicast::Domain::localDomain || gateway);
}

Rows wantedRows(const Domain& domain) {
  Rows rows;
  const auto config = groupConfig(domain.domain)->intfConfig(Pavlin::vxlan1IntfId());
  const auto vti = input<Vxlan::VtiStatusDir>()->vtiStatus(Pavlin::vxlan1IntfId());
  if (!config || !vti || config->underlayHerEnabled() ||
      vti->operStatus() != Vxlan::IntfOperStatus::up)
    return rows;
  if (!(domain.af == Pavlin::ipv4() ? config->mcastOverlayV4() : config->mcastOverlayV6()))
    return rows;
  const auto type =
      config->mcastUnderlayRouteType() == Routing::Multicast::UnderlayRouteType::pimSsm
          ? Routing::Multicast::TunnelType::PimSsm
          : Routing::Multicast::TunnelType::PimAsm;
  SbdVrfs sbdVrfs;
  for (const auto& [vrf, sbd] : vti->vrfToSBDVlanIterator())
    sbdVrfs.emplace(sbd.value(), vrf);  // of several VRFs the first
  std::map<unsigned, VlanRow> vlans;
  const auto add = [&](unsigned vlan, const IpGenAddr& group,
                       Routing::Multicast::TunnelType tunnel) {
    const UnderlayAddr underlay = vlans.at(vlan).underlay(group);
    if (!usable(*vti, underlay)) return;
    const auto overlay = Routing::Multicast::OverlayRoute::wcRoute(OverlayAddr(group));
    const Routing::Multicast::UnderlayRoute route{vtepOf(*vti, underlay.genAddr().af()), underlay,
                                                  tunnel};
    rows.emplace(Vesk::textOf(VlanId(vlan)) + "," + Vesk::textOf(overlay), Vesk::textOf(route));
  };
  for (const auto& [vlan, active] : input<Bridging::VlanStatusDir>()->vlanStatusIterator()) {
    const VlanRow row = vlanRow(domain.af, *config, *vti, sbdVrfs, vlan);
    if (!usable(*vti, row.defaultGroup())) continue;
    vlans[vlan.value()] = row;
    for (const auto& group : row.groups(domain.af))
      add(vlan.value(), group, type);
  }
  // What only routes want always has a tree of its own source.
  for (const auto& [vlan, group] : wantedIngress(domain).groups)
    if (vlans.contains(vlan)) add(vlan, group, Routing::Multicast::TunnelType::PimSsm);
  return rows;
}

Rows publishedRows(const Domain& domain) {
  using Status = Routing::Multicast::IpTunnelForwardingStatus;
  Rows rows;
  const auto path = domain.domain == Irb::Multicast::Domain::localDomain
                        ? Status::mountPath(domain.af)
                        : Status::remoteDomainMountPath(domain.af);
  const auto status = sharedTable<Status>(path);
  for (const auto& [vlan, entry] : status->vlanStatusIterator())
    for (const auto& [overlay, mapping] : entry->overlayToUnderlayIterator())
      rows[Vesk::textOf(vlan) + "," + Vesk::textOf(overlay)] = Vesk::textOf(mapping.underlayRoute);
  return rows;
}

}  // namespace History
