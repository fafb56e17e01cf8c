// The vlan of a vlan interface.
// Owns nothing. Reads: the interface's name.
// Caveat: numbers that no frame can carry (0, 4095, internal vlans) are no vlan; their interfaces
// count as routed ports.
#pragma once

#include "runtime/values/IntfId.h"

namespace Multicast::Vpn {

/// None if this is not the interface of a vlan.
[[nodiscard]] inline Bridging::VlanIdOrNone vlanOfIntf(Pavlin::IntfId intf) {
  if (!Pavlin::VlanIntfId::isVlanIntfId(intf)) return {};
  const std::uint32_t vlan = Pavlin::VlanIntfId::vlanId(intf).value();
  return vlan > Bridging::VlanId::max() ? Bridging::VlanIdOrNone() : Bridging::VlanIdOrNone(vlan);
}

}  // namespace Multicast::Vpn
