#include "agent/Domains.h"

#include "agent/CorvaneAgent.h"

namespace Multicast::Vpn {
namespace {

using Forwarding = Routing::Multicast::IpTunnelForwardingStatus;

constexpr DomainTraits local{
    .condition = Corvane::Condition::always,
    .v4Client = EncapDecapReadyClient::ipv4Local,
    .v6Client = EncapDecapReadyClient::ipv6Local,
    .encapStatus = Routing::Multicast::irbEncapStatus(),
    .decapStatus = Routing::Multicast::irbDecapStatus(),
    .forwardingPath = &Forwarding::mountPath,
    .groupConfig = [](Agent& agent) { return agent.ipTunnelGroupConfig(); },
};

constexpr DomainTraits remote{
    .condition = Corvane::Condition::gateway,
    .v4Client = EncapDecapReadyClient::ipv4Remote,
    .v6Client = EncapDecapReadyClient::ipv6Remote,
    .encapStatus = Routing::Multicast::irbRemoteDomainEncapStatus(),
    .decapStatus = Routing::Multicast::irbRemoteDomainDecapStatus(),
    .forwardingPath = &Forwarding::remoteDomainMountPath,
    .groupConfig = [](Agent& agent) { return agent.ipTunnelRemoteDomainGroupConfig(); },
};

}  // namespace

const DomainTraits& traitsOf(Irb::Multicast::Domain domain) {
  return domain == Irb::Multicast::Domain::localDomain ? local : remote;
}

}  // namespace Multicast::Vpn
