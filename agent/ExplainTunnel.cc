#include "agent/ExplainTunnel.h"

#include "agent/CorvaneAgent.h"
#include "agent/Explain.h"

namespace Multicast::Vpn {
namespace {

using Tunnel::McastTunnelEndpoint;
using Vesk::textOf;

/// Who asks for the endpoint in the tables of one kind.
template <class RequestDir>
std::string clientsOf(const RequestDir& dir, const McastTunnelEndpoint& endpoint) {
  std::string clients;
  for (const auto& [client, table] : dir.requestTableIterator())
    if (table->tunnelRequestHas(endpoint))
      clients += (clients.empty() ? "" : ", ") + textOf(client);
  return clients;
}

void tellUse(ExplainReport& report, const Tunnel::McastTunnelRootSm& rootSm,
             const McastTunnelEndpoint& endpoint) {
  const auto requestSm = rootSm.irVxlanIpv4TunnelRequestSm();
  if (!requestSm || endpoint.vtep.af() != Pavlin::ipv4()) return;
  const Pavlin::IpAddr vtep = endpoint.vtep.v4Addr();
  const auto use = requestSm->localStatus()->vtepStatus(vtep);
  if (!use) return report.missing(textOf(vtep) + " is no address of ingress replication");
  report.given(fmt::format("{} is the address of {} {} of ingress replication", textOf(vtep),
                           use->endpointCount(),
                           use->endpointCount() == 1 ? "endpoint" : "endpoints"));
  const auto& table = *rootSm.in.root->irVxlanIpv4TunnelTable();
  const Tunnel::McastTunnelId id = table.tunnel(vtep);
  if (!table.encapHas(id)) return report.missing("no encapsulation row for tunnel " + textOf(id));
  report.given("encapsulation row: tunnel " + textOf(id));
}

}  // namespace

void explainTunnel(ExplainReport& report, const Agent& agent, const McastTunnelEndpoint& endpoint) {
  report.heading("tunnel endpoint " + textOf(endpoint));
  const auto rootSm = agent.tunnelRootSm();
  if (!rootSm) return report.missing(notRunning);
  const Tunnel::McastTunnelRoot& root = *rootSm->in.root;
  const std::string replicated = clientsOf(*root.irVxlanIpv4TunnelRequestDir(), endpoint);
  const std::string pim = clientsOf(*root.pimVxlanTunnelRequestDir(), endpoint);
  if (!replicated.empty()) report.given("asked for with ingress replication by " + replicated);
  if (!pim.empty()) report.given("asked for with a PIM tunnel by " + pim);
  if (replicated.empty() && pim.empty()) report.missing("no client asks for it");
  const auto& status = *root.tunnelStatus();
  if (status.mcastTunnelSetHas(endpoint)) {
    report.given("its tunnel: " + textOf(status.mcastTunnelSet(endpoint).defaultTunnelId));
  } else {
    report.missing("no tunnel stands for it");
  }
  tellUse(report, *rootSm, endpoint);
}

}  // namespace Multicast::Vpn
