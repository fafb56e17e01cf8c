#include "agent/ExplainPort.h"

#include "agent/CorvaneAgent.h"
#include "agent/Explain.h"
#include "platform/Toggles.h"

namespace Multicast::Vpn {
namespace {

using Vesk::textOf;

/// One family. Each step says what it found; the one that decides the role ends the chain.
class Chain {
 public:
  Chain(ExplainReport& report, const Agent& agent, const AfContainer& container,
        const L2PortVlan& port)
      : report_(report),
        agent_(agent),
        container_(container),
        port_(port),
        vlan_("vlan " + textOf(port.vlanId)) {}

  void tell() {
    if (!elected()) return;
    decided();
    const auto& roles = *container_.externalForwarderStatus();
    if (!roles.intfStatusHas(port_)) return report_.missing("no row: no role is published");
    report_.given("role: " + textOf(roles.intfStatus(port_).role));
  }

 private:
  bool elected() {
    using namespace Pavlin;
    const auto& intf = port_.intfId;
    if (VxlanTunnelIntfId::isVxlanTunnelIntfId(intf) || MplsTrunkIntfId::isMplsTrunkIntfId(intf))
      return report_.stop(textOf(intf) + " is a tunnel: there is no port to forward on");
    const auto segment = agent_.evpnStatus()->segmentStatus(intf);
    if (!segment) return report_.stop(textOf(intf) + " is no Ethernet segment");
    if (!segment->configuredVlanHas(port_.vlanId))
      return report_.stop(fmt::format("the segment of {} has no {}", textOf(intf), vlan_));
    report_.given(fmt::format("{} is an Ethernet segment with {}", textOf(intf), vlan_));
    return true;
  }

  void decided() {
    const auto status = container_.electedDfStatusDir()->electedDfStatus(port_);
    if (!status.iAmDF) {
      const auto& other = status.designatedForwarderTepIpAddr;
      return report_.missing(
          other.af() == Pavlin::AddressFamily::none
              ? "this switch is not the designated forwarder, and no other is known"
              : "this switch is not the designated forwarder: that is " + textOf(other));
    }
    report_.given("this switch is the designated forwarder");
    if (!container_.pegVlanStatus()->pegVlan(port_.vlanId).pegEnabled)
      return report_.missing(vlan_ + " is no vlan of gateways to the outside: it forwards alone");
    report_.given(vlan_ + " is a vlan of gateways to the outside");
    const auto role = agent_.pegDrStatus()->pegDrVlan(port_.vlanId).pegDrRole;
    if (role == Routing::Multicast::PegDrRole::dr)
      return report_.given("this switch is the designated router of the gateways");
    report_.missing("this switch is not the designated router of the gateways");
    tellNeighbours();
  }

  void tellNeighbours() {
    const auto sbd = container_.mcastIrbStatus()->sbdOf(port_.vlanId);
    if (!sbd) return report_.missing(vlan_ + " has no SBD vlan, and so no other gateway");
    const auto neighbour = container_.pegNeighborStatus()->pegVlanNeighbor(*sbd);
    std::string teps;
    for (const auto& tep : neighbour ? neighbour->tepKeys() : std::vector<Pavlin::IpGenAddr>())
      if (neighbour->tepHas(tep)) teps += (teps.empty() ? "" : ", ") + textOf(tep);
    if (teps.empty())
      return report_.missing(fmt::format("no other gateway in SBD vlan {}", textOf(*sbd)));
    report_.given(fmt::format("another gateway forwards, in SBD vlan {}: {}", textOf(*sbd), teps));
  }

  ExplainReport& report_;
  const Agent& agent_;
  const AfContainer& container_;
  const L2PortVlan& port_;
  const std::string vlan_;
};

}  // namespace

void explainPort(ExplainReport& report, const Agent& agent, const L2PortVlan& port) {
  for (const auto af : Pavlin::families) {
    report.heading(fmt::format("port {} vlan {}, {}", textOf(port.intfId), textOf(port.vlanId),
                               Pavlin::stringValue(af)));
    const auto family = agent.afContainerSm(af);
    if (!family) {
      report.missing(notRunning);
    } else if (!toggleOismGatewayEnabled()) {
      report.missing("no roles are given without the toggle OismGateway");
    } else {
      Chain(report, agent, *family->in.container, port).tell();
    }
  }
}

}  // namespace Multicast::Vpn
