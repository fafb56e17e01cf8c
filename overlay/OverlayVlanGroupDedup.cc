#include "overlay/OverlayVlanGroupDedup.h"

#include "runtime/Trace.h"

namespace Multicast::Vpn {
namespace {

const Vesk::TraceHandle traceHandle{"L3OverlayGroupSm"};

}  // namespace

void OverlayVlanGroupLifetimeNotifiee::handleInsert(const VlanGroupDeduped& handle) {
  const auto& [vlan, group] = handle.value();
  if (auto t = traceHandle.at(7))
    t << "Add group " << group << " to vlan group table for vlan " << vlan;
  in.vlanGroupTable->vlanIs(vlan)->groupIs(group.genAddr());
}

void OverlayVlanGroupLifetimeNotifiee::handleRemove(const VlanGroupDeduped& handle) {
  const auto& [vlan, group] = handle.value();
  const auto table = in.vlanGroupTable->vlan(vlan);
  if (!table) {
    if (auto t = traceHandle.at(7))
      t << " No group table for Vlan: " << vlan << " Nothing to delete";
    return;
  }
  if (auto t = traceHandle.at(7))
    t << "Delete group " << group << " from vlan group table for vlan " << vlan;
  table->groupDel(group.genAddr());
  if (table->groupCount() != 0) return;
  if (auto t = traceHandle.at(7)) t << "Delete Vlan: " << vlan << " No more groups";
  in.vlanGroupTable->vlanDel(vlan);
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::OverlayVlanGroupLifetimeNotifiee)
VESK_REGISTER(Multicast::Vpn::VlanGroupDedupTable)
