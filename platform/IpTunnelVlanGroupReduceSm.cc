#include "platform/IpTunnelVlanGroupReduceSm.h"

namespace Routing::Multicast {

using Bridging::VlanId;

IpTunnelVlanGroupReduceSm::IpTunnelVlanGroupReduceSm(Inputs inputs) : in(std::move(inputs)) {
  filters_.begin();
  sources_.beginWithHandler();
  sweep();
}

void IpTunnelVlanGroupReduceSm::targetIs(VlanId vlan, VlanId target) {
  if (VlanId* const entered = targetOf_.find(vlan)) {
    sourcesOf_.remove(*entered, vlan);
    *entered = target;
  } else {
    targetOf_.insert(vlan, target);
  }
  sourcesOf_.add(target, vlan);
}

bool IpTunnelVlanGroupReduceSm::takesPart(const UnderlayRoute& route, VlanId vlan) const {
  return in.filterSet->filterUnderlayRoute({.route = route, .vlanId = vlan});
}

// --- what the source entries offer

void IpTunnelVlanGroupReduceSm::handleSource(OverlayVlanGroup key) {
  const auto source = in.source->vlanToMulticastGroup(key);
  if (!source) return;
  if (!targetOf_.has(key.vlan)) targetIs(key.vlan, in.mcastIrbStatus->targetOf(key.vlan));
  groupsOf_.add(key.vlan, key.group);
  add(*source, *targetOf_.find(key.vlan));
}

void IpTunnelVlanGroupReduceSm::sourceGone(const VlanToMulticastGroup& source) {
  const OverlayVlanGroup key = source.overlayVlanGroup();
  const VlanId target = *targetOf_.find(key.vlan);
  groupsOf_.remove(key.vlan, key.group);
  remove(source, target);
  if (groupsOf_.first(key.vlan)) return;
  sourcesOf_.remove(target, key.vlan);
  targetOf_.erase(key.vlan);
}

void IpTunnelVlanGroupReduceSm::routeChanged(const VlanToMulticastGroup& source,
                                             const UnderlayRoute& route) {
  const auto& [vlan, group] = source.overlayVlanGroup();
  const VlanId* const target = targetOf_.find(vlan);
  if (target == nullptr) return;  // the entry is on its way out
  const OverlayVlanGroup key{*target, group};
  const auto reduced = in.reduced->vlanToMulticastGroup(key);
  if (!reduced) return;
  if (source.multicastGroupHas(route)) {
    if (takesPart(route, vlan)) reduced->multicastGroupIs(route);
  } else if (reduced->multicastGroupHas(route) && !isOffered(key, route, vlan)) {
    reduced->multicastGroupDel(route);
  }
}

void IpTunnelVlanGroupReduceSm::add(const VlanToMulticastGroup& source, VlanId target) {
  const auto& [vlan, group] = source.overlayVlanGroup();
  const auto reduced = in.reduced->vlanToMulticastGroupIs({target, group});
  for (const UnderlayRoute& route : source.multicastGroupIterator())
    if (takesPart(route, vlan)) reduced->multicastGroupIs(route);
}

void IpTunnelVlanGroupReduceSm::remove(const VlanToMulticastGroup& source, VlanId target) {
  const auto& [vlan, group] = source.overlayVlanGroup();
  const OverlayVlanGroup key{target, group};
  const auto reduced = in.reduced->vlanToMulticastGroup(key);
  if (!reduced) return;
  if (!hasSource(key, vlan)) return in.reduced->vlanToMulticastGroupDel(key);
  for (const UnderlayRoute& route : source.multicastGroupIterator())
    if (reduced->multicastGroupHas(route) && !isOffered(key, route, vlan))
      reduced->multicastGroupDel(route);
}

bool IpTunnelVlanGroupReduceSm::isOffered(const OverlayVlanGroup& target,
                                          const UnderlayRoute& route, Besides besides) const {
  return sourcesOf_.any(target.vlan, [&](VlanId vlan) {
    if (vlan == besides) return false;
    const auto source = in.source->vlanToMulticastGroup({vlan, target.group});
    return source && source->multicastGroupHas(route) && takesPart(route, vlan);
  });
}

bool IpTunnelVlanGroupReduceSm::hasSource(const OverlayVlanGroup& target, Besides besides) const {
  return sourcesOf_.any(target.vlan, [&](VlanId vlan) {
    return vlan != besides && in.source->vlanToMulticastGroupHas({vlan, target.group});
  });
}

std::vector<IpTunnelVlanGroupReduceSm::Offer> IpTunnelVlanGroupReduceSm::offersTo(
    const OverlayVlanGroup& target) const {
  std::vector<Offer> offers;
  for (const VlanId& vlan : sourcesOf_.of(target.vlan)) {
    const auto source = in.source->vlanToMulticastGroup({vlan, target.group});
    if (!source) continue;
    for (const UnderlayRoute& route : source->multicastGroupIterator())
      offers.push_back({vlan, route, takesPart(route, vlan)});
  }
  return offers;
}

// --- what moves all of them

void IpTunnelVlanGroupReduceSm::handleVlanToSbd(VlanId vlan) {
  const VlanId* const entered = targetOf_.find(vlan);
  const VlanId target = in.mcastIrbStatus->targetOf(vlan);
  if (entered == nullptr || *entered == target) return;
  const VlanId last = *entered;
  targetIs(vlan, target);
  std::vector<Ombra::Ptr<VlanToMulticastGroup const>> entries;
  for (const OverlayAddr& group : groupsOf_.of(vlan))
    if (const auto source = in.source->vlanToMulticastGroup({vlan, group}))
      entries.push_back(source);
  for (const auto& source : entries)
    add(*source, target);
  for (const auto& source : entries)
    remove(*source, last);
}

void IpTunnelVlanGroupReduceSm::filterAll() {
  bool refused = false;
  for (const auto& [key, source] : in.source->vlanToMulticastGroupIterator()) {
    const VlanId* const target = targetOf_.find(key.vlan);
    const auto reduced =
        target == nullptr ? nullptr : in.reduced->vlanToMulticastGroup({*target, key.group});
    if (!reduced) continue;
    for (const UnderlayRoute& route : source->multicastGroupIterator()) {
      if (takesPart(route, key.vlan)) {
        reduced->multicastGroupIs(route);
      } else {
        refused = refused || reduced->multicastGroupHas(route);
      }
    }
  }
  // Asks once for each route that stands, not once for each of the vlans that it is refused for.
  if (refused) sweep();
}

void IpTunnelVlanGroupReduceSm::sweep() {
  for (const auto& [target, reduced] : in.reduced->vlanToMulticastGroupIterator()) {
    if (!hasSource(target)) {
      in.reduced->vlanToMulticastGroupDel(target);
      continue;
    }
    for (const UnderlayRoute& route : reduced->multicastGroupIterator())
      if (!isOffered(target, route)) reduced->multicastGroupDel(route);
  }
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::IpTunnelVlanGroupReduceSm)
VESK_REGISTER(Routing::Multicast::IpTunnelVlanGroupReduceSm::SourceSm)
VESK_REGISTER(Routing::Multicast::IpTunnelVlanGroupReduceSm::FilterSm)
