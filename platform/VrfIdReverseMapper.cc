#include "platform/VrfIdReverseMapper.h"

namespace Vrf::VrfIdMap {

VrfIdReverseMapper::VrfIdReverseMapper(Inputs inputs) : in(std::move(inputs)) {
  review();
}

void VrfIdReverseMapper::review() {
  for (const auto& entry : in.vrfIdMap->vrfIdToNameIterator())
    handleVrfId(entry.key);
}

void VrfIdReverseMapper::handleVrfId(VrfId vrfId) {
  const L3::VrfName* const known = names_.find(vrfId);
  const L3::VrfName old = known == nullptr ? L3::VrfName() : *known;
  const L3::VrfName name = in.vrfIdMap->vrfIdToName(vrfId).vrfName;
  if (name == old) return;
  if (!old.empty()) {
    names_.erase(vrfId);
    ids_.erase({old, vrfId});
    updateName(old);
  }
  if (!name.empty()) {
    names_.insert(vrfId, name);
    ids_.insert({name, vrfId});
    updateName(name);
  }
}

void VrfIdReverseMapper::updateName(const L3::VrfName& name) {
  const auto first = ids_.lower_bound({name, VrfId()});
  if (first != ids_.end() && first->first == name) {
    in.nameToIdMap->vrfNameToIdIs(name, first->second);
  } else {
    in.nameToIdMap->vrfNameToIdDel(name);
  }
}

}  // namespace Vrf::VrfIdMap

VESK_REGISTER(Vrf::VrfIdMap::VrfIdReverseMapper)
