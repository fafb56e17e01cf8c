// Which tunnel an endpoint has and why, or why it has none: who asks for it, what stands in the
// status, and what the tunnel table holds for its address. Writes nothing but the report.
#pragma once

#include "records/Keys.h"

namespace Multicast::Vpn {

class Agent;
class ExplainReport;

void explainTunnel(ExplainReport& report, const Agent& agent,
                   const Tunnel::McastTunnelEndpoint& endpoint);

}  // namespace Multicast::Vpn
