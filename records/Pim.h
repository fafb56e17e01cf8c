// Configuration of PIM sparse mode, per VRF.
// Written by: the configuration agent. Read by: the EVPN status machine, row of the default VRF.
#pragma once

#include <string>

#include <fmt/format.h>

#include "records/Keys.h"
#include "runtime/Record.h"

namespace Routing::Pim::SparseMode {

class Config : public Vesk::Keyed<L3::VrfName> {
  VESK_RECORD(Routing::Pim::SparseMode::Config)
  VESK_KEY(vrfName)
  VESK_VALUE(bool, makeBeforeBreakDisabled)
};

class ConfigColl : public Vesk::Entity {
  VESK_RECORD(Routing::Pim::SparseMode::ConfigColl)
  VESK_INSTANCES(L3::VrfName, Config, vrfConfig)

  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af) {
    return fmt::format("routing/{}/pim/sparsemode/config", Pavlin::stringValue(af));
  }
};

}  // namespace Routing::Pim::SparseMode
