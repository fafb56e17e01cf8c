#include "config/IntfVrfIndex.h"

#include <algorithm>

namespace Routing::Multicast {

IntfVrfIndex::IntfVrfIndex(Inputs inputs) : in(std::move(inputs)) {
  if (!in.mcastIntfRoot) return;
  for (const auto& [vrfName, row] : in.mcastIntfRoot->vrfSmIterator())
    handleVrf(vrfName);
}

void IntfVrfIndex::handleVrf(L3::VrfName vrfName) {
  const Ombra::Ptr<MulticastIntfsAppRootSm const> row = in.mcastIntfRoot->vrfSm(vrfName);
  const auto nested = vrf(vrfName);
  const auto old = nested ? nested->in.row : nullptr;
  if (row == old) return;
  if (row)
    vrfAdopt(vrfName, Ombra::make<NestedSm_Vrf>(
                          NestedSm_Vrf::Inputs{.parent = this, .vrfName = vrfName, .row = row}));
  for (const auto& side : {old, row}) {
    if (!side) continue;
    for (const auto& [intf, enabled] : side->multicastIntfIterator())
      updateHolder(intf, vrfName);
  }
  if (!row) vrfDel(vrfName);
}

void IntfVrfIndex::updateHolder(Pavlin::IntfId intf, L3::VrfName vrfName) {
  using Order = MulticastIntfsAppRootSmColl::vrfSmTag::Attr::Map;
  const auto row = in.mcastIntfRoot->vrfSm(vrfName);
  const bool holds = row && row->multicastIntfHas(intf);

  auto* holders = holders_.find(intf);
  if (holders == nullptr) {
    if (!holds) return;
    holders_.insert(intf, {vrfName});
    firstVrfIs(intf, vrfName);
    return;
  }
  const auto at = std::lower_bound(holders->begin(), holders->end(), vrfName, Order::before);
  const bool held = at != holders->end() && *at == vrfName;
  if (holds == held) return;
  if (holds) {
    holders->insert(at, vrfName);
  } else {
    holders->erase(at);
  }
  if (holders->empty()) {
    holders_.erase(intf);
    firstVrfDel(intf);
  } else {
    firstVrfIs(intf, holders->front());
  }
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::IntfVrfIndex)
VESK_REGISTER(Routing::Multicast::IntfVrfIndex::NestedSm_Vrf)
