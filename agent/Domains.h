// The domains of an address family, in the order of every loop over them, and what tells one from
// the other: paths, client, configuration, and the condition under which the domain exists.
#pragma once

#include <array>
#include <string>

#include "agent/MountCatalog.h"
#include "records/TunnelGroupConfig.h"

namespace Multicast::Vpn {

inline constexpr std::array domains{Irb::Multicast::Domain::localDomain,
                                    Irb::Multicast::Domain::remoteDomain};

struct DomainTraits {
  Corvane::Condition condition;
  EncapDecapReadyClient v4Client, v6Client;
  Routing::Multicast::IpTunnelGroupStatusType encapStatus, decapStatus;
  std::string (*forwardingPath)(Pavlin::AddressFamily);
  Ombra::Ptr<Routing::Multicast::IpTunnelGroupConfig const> (*groupConfig)(Agent&);

  [[nodiscard]] EncapDecapReadyClient client(Pavlin::AddressFamily af) const {
    return af == Pavlin::ipv4() ? v4Client : v6Client;
  }
};
[[nodiscard]] const DomainTraits& traitsOf(Irb::Multicast::Domain domain);

}  // namespace Multicast::Vpn
