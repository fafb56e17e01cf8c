#include "tests/history/RouteOracle.h"

#include <algorithm>
#include <map>

#include "agent/CorvaneAgent.h"
#include "platform/Toggles.h"
#include "records/BriskelInputs.h"
#include "records/Evpn.h"
#include "records/Fib.h"
#include "records/ProactiveArp.h"
#include "records/Vxlan.h"
#include "tests/history/Inputs.h"

namespace History {
namespace {

using Bridging::VlanId;
using Pavlin::IpGenAddr;
using FibStatus = Routing::Multicast::Fib::Hardware::Status;
using FibRoute = Routing::Multicast::Fib::Hardware::RouteStatus;

Ombra::Ptr<Vxlan::VtiStatus> vxlan1() {
  return input<Vxlan::VtiStatusDir>()->vtiStatus(Pavlin::vxlan1IntfId());
}

/// Inputs that are looked at for each route, in a form that is quick to look at.
struct Tables {
  Ombra::Ptr<Vxlan::VtiStatus> vti = vxlan1();
  Ombra::Ptr<Irb::Multicast::GatewayEsStatus> gateway =
      sharedInput<Irb::Multicast::GatewayEsStatus>();
  Ombra::Ptr<Briskel::Bridging::Status> learnt = sharedInput<Briskel::Bridging::Status>();
  Ombra::Ptr<Routing::Multicast::PegDrStatus> roles = sharedInput<Routing::Multicast::PegDrStatus>(
      Routing::Multicast::PegDrStatus::mountPath(Pavlin::ipv4()));
  std::map<L3::VrfName, std::uint32_t> vrfIds;  ///< of several numbers the smallest
  std::map<std::pair<std::uint32_t, IpGenAddr>, Arp::Table::ArpEntry>
      neighbours;  ///< the first of each address

  Tables() {
    for (const auto& [id, entry] : sharedInput<Vrf::VrfIdMap::Status>()->vrfIdToNameIterator()) {
      const auto [at, isNew] = vrfIds.emplace(entry.vrfName, id.value());
      if (!isNew) at->second = std::min<std::uint32_t>(at->second, id.value());
    }
    for (const auto& [key, entry] : sharedInput<Arp::Table::Status>()->arpEntryIterator()) {
      const auto [at, isNew] = neighbours.emplace(std::pair{key.vrfId.value(), key.addr}, entry);
      if (!isNew && key < at->second.key) at->second = entry;
    }
  }
};

/// The interface of a vlan that cannot exist is neither a vlan nor a routed port.
bool leadsNowhere(const Pavlin::IntfId& intf) {
  return intf.isOfClass("Vlan") && (intf.number() == 0 || intf.number() == 4095);
}

/// 0 for a routed port, which may be named as an internal vlan.
unsigned vlanOf(const Pavlin::IntfId& intf) {
  return intf.isOfClass("Vlan") && intf.number() >= 1 && intf.number() <= 4094
             ? static_cast<unsigned>(intf.number())
             : 0;
}

bool isLocal(const Tables& in, const L3::VrfName& vrf, unsigned vlan, const IpGenAddr& source) {
  const auto id = in.vrfIds.find(vrf);
  if (id == in.vrfIds.end()) return false;
  const auto neighbour = in.neighbours.find({id->second, source});
  if (neighbour == in.neighbours.end()) return false;
  const Briskel::Bridging::FdbKey key{VlanId(vlan), neighbour->second.ethAddr};
  return in.learnt->fdbEntryHas(key) && !in.learnt->fdbEntry(key).intfId.isOfClass("Vxlan");
}

void judge(const Tables& in, const L3::VrfName& vrf, bool transit, const FibRoute& route,
           double now, IngressRoutes& wanted) {
  const IpGenAddr source = route.key().source.ipGenAddr();
  const IpGenAddr group = route.key().group.ipGenAddr();
  if (route.iif().empty() || leadsNowhere(route.iif()) || route.key().group.length() != 32) return;
  const bool up = in.vti->operStatus() == Vxlan::IntfOperStatus::up;
  const unsigned vlan = vlanOf(route.iif());
  const unsigned sbd = in.vti->vrfToSBDVlan(vrf).value();
  const bool starGroup = source.isUnspecified();
  const bool extended = vlan != 0 && in.vti->vlanToVniMapHas(VlanId(vlan));
  const bool gateway = vlan != 0 && Multicast::Vpn::toggleOismGatewayEnabled() &&
                       in.gateway->esVlanStatusHas(VlanId(vlan));
  const bool heard =
      route.lastActivityTime() != 0 && now - route.lastActivityTime() <= activeSeconds;
  const bool flows = up && heard && (vlan == 0 || vlan != sbd);
  if (flows && extended && !gateway && !starGroup)
    wanted.requests.insert(Vesk::textOf(Arp::ProactiveArp::Entry{source, route.iif()}));

  if (!flows && !gateway) return;
  const auto sbdRole = [&] {
    return in.roles->pegDrVlan(VlanId(sbd)).pegDrRole == Routing::Multicast::PegDrRole::dr;
  };
  const bool enters = extended ? starGroup || gateway || isLocal(in, vrf, vlan, source)
                               : transit || (sbd != 0 && sbdRole());
  if (!enters) return;
  wanted.routes.insert(
      std::string(vrf.str()) + " " +
      Vesk::textOf(Routing::Multicast::OverlayRouteKey{source, group, route.iif()}));
  if (const unsigned carrier = extended ? vlan : sbd; up && carrier != 0)
    wanted.groups.emplace(carrier, group);
}

bool hasPool(const Routing::Multicast::IpTunnelGroupIntfConfig& config, const L3::VrfName& vrf) {
  const auto row = config.vrfToMulticastGroup(vrf);
  const auto entry = row ? row->tunnelConfigEntry() : nullptr;
  return entry && !entry->underlayGroupRange().isEmpty();
}

}  // namespace

bool routesRun(const Domain& domain) {
  const auto config = groupConfig(domain.domain)->intfConfig(Pavlin::vxlan1IntfId());
  if (domain.af != Pavlin::ipv4() || !config || !config->mcastOverlayV4() || !vxlan1())
    return false;
  for (const auto& [vrf, row] : config->vrfToMulticastGroupIterator())
    if (hasPool(*config, vrf)) return true;
  return false;
}

IngressRoutes wantedIngress(const Domain& domain) {
  IngressRoutes wanted;
  if (!routesRun(domain)) return wanted;
  const Tables tables;
  const auto config = groupConfig(domain.domain)->intfConfig(Pavlin::vxlan1IntfId());
  const auto evpn = input<Routing::Multicast::Evpn::Config>(domain.af);
  const double now = Vesk::System::currentTime();
  for (const auto& [vrf, status] : input<FibStatus>(domain.af)->vrfStatusIterator()) {
    if (!hasPool(*config, vrf)) continue;
    const bool transit = evpn->transitVrfHas(vrf);
    for (const auto& [key, route] : status->routeIterator())
      judge(tables, vrf, transit, *route, now, wanted);
  }
  return wanted;
}

IngressRoutes heldIngress(const Multicast::Vpn::Agent& agent, const Domain& domain) {
  IngressRoutes held;
  const auto container = agent.afContainer(domain.af)->domainContainer(domain.domain);
  for (const auto& [vrf, status] : container->ingressL3RouteStatus()->vrfStatusIterator())
    for (const auto& route : status->routeIterator())
      held.routes.insert(std::string(vrf.str()) + " " + Vesk::textOf(route));
  const auto table =
      container->vlanGroupTableColl()->table(Multicast::Vpn::VlanGroupTableColl::getL3TableName());
  for (const auto& [vlan, row] : table->vlanIterator())
    for (const auto& group : row->groupIterator())
      held.groups.emplace(vlan.value(), group);
  for (const auto& [entry, request] :
       sharedInput<Arp::ProactiveArp::ClientConfig>()->requestIterator())
    held.requests.insert(Vesk::textOf(entry));
  return held;
}

bool activityIsDefinite() {
  const double now = Vesk::System::currentTime();
  for (const auto& [vrf, status] : input<FibStatus>(Pavlin::ipv4())->vrfStatusIterator())
    for (const auto& [key, route] : status->routeIterator()) {
      const double quiet = now - route->lastActivityTime();
      if (route->lastActivityTime() != 0 && quiet > activeSeconds &&
          quiet <= activeSeconds + reviewSeconds)
        return false;
    }
  return true;
}

}  // namespace History
