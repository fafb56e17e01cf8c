// Who asks for an endpoint, in the request tables of one kind of tunnel.
// Owns nothing. Reads: the tables of a request directory, by look-up alone. Writes nothing.
// Caveat: a damaged request is reported, and counts as none.
#pragma once

#include "records/Tunnels.h"

namespace Multicast::Tunnel {

/// True if a client asks for the endpoint.
template <class RequestDir>
[[nodiscard]] bool isRequested(const RequestDir& requestDir, const McastTunnelEndpoint& endpoint) {
  for (const auto& [client, table] : requestDir.requestTableIterator())
    if (table->tunnelRequestHas(endpoint)) return true;
  return false;
}

}  // namespace Multicast::Tunnel
