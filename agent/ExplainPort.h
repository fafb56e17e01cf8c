// Why a port forwards in a vlan towards the world outside of the overlay, or does not: from the
// Ethernet segment over the election to the role, family by family. Writes nothing but the report.
#pragma once

#include "records/Keys.h"

namespace Multicast::Vpn {

class Agent;
class ExplainReport;

void explainPort(ExplainReport& report, const Agent& agent, const L2PortVlan& port);

}  // namespace Multicast::Vpn
