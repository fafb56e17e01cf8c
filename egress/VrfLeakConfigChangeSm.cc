#include "egress/VrfLeakConfigChangeSm.h"

namespace Irb::Multicast::Egress {

VrfLeakConfigChangeSm::VrfLeakConfigChangeSm(Inputs inputs) : in(std::move(inputs)) {
  assertReduced(*in.tunnelVlanGroupStatus);
  vrfs_.begin();
}

void VrfLeakConfigChangeSm::handleVrfLeakVersion(const L3::VrfName& vrfName) {
  const std::uint16_t sbdVlan = in.mcastVrfLeakCtx->vxlanEnabledStatus()->vrfToSBDVlan(vrfName);
  if (sbdVlan == 0) return;
  in.reviewHelper->reviewVlan(Bridging::VlanId(sbdVlan));
}

}  // namespace Irb::Multicast::Egress

VESK_REGISTER(Irb::Multicast::Egress::VrfLeakConfigChangeSm)
VESK_REGISTER(Irb::Multicast::Egress::VrfLeakConfigChangeSm::NestedSm_VrfLeakStatus)
