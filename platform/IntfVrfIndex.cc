#include "platform/IntfVrfIndex.h"

namespace Routing::Multicast {

IntfVrfIndex::IntfVrfIndex(Inputs inputs) : in(std::move(inputs)) {
  vrfs_.beginWithHandler();
}

void IntfVrfIndex::handleVrf(L3::VrfName vrfName) {
  if (const auto row = in.mcastIntfRoot->vrfSm(vrfName)) updateHolderOfAll(*row);
}

void IntfVrfIndex::updateHolderOfAll(const MulticastIntfsAppRootSm& intfsOfVrf) {
  for (const auto& [intf, enabled] : intfsOfVrf.multicastIntfIterator())
    updateHolder(intf, intfsOfVrf.vrfName());
}

void IntfVrfIndex::updateHolder(Pavlin::IntfId intf, L3::VrfName vrfName) {
  const auto row = in.mcastIntfRoot->vrfSm(vrfName);
  const bool holds = row && row->multicastIntfHas(intf);
  if (holds == holders_.has(intf, vrfName)) return;
  if (holds) {
    holders_.add(intf, vrfName);
  } else {
    holders_.remove(intf, vrfName);
  }
  if (const auto first = holders_.first(intf)) {
    firstVrfIs(intf, *first);
  } else {
    firstVrfDel(intf);
  }
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::IntfVrfIndex)
VESK_REGISTER(Routing::Multicast::IntfVrfIndex::NestedSm_Vrf)
