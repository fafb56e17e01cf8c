// The domains of an address family, in the order of every loop over them. Each family has the local
// one; the remote one is there for a gateway.
#pragma once

#include <array>

#include "records/Enums.h"

namespace Multicast::Vpn {

inline constexpr std::array domains{Irb::Multicast::Domain::localDomain,
                                    Irb::Multicast::Domain::remoteDomain};

}  // namespace Multicast::Vpn
