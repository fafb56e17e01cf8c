// Why an overlay group of a vlan is encapsulated as it is, or is not, in one domain: from what
// switches the domain on, over configuration and routes, to the forwarding row. Asks the machines'
// own decision functions along the way and stops at the first condition that is missing. Writes
// nothing but the report.
#pragma once

#include "records/Keys.h"

namespace Multicast::Vpn {

class AfContainerSm;
class ExplainReport;

void explainEncap(ExplainReport& report, const AfContainerSm& family, Irb::Multicast::Domain domain,
                  const Routing::Multicast::OverlayVlanGroup& key);

}  // namespace Multicast::Vpn
