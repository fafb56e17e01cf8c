// Why packets with a remote VNI are bridged in a vlan, or in none: from the configuration over the
// VRF and its SBD vlan to the row. Asks the machine. Writes nothing but the report.
#pragma once

#include "records/Keys.h"

namespace Multicast::Vpn {

class Agent;
class ExplainReport;

void explainVni(ExplainReport& report, const Agent& agent, const Vxlan::VniExtOrNone& vni);

}  // namespace Multicast::Vpn
