#include "platform/SbdToVlanSm.h"

namespace Irb::Multicast {

using Bridging::VlanId;

SbdToVlanSm::SbdToVlanSm(Inputs inputs) : in(std::move(inputs)) {
  for (const auto& [sbd, state] : in.sbdToVlanStatus->sbdStatusIterator())
    for (const VlanId& vlan : state->vlanIdIterator())
      if (in.mcastIrbStatus->sbdOf(vlan) == sbd) sbdOf_.insert(vlan, sbd);
  review();
  sweep();
}

void SbdToVlanSm::sweep() {
  for (const auto& [sbd, state] : in.sbdToVlanStatus->sbdStatusIterator()) {
    for (const VlanId& vlan : state->vlanIdIterator())
      if (in.mcastIrbStatus->sbdOf(vlan) != sbd) state->vlanIdDel(vlan);
    if (state->vlanIdCount() == 0) in.sbdToVlanStatus->sbdStatusDel(sbd);
  }
}

void SbdToVlanSm::review() {
  for (const VlanId& vlan : sbdOf_.keys())
    handleVlanToSbd(vlan);
  for (const VlanId& vlan : in.mcastIrbStatus->vlanToSbdKeys())
    handleVlanToSbd(vlan);
}

void SbdToVlanSm::handleVlanToSbd(VlanId vlan) {
  const auto present = in.mcastIrbStatus->sbdOf(vlan);
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
