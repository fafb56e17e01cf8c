#include "overlay/IpTunnelVlanGroupReduceGatewaySm.h"

#include <fmt/format.h>

#include "runtime/Trace.h"

namespace Routing::Multicast {
namespace {

using State = Irb::Multicast::GatewayVlanState;

const Vesk::TraceHandle traceHandle{"GatewayUnderlayRouteFilter"};

}  // namespace

bool GatewayUnderlayRouteFilter::filterUnderlayRoute(const UnderlayRouteContext& context) const {
  if (context.kind == UnderlayRouteContextKind::kind1) return false;
  const auto vlan = gatewayEsStatus()->esVlanStatus(context.vlanId);
  if (vlan == Irb::Multicast::GatewayEsVlanStatus{}) {
    if (auto t = traceHandle.at(8)) t << "Not a gateway for vlan " << context.vlanId;
    return true;
  }
  switch (vlan.state) {
    case State::pass:
      return true;
    case State::perRoute:
      return gatewayEsStatus()->underlayRouteStatus(context.route);
    default:
      return false;
  }
}

std::string GatewayUnderlayRouteFilter::whyNot(const UnderlayRouteContext& context) const {
  const auto state = gatewayEsStatus()->esVlanStatus(context.vlanId).state;
  return fmt::format("gateway vlan {} {}", Vesk::textOf(context.vlanId),
                     state == State::perRoute
                         ? "lets through only the routes that the gateway status names"
                         : "lets no route through");
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::GatewayUnderlayRouteFilter)
VESK_REGISTER(Routing::Multicast::GatewayUnderlayRouteChangeSm)
