#include "egress/VrfLeakConfigChangeSm.h"

namespace Irb::Multicast::Egress {

VrfLeakConfigChangeSm::VrfLeakConfigChangeSm(Inputs inputs) : in(std::move(inputs)) {
  assertReduced(*in.tunnelVlanGroupStatus);
  vrfs_.begin();
}

void VrfLeakConfigChangeSm::handleVrfLeakVersion(const L3::VrfName& vrfName) {
  const std::uint16_t sbdVlan = in.mcastVrfLeakCtx->vxlanEnabledStatus()->vrfToSBDVlan(vrfName);
  if (sbdVlan == 0) return;
  const Bridging::VlanId vlan(sbdVlan);
  in.reviewHelper->reviewVlan(vlan);
  // A member counts for the SBD vlan, and for itself if it is the SBD vlan of others.
  const auto sbd = in.sbdToVlanStatus->sbdStatus(vlan);
  if (!sbd) return;
  for (const Bridging::VlanId member : sbd->vlanIdIterator())
    in.reviewHelper->reviewVlan(member);
}

}  // namespace Irb::Multicast::Egress

VESK_REGISTER(Irb::Multicast::Egress::VrfLeakConfigChangeSm)
VESK_REGISTER(Irb::Multicast::Egress::VrfLeakConfigChangeSm::NestedSm_VrfLeakStatus)
