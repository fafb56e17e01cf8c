#include "agent/Explain.h"

#include "agent/CorvaneAgent.h"
#include "agent/ExplainDecap.h"
#include "agent/ExplainEncap.h"
#include "agent/ExplainPort.h"
#include "agent/ExplainTunnel.h"
#include "agent/ExplainVni.h"

namespace Multicast::Vpn {
namespace {

void explainGroup(ExplainReport& report, const Agent& agent,
                  const Routing::Multicast::OverlayVlanGroup& key) {
  const auto family = agent.afContainerSm(key.group.af());
  const auto heading = [&](Irb::Multicast::Domain domain, const char* side) {
    report.heading(fmt::format("vlan {} group {}, {}, {}", Vesk::textOf(key.vlan),
                               Vesk::textOf(key.group), Vesk::textOf(domain), side));
  };
  if (!family) {
    heading(Irb::Multicast::Domain::localDomain, "sent and received");
    report.missing(notRunning);
    return;
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
}

}  // namespace

std::vector<Explanation> explain(const Agent& agent, const Question& question) {
  ExplainReport report;
  std::visit(
      [&]<class Key>(const Key& key) {
        if constexpr (std::is_same_v<Key, Routing::Multicast::OverlayVlanGroup>) {
          explainGroup(report, agent, key);
        } else if constexpr (std::is_same_v<Key, Tunnel::McastTunnelEndpoint>) {
          explainTunnel(report, agent, key);
        } else if constexpr (std::is_same_v<Key, L2PortVlan>) {
          explainPort(report, agent, key);
        } else {
          explainVni(report, agent, key);
        }
      },
      question);
  return report.take();
}

}  // namespace Multicast::Vpn
