#include "egress/VlanGroupIndex.h"

namespace Irb::Multicast::Egress {

VlanGroupIndex::VlanGroupIndex(Inputs inputs) : in(std::move(inputs)) {
  for (const auto& entry : in.tunnelVlanGroupStatus->vlanToMulticastGroupIterator())
    handleVlanToMulticastGroup(entry.key);
}

void VlanGroupIndex::handleVlanToMulticastGroup(OverlayVlanGroup vlanGroup) {
  if (in.tunnelVlanGroupStatus->vlanToMulticastGroupHas(vlanGroup)) {
    groups_.add(vlanGroup.vlan, vlanGroup.group);
  } else {
    groups_.remove(vlanGroup.vlan, vlanGroup.group);
  }
}

}  // namespace Irb::Multicast::Egress

VESK_REGISTER(Irb::Multicast::Egress::VlanGroupIndex)
