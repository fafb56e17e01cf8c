// The vlan of a vlan interface.
// Owns nothing. Reads: the interface's name.
// Caveat: internal vlans are no vlans here, and their interfaces count as routed ports. Vlan0 and
// Vlan4095 are neither the one nor the other.
#pragma once

#include "runtime/values/IntfId.h"

namespace Multicast::Vpn {

/// None if this is not the interface of a vlan.
[[nodiscard]] inline Bridging::VlanIdOrNone vlanOfIntf(Pavlin::IntfId intf) {
  if (!Pavlin::VlanIntfId::isVlanIntfId(intf)) return {};
  const std::uint32_t vlan = Pavlin::VlanIntfId::vlanId(intf).value();
  return vlan > Bridging::VlanId::max() ? Bridging::VlanIdOrNone() : Bridging::VlanIdOrNone(vlan);
}

/// True for the interface of a vlan that is no internal one; its number still has to be checked.
[[nodiscard]] inline bool isVlanIntf(Pavlin::IntfId intf) {
  return Pavlin::VlanIntfId::isVlanIntfId(intf) && !Pavlin::VlanIntfId::vlanId(intf).isInternal();
}

/// True for the interface of a vlan that cannot exist.
[[nodiscard]] inline bool isOfNoVlan(Pavlin::IntfId intf) {
  return Pavlin::VlanIntfId::isVlanIntfId(intf) && vlanOfIntf(intf).isNone() &&
         !Pavlin::VlanIntfId::vlanId(intf).isInternal();
}

}  // namespace Multicast::Vpn
