#include "agent/Explain.h"

#include "agent/CorvaneAgent.h"
#include "agent/ExplainDecap.h"
#include "agent/ExplainEncap.h"

namespace Multicast::Vpn {

std::vector<Explanation> explain(const Agent& agent, Bridging::VlanId vlan,
                                 const Pavlin::IpGenAddr& group) {
  const Routing::Multicast::OverlayVlanGroup key{vlan, Routing::Multicast::OverlayAddr(group)};
  const auto family = agent.afContainerSm(group.af());
  ExplainReport report;
  const auto heading = [&](Irb::Multicast::Domain domain, const char* side) {
    report.heading(fmt::format("vlan {} group {}, {}, {}", Vesk::textOf(vlan),
                               Vesk::textOf(key.group), Vesk::textOf(domain), side));
  };
  if (!family) {
    heading(Irb::Multicast::Domain::localDomain, "sent and received");
    report.missing(
        "the agent is not running: it needs a VXLAN interface and multicast routing, and must not "
        "be standby");
    return report.take();
  }
  for (const auto domain : domains) {
    // A switch that is no gateway has nothing to tell of the remote domain.
    if (domain == Irb::Multicast::Domain::localDomain || family->domainCntrSm(domain)) {
      heading(domain, "sent");
      explainEncap(report, *family, domain, key);
    }
    if (hasDecap(*family, domain)) {
      heading(domain, "received");
      explainDecap(report, *family, domain, key);
    }
  }
  return report.take();
}

}  // namespace Multicast::Vpn
