#include "agent/Explain.h"

#include "agent/CorvaneAgent.h"
#include "agent/ExplainEncap.h"

namespace Multicast::Vpn {

std::vector<Explanation> explain(const Agent& agent, Bridging::VlanId vlan,
                                 const Pavlin::IpGenAddr& group) {
  const Routing::Multicast::OverlayVlanGroup key{vlan, Routing::Multicast::OverlayAddr(group)};
  const auto family = agent.afContainerSm(group.af());
  ExplainReport report;
  for (const auto domain : domains) {
    // A switch that is no gateway has nothing to tell of the remote domain.
    if (domain == Irb::Multicast::Domain::remoteDomain && !(family && family->domainCntrSm(domain)))
      continue;
    report.heading(fmt::format("vlan {} group {}, {}", Vesk::textOf(vlan), Vesk::textOf(key.group),
                               Vesk::textOf(domain)));
    if (family) {
      explainEncap(report, *family, domain, key);
    } else {
      report.missing("the agent is not running: it needs a VXLAN interface and multicast routing");
    }
  }
  return report.take();
}

}  // namespace Multicast::Vpn
