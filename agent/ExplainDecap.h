// Why an underlay group is joined for an overlay group of a vlan, or is not, in one domain: from
// who wants it, through which vlan, over the review and the filters, to the rows that PIM reads.
// Asks the machines' own functions. Writes nothing but the report.
#pragma once

#include "records/Keys.h"

namespace Multicast::Vpn {

class AfContainerSm;
class ExplainReport;

/// True if the domain has a decapsulating side at present.
[[nodiscard]] bool hasDecap(const AfContainerSm& family, Irb::Multicast::Domain domain);
void explainDecap(ExplainReport& report, const AfContainerSm& family, Irb::Multicast::Domain domain,
                  const Routing::Multicast::OverlayVlanGroup& key);

}  // namespace Multicast::Vpn
