#include "overlay/IpTunnelVlanGroupReduceMlagSm.h"

#include "runtime/Trace.h"

namespace Routing::Multicast {
namespace {

const Vesk::TraceHandle traceHandle{"MlagUnderlayRouteFilter"};

}  // namespace

bool MlagUnderlayRouteFilter::filterUnderlayRoute(const UnderlayRouteContext& context) const {
  const bool joins = mlagState()->mlagFilterUnderlayRoute(context.route);
  if (auto t = traceHandle.at(8))
    t << "filterUnderlayRoute(" << Vesk::textOf(context.route) << ") => "
      << (joins ? "true" : "false");
  return joins;
}

std::string MlagUnderlayRouteFilter::whyNot(const UnderlayRouteContext& context) const {
  const bool v4 = context.route.underlayGroup.genAddr().af() == Pavlin::ipv4();
  const auto join = v4 ? mlagState()->mlagUnderlayJoin() : mlagState()->mlagUnderlayJoin6();
  return join == MlagUnderlayJoin::State::noGroups
             ? "this switch of the MLAG pair joins no groups at present"
             : "the MLAG peer joins the groups of this parity";
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::MlagUnderlayRouteFilter)
VESK_REGISTER(Routing::Multicast::MlagUnderlayRouteChangeSm)
