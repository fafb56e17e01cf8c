#include "overlay/OverlayVlanGroupDedup.h"

namespace Multicast::Vpn {

void OverlayVlanGroupLifetimeNotifiee::handleInsert(const VlanGroupDeduped& handle) {
  in.vlanGroupTable->vlanIs(handle.value().vlan)->groupIs(handle.value().group.genAddr());
}

void OverlayVlanGroupLifetimeNotifiee::handleRemove(const VlanGroupDeduped& handle) {
  const auto table = in.vlanGroupTable->vlan(handle.value().vlan);
  if (!table) return;
  table->groupDel(handle.value().group.genAddr());
  if (table->groupCount() == 0) in.vlanGroupTable->vlanDel(handle.value().vlan);
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::OverlayVlanGroupLifetimeNotifiee)
VESK_REGISTER(Multicast::Vpn::VlanGroupDedupTable)
