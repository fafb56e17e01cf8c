#include "platform/SbdToVlanSm.h"

namespace Irb::Multicast {

using Bridging::VlanId;

SbdToVlanSm::SbdToVlanSm(Inputs inputs) : in(std::move(inputs)) {
  for (const auto& [sbd, state] : in.sbdToVlanStatus->sbdStatusIterator())
    for (const VlanId& vlan : state->vlanIdIterator())
      if (presentSbd(vlan) == sbd) sbdOf_.insert(vlan, sbd);
  review();
  sweep();
}

void SbdToVlanSm::sweep() {
  for (const auto& [sbd, state] : in.sbdToVlanStatus->sbdStatusIterator()) {
    for (const VlanId& vlan : state->vlanIdIterator())
      if (presentSbd(vlan) != sbd) state->vlanIdDel(vlan);
    if (state->vlanIdCount() == 0) in.sbdToVlanStatus->sbdStatusDel(sbd);
  }
}

void SbdToVlanSm::review() {
  for (auto c = sbdOf_.begin(); !c.atEnd(); c.advance())
    handleVlanToSbd(c.key());
  for (const auto& [vlan, row] : in.mcastIrbStatus->vlanToSbdIterator())
    handleVlanToSbd(vlan);
}

std::optional<VlanId> SbdToVlanSm::presentSbd(VlanId vlan) const {
  const VlanToSbd row = in.mcastIrbStatus->vlanToSbd(vlan);
  return row == VlanToSbd{} ? std::nullopt : std::optional(row.sbdVlan);
}

void SbdToVlanSm::handleVlanToSbd(VlanId vlan) {
  const auto present = presentSbd(vlan);
  if (VlanId* const entered = sbdOf_.find(vlan)) {
    const VlanId last = *entered;
    if (last == present) return;
    sbdOf_.erase(vlan);
    const auto state = in.sbdToVlanStatus->sbdStatus(last);
    state->vlanIdDel(vlan);
    if (state->vlanIdCount() == 0) in.sbdToVlanStatus->sbdStatusDel(last);
  }
  if (!present) return;
  sbdOf_.insert(vlan, *present);
  in.sbdToVlanStatus->sbdStatusIs(*present)->vlanIdIs(vlan);
}

}  // namespace Irb::Multicast

VESK_REGISTER(Irb::Multicast::SbdToVlanSm)
