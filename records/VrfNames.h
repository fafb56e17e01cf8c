// VRF numbers by name: the reverse of the VRF agent's table.
// Written by: the reverse mapper, live with the table. Read by: the ingress route machine.
// In-process. A name without a number reads as VRF 0, which is none.
#pragma once

#include "records/Keys.h"
#include "runtime/Record.h"

namespace Vrf::VrfIdMap {

class NameToIdMap : public Vesk::Entity {
  VESK_RECORD(Vrf::VrfIdMap::NameToIdMap)
  VESK_MAP(L3::VrfName, VrfId, vrfNameToId)
};

}  // namespace Vrf::VrfIdMap
