#include "tests/history/DecapOracle.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <vector>

#include "platform/Toggles.h"
#include "records/BriskelInputs.h"
#include "records/GmpProxyStatus.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/McastIrbStatus.h"
#include "records/MembershipJoin.h"
#include "records/Mlag.h"
#include "records/Policy.h"
#include "records/UnderlayGmp.h"
#include "records/VrfLeak.h"
#include "records/Vxlan.h"
#include "tests/history/Inputs.h"

namespace History {
namespace {

using Bridging::VlanId;
using Irb::Multicast::GmpProxyStatus;
using Irb::Multicast::McastIrbStatus;
using L3::VrfName;
using Pavlin::AddressFamily;
using Pavlin::IpGenAddr;
using Routing::Multicast::UnderlayRoute;
namespace Gmp = Irb::Multicast::Gmp;
namespace App = Irb::Multicast::App;

using GmpTable = Routing::Gmp::Briskel::Status;
using VlanGroupStatus = Routing::Multicast::IpTunnelVlanGroupStatus;

Ombra::Ptr<Vxlan::VtiStatus> vxlan1() {
  return input<Vxlan::VtiStatusDir>()->vtiStatus(Pavlin::vxlan1IntfId());
}
Ombra::Ptr<Irb::Multicast::GatewayEsStatus const> gateway() {
  return sharedTable<Irb::Multicast::GatewayEsStatus>();
}
Ombra::Ptr<McastIrbStatus const> boundOf(AddressFamily af) {
  return sharedTable<McastIrbStatus>(McastIrbStatus::mountPath(af, App::Client::client3));
}
unsigned sbdOf(AddressFamily af, unsigned vlan) {
  const auto status = boundOf(af);
  return status->vlanToSbdHas(VlanId(vlan)) ? status->vlanToSbd(VlanId(vlan)).sbdVlan.value()
                                            : vlan;
}

// --- VRFs and SBD vlans

std::vector<VlanId> claimsOf(Vrf::VrfIdMap::VrfId id, const VrfName& name) {
  std::vector<VlanId> claims;
  using Mvpn = Routing::Multicast::MvpnIntfStatus;
  const auto intf = sharedTable<Mvpn>()->vrfIntfId(id).pmsiIntfId;
  if (Pavlin::VlanIntfId::isVlanIntfId(intf) && intf.number() <= VlanId::max())
    claims.push_back(Pavlin::VlanIntfId::vlanId(intf).vlanId());
  if (const auto vti = vxlan1())
    if (const auto vlan = vti->vrfToSBDVlan(name); !vlan.isNone()) claims.push_back(vlan.vlanId());
  std::sort(claims.begin(), claims.end());
  return claims;
}

struct Claim {
  Vrf::VrfIdMap::VrfId id;
  VrfName name;
  VlanId best;
};

/// The VRF numbers for which somebody claims a vlan.
std::vector<Claim> bestClaims() {
  std::vector<Claim> best;
  for (const auto& [id, entry] : sharedTable<Vrf::VrfIdMap::Status>()->vrfIdToNameIterator())
    if (const auto claims = claimsOf(id, entry.vrfName); !claims.empty())
      best.push_back({id, entry.vrfName, claims.front()});
  return best;
}

std::map<unsigned, unsigned> wantedVlanToSbd(AddressFamily af) {
  using Irb::Multicast::IgmpProxyStatus;
  std::map<unsigned, unsigned> wanted;
  const bool mpls = Multicast::Vpn::toggleOismMplsTunnelEnabled();
  const auto vti = vxlan1();
  const bool up = vti && vti->operStatus() == Vxlan::IntfOperStatus::up;
  const auto proxied = sharedTable<IgmpProxyStatus>(IgmpProxyStatus::mergedAfMountPath(af));
  for (const VlanId& vlan : proxied->igmpProxyVlanIterator()) {
    const auto vrf = routedVrf(af, vlan);
    if (!vrf) continue;
    const bool byVxlan =
        up && !(mpls && vrf->str() == "default") && !vti->vrfToSBDVlan(*vrf).isNone();
    unsigned sbd = byVxlan ? vti->vrfToSBDVlan(*vrf).value() : 0;
    if (!byVxlan && mpls && input<GmpProxyStatus>()->vrfToSbdVlanHas(*vrf))
      sbd = input<GmpProxyStatus>()->vrfToSbdVlan(*vrf).value();
    if (sbd != 0 && sbd != vlan.value()) wanted[vlan.value()] = sbd;
  }
  return wanted;
}

// --- receivers

/// Bits as the clients' numbers stand for them: 1 anywhere, 2 remote, 4 local, 8 both.
constexpr std::array<unsigned, 14> masks{1, 0, 1, 3, 1, 8, 0, 0, 8, 8, 8, 4, 4, 8};
constexpr unsigned peerMask = masks[3];

bool joins(unsigned mask, bool isLocal) {
  return (mask & (isLocal ? 1U | 4U | 8U : 1U | 2U | 8U)) != 0;
}

/// What one family's clients have joined.
class Receivers {
 public:
  explicit Receivers(AddressFamily af) : af_(af) {
    for (const auto client : Gmp::joinClients()) {
      if (Gmp::isGatewayClient(client) && !Multicast::Vpn::toggleOismGatewayEnabled()) continue;
      const auto status =
          sharedTable<Gmp::MembershipJoinStatus>(Gmp::MembershipJoinStatus::mountPath(af, client));
      const auto number = static_cast<std::size_t>(client);
      if (status->vlanCount() != 0) clients_.push_back({number == 3, masks.at(number), status});
    }
  }

  [[nodiscard]] unsigned ofGroup(unsigned vlan, const IpGenAddr& group) const {
    return of(vlan, [&](const Client& client, const Gmp::VlanMembershipJoin& joined) {
      if (client.isPeer) return peer(joined.group(group));
      const bool all =
          joined.groupHas(IpGenAddr(Pavlin::ipv4())) || joined.groupHas(IpGenAddr(Pavlin::ipv6()));
      const bool one = joined.groupHas(group) && !leaks(vlan, group);
      return all || one ? client.mask : 0;
    });
  }
  [[nodiscard]] unsigned ofAny(unsigned vlan) const {
    return of(vlan, [&](const Client& client, const Gmp::VlanMembershipJoin& joined) {
      unsigned mask = 0;
      for (const auto& [group, join] : joined.groupIterator())
        mask |= client.isPeer ? peer(join) : leaks(vlan, group) ? 0 : client.mask;
      return mask;
    });
  }

 private:
  struct Client {
    bool isPeer;
    unsigned mask;
    Ombra::Ptr<Gmp::MembershipJoinStatus const> joined;
  };

  template <class Count>
  unsigned of(unsigned vlan, Count count) const {
    unsigned mask = 0;
    for (const Client& client : clients_)
      if (const auto joined = client.joined->vlan(VlanId(vlan))) mask |= count(client, *joined);
    return mask;
  }
  static unsigned peer(const Ombra::Ptr<Gmp::GroupMembershipJoin const>& join) {
    unsigned mask = 0;
    const auto add = [&](const Pavlin::IntfId& intf) {
      mask |= Multicast::Tunnel::McastTunnelIntfId::isMcastTunnelIntfId(intf) ? 2U | 4U : 1U;
    };
    if (!join) return 0;
    for (const auto& [addr, source] : join->sourceIterator()) {
      for (const auto& intf : source->firstIntfIterator())
        add(intf);
      for (const auto& intf : source->secondIntfIterator())
        add(intf);
    }
    return mask & peerMask;
  }
  [[nodiscard]] bool leaks(unsigned vlan, const IpGenAddr& group) const {
    const unsigned sbd = sbdOf(af_, vlan);
    const auto vrf = input<Vxlan::EnabledStatus>()->sbdVlanToVrf(sbd);
    if (sbd == vlan || vrf.empty()) return false;
    const auto config = input<Routing::Multicast::VrfLeak::McastVrfLeakConfig>(af_)->vrfConfig(vrf);
    if (!config) return false;
    std::map<std::string, VrfName> lists;
    for (const auto& [name, target] : config->leakPrefixListIterator())
      lists.emplace(name, target);
    for (const auto& [name, target] : lists) {
      const auto list = input<Acl::AclListConfig>()->prefixList(name);
      if (!list) continue;
      for (const auto& prefix : list->prefixIterator())
        if (prefix.ipGenAddr().af() == af_ && prefix.contains(group)) return !target.empty();
    }
    return false;
  }

  AddressFamily af_;
  std::vector<Client> clients_;
};

// --- filters

/// Which groups of a family this switch of an MLAG pair joins.
bool mlagJoins(const IpGenAddr& group) {
  const auto mlag = input<Mlag::Status>();
  const bool primary = mlag->mlagState() == Mlag::MlagState::primary;
  if (!primary && mlag->mlagState() != Mlag::MlagState::secondary) return true;
  if (mlag->failover()) return true;
  const auto proto = input<Mlag::ProtoStatus>();
  if (proto->portsErrdisabled() && proto->mlagVersion() >= 11) return primary;
  const auto vti = vxlan1();
  if (!vti) return false;
  const auto peers = input<Mlag::VxlanStatus>();
  const auto byParity = [](const auto& local, const auto& peer, bool odd) {
    return !local.isAny() && !peer.isAny() && local != peer && odd == !(local < peer);
  };
  if (group.af() == Pavlin::ipv4())
    return byParity(vti->localVtepAddr(), peers->vtepTypeAddr(Vxlan::VtepType::vtepType1),
                    (group.v4Addr().value() & 1U) != 0);
  return byParity(vti->localVtepAddr6(), peers->vtepTypeAddr6(Vxlan::VtepType::vtepType1),
                  (static_cast<unsigned>(group.v6Addr().bytes().back()) & 1U) != 0);
}

bool gatewayLets(VlanId vlan, const UnderlayRoute& route) {
  if (!Multicast::Vpn::toggleOismGatewayEnabled()) return true;
  switch (static_cast<int>(gateway()->esVlanStatus(vlan).state)) {
    case 0:
      return true;
    case 1:
      return gateway()->underlayRouteStatus(route);
    default:
      return false;
  }
}

// --- memberships

constexpr std::uint8_t joinMode = 1;

void addRow(MembershipRows& rows, unsigned vlan, const UnderlayRoute& route) {
  const IpGenAddr& group = route.underlayGroup.genAddr();
  rows.insert({group.af(),
               {{route.underlaySource(), group, Pavlin::VlanIntfId::vlanIdToIntfId(VlanId(vlan))},
                joinMode}});
}

void addMemberships(MembershipRows& rows, AddressFamily af, bool isLocal) {
  using namespace Routing::Multicast;
  const auto status = inputAt<VlanGroupStatus>(
      VlanGroupStatus::mountPath(af, isLocal ? irbDecapStatus() : irbRemoteDomainDecapStatus()));
  const Receivers receivers(af);
  std::map<unsigned, std::vector<unsigned>> members;
  for (const auto& [vlan, row] : boundOf(af)->vlanToSbdIterator())
    members[row.sbdVlan.value()].push_back(vlan.value());

  for (const auto& [key, entry] : status->vlanToMulticastGroupIterator()) {
    const unsigned target = sbdOf(af, key.vlan.value());
    const IpGenAddr group = key.group.genAddr();
    const auto active = [&](unsigned vlan) {
      return group.isUnspecified() ? receivers.ofAny(vlan) : receivers.ofGroup(vlan, group);
    };
    unsigned mask = active(target);
    for (const unsigned member : members[target])
      mask |= active(member);
    if (!joins(mask, isLocal)) continue;
    for (const UnderlayRoute& route : entry->multicastGroupIterator())
      if (mlagJoins(route.underlayGroup.genAddr()) && gatewayLets(key.vlan, route))
        addRow(rows, target, route);
  }
  for (const auto& [vlan, flood] : status->vlanToFloodGroupIterator())
    for (const UnderlayRoute& route : flood->floodGroupIterator())
      if (mlagJoins(route.underlayGroup.genAddr())) addRow(rows, vlan.value(), route);
}

Ombra::Ptr<GmpTable const> tableOf(AddressFamily af) {
  return sharedTable<GmpTable>(
      GmpTable::appMountPath(af, Routing::Gmp::Briskel::App::corvane, "default"));
}

}  // namespace

bool claimsClash() {
  std::set<VlanId> vlans;
  std::set<VrfName> names;
  for (const auto& [id, entry] : sharedTable<Vrf::VrfIdMap::Status>()->vrfIdToNameIterator()) {
    const auto claims = claimsOf(id, entry.vrfName);
    if (!claims.empty() && !names.insert(entry.vrfName).second) return true;
    for (const VlanId& vlan : std::set(claims.begin(), claims.end()))
      if (!vlans.insert(vlan).second) return true;
  }
  return false;
}

std::string proxyDifference(bool isDefinite) {
  if (!Multicast::Vpn::toggleOismGatewayEnabled() && !Multicast::Vpn::toggleOismMplsTunnelEnabled())
    return {};  // nobody writes them
  const auto published = input<GmpProxyStatus>();
  const auto claims = bestClaims();
  std::map<VrfName, VlanId> best;
  for (const auto& [id, name, vlan] : claims) {
    best.emplace(name, vlan);
    if (!published->vrfIdToSbdVlanHas(id) || published->vrfIdToSbdVlan(id) != vlan)
      return "vrfIdToSbdVlan of " + Vesk::textOf(id);
    if (!isDefinite) continue;
    // Rows by vlan may also be those of a vlan that was the best of its VRF once.
    if (!published->sbdVlanToVrfIdHas(vlan) || published->sbdVlanToVrfId(vlan) != id)
      return "sbdVlanToVrfId of " + Vesk::textOf(vlan);
    if (published->sbdVlanToVrf(vlan) != name) return "sbdVlanToVrf of " + Vesk::textOf(vlan);
    if (!published->vrfToSbdVlanHas(name)) return "no vrfToSbdVlan of " + std::string(name.str());
  }
  if (published->vrfIdToSbdVlanCount() != claims.size())
    return "vrfIdToSbdVlan has an unwanted row";
  for (const auto& [vrf, vlan] : published->vrfToSbdVlanIterator())
    if (const auto at = best.find(vrf); at == best.end() || (isDefinite && at->second != vlan))
      return "vrfToSbdVlan of " + std::string(vrf.str());
  return {};
}

std::string sbdDifference() {
  for (const auto af : Pavlin::families) {
    std::map<unsigned, unsigned> published;
    for (const auto& [vlan, row] : boundOf(af)->vlanToSbdIterator())
      published[vlan.value()] = row.sbdVlan.value();
    const auto wanted = wantedVlanToSbd(af);
    if (published == wanted) continue;
    std::string text = "vlanToSbd of " + Vesk::textOf(af) + ":";
    for (const auto& [vlan, sbd] : published)
      text += " " + std::to_string(vlan) + "=" + std::to_string(sbd);
    text += ", wanted:";
    for (const auto& [vlan, sbd] : wanted)
      text += " " + std::to_string(vlan) + "=" + std::to_string(sbd);
    return text;
  }
  return {};
}

MembershipRows wantedMemberships() {
  MembershipRows rows;
  const bool isGateway =
      Multicast::Vpn::toggleOismGatewayEnabled() && gateway()->esVlanStatusCount() != 0;
  for (const auto af : Pavlin::families) {
    addMemberships(rows, af, true);
    if (isGateway) addMemberships(rows, af, false);
  }
  return rows;
}

MembershipRows publishedMemberships() {
  MembershipRows rows;
  for (const auto af : Pavlin::families)
    for (const auto& [key, row] : tableOf(af)->membershipIterator())
      rows.insert({af, row});
  return rows;
}

bool isCleared() {
  for (const auto af : Pavlin::families)
    if (tableOf(af)->membershipCount() != 0 || boundOf(af)->vlanToSbdCount() != 0) return false;
  return true;
}

}  // namespace History
