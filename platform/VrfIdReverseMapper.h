// Keeps a map from VRF names to VRF numbers in step with the VRF agent's table of names by number.
// Owns: what it has read of the table. Reads: `vrfIdToName`. Writes: NameToIdMap.
// Runs: at construction and on each change of a row.
// Caveat: of several numbers of one name the smallest counts; a row without a name counts for
// nothing.
#pragma once

#include <set>
#include <utility>

#include "records/BriskelInputs.h"
#include "records/VrfNames.h"

namespace Vrf::VrfIdMap {

class VrfIdReverseMapper final : public Vesk::Machine {
  VESK_RECORD(Vrf::VrfIdMap::VrfIdReverseMapper)
  struct Inputs {
    Ombra::Ptr<Status const> vrfIdMap;
    Ombra::Ptr<NameToIdMap> nameToIdMap;
    bool operator==(const Inputs&) const = default;
  };
  explicit VrfIdReverseMapper(Inputs inputs);
  const Inputs in;

  void review() override;

 private:
  void handleVrfId(VrfId vrfId);
  void updateName(const L3::VrfName& name);

  /// The names as read.
  Vesk::KeyedMap<VrfId, L3::VrfName> names_;
  std::set<std::pair<L3::VrfName, VrfId>> ids_;
  Vesk::Watch vrfIdWatch_ =
      watch<&VrfIdReverseMapper::handleVrfId>(in.vrfIdMap, Status::vrfIdToNameAttr);
};

}  // namespace Vrf::VrfIdMap
