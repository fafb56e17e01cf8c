#include "egress/SbdVlanChangeSm.h"

namespace Irb::Multicast::Egress {

void SbdVlanChangeSm::NestedSm_SbdState::review() {
  in.parent->in.reviewHelper->reviewVlan(in.row->sbdVlan());
}

/// The member too: which groups leak from it hangs on its SBD vlan, and it may be the SBD vlan of
/// others.
void SbdVlanChangeSm::NestedSm_SbdState::handleSbdStatus(Bridging::VlanId member) {
  review();
  in.parent->in.reviewHelper->reviewVlan(member);
}

}  // namespace Irb::Multicast::Egress

VESK_REGISTER(Irb::Multicast::Egress::SbdVlanChangeSm)
VESK_REGISTER(Irb::Multicast::Egress::SbdVlanChangeSm::NestedSm_SbdState)
