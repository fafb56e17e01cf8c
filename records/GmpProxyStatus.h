// VRFs and their SBD vlans, each way and by number and by name.
// Written by: the proxy pipeline. Read by: the SBD pipeline (`vrfToSbdVlan`), and by the snooping
// agents. Caveat: the four maps are written one after the other; who reads two of them may see them
// disagree for a moment.
#pragma once

#include <string>

#include "records/Keys.h"
#include "runtime/Record.h"

namespace Irb::Multicast {

class GmpProxyStatus : public Vesk::Entity {
  VESK_RECORD(Irb::Multicast::GmpProxyStatus)
  VESK_MAP(Vrf::VrfIdMap::VrfId, Bridging::VlanId, vrfIdToSbdVlan)
  VESK_MAP(Bridging::VlanId, Vrf::VrfIdMap::VrfId, sbdVlanToVrfId)
  VESK_MAP(L3::VrfName, Bridging::VlanId, vrfToSbdVlan)
  VESK_MAP(Bridging::VlanId, L3::VrfName, sbdVlanToVrf)

  [[nodiscard]] static std::string mountPath() { return "irb/multicast/gmpProxyStatus"; }
};

}  // namespace Irb::Multicast
