// What the EVPN agent has to announce for multicast.
// Written by: the EVPN status machine. Read by: the EVPN agent.
// Caveat: while none of the flags is set, this switch announces no multicast capability.
#pragma once

#include <string>

#include <fmt/format.h>

#include "records/Keys.h"
#include "runtime/Record.h"

namespace Routing::Multicast {

class McastEvpnStatus : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::McastEvpnStatus)
  VESK_VALUE(bool, underlayMcastEnabled)
  VESK_VALUE(bool, underlayHerEnabled)
  VESK_VALUE(bool, igmpProxyEnabled)

  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af) {
    return fmt::format("multicast/{}/evpn/status", Pavlin::stringValue(af));
  }
};

}  // namespace Routing::Multicast
