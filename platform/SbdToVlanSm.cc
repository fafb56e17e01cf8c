#include "platform/SbdToVlanSm.h"

namespace Irb::Multicast {

using Bridging::VlanId;

SbdToVlanSm::SbdToVlanSm(Inputs inputs) : in(std::move(inputs)) {
  for (const auto& [sbd, state] : in.sbdToVlanStatus->sbdStatusIterator())
    for (const VlanId& vlan : state->vlanIdIterator())
      sbdOf_.insert(vlan, sbd);
  review();
}

void SbdToVlanSm::review() {
  for (auto c = sbdOf_.begin(); !c.atEnd(); c.advance())
    handleVlanToSbd(c.key());
  for (const auto& [vlan, row] : in.mcastIrbStatus->vlanToSbdIterator())
    handleVlanToSbd(vlan);
}

void SbdToVlanSm::handleVlanToSbd(VlanId vlan) {
  const VlanToSbd row = in.mcastIrbStatus->vlanToSbd(vlan);
  const bool hasSbd = row != VlanToSbd{};
  if (VlanId* const entered = sbdOf_.find(vlan)) {
    const VlanId last = *entered;
    if (hasSbd && last == row.sbdVlan) return;
    sbdOf_.erase(vlan);
    const auto state = in.sbdToVlanStatus->sbdStatus(last);
    state->vlanIdDel(vlan);
    if (state->vlanIdCount() == 0) in.sbdToVlanStatus->sbdStatusDel(last);
  }
  if (!hasSbd) return;
  sbdOf_.insert(vlan, row.sbdVlan);
  in.sbdToVlanStatus->sbdStatusIs(row.sbdVlan)->vlanIdIs(vlan);
}

}  // namespace Irb::Multicast

VESK_REGISTER(Irb::Multicast::SbdToVlanSm)
