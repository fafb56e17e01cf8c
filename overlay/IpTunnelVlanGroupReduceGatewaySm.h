// Which underlay routes of a gateway vlan this switch joins, and the machine that tells when the
// answers may have changed. The filter reads GatewayEsStatus; the machine watches it and raises the
// filter's `filterChange`. Both run in the call, or in the reactor, only.
#pragma once

#include <string>

#include "records/BriskelInputs.h"
#include "records/UnderlayRouteFilter.h"

namespace Routing::Multicast {

/// A vlan without an entry of its own lets every route through; so does one that says so. One that
/// decides per route lets through what the status names.
class GatewayUnderlayRouteFilter final : public UnderlayRouteFilterBase {
 public:
  using UnderlayRouteFilterBase::veskCount;
  using UnderlayRouteFilterBase::veskField;
  VESK_RECORD(Routing::Multicast::GatewayUnderlayRouteFilter)
  explicit GatewayUnderlayRouteFilter(Ombra::Ptr<Irb::Multicast::GatewayEsStatus const> status) {
    gatewayEsStatusIs(std::move(status));
  }
  [[nodiscard]] bool filterUnderlayRoute(const UnderlayRouteContext& context) const override;
  [[nodiscard]] std::string whyNot(const UnderlayRouteContext& context) const override;

  VESK_REF(Irb::Multicast::GatewayEsStatus const, gatewayEsStatus)
};

class GatewayUnderlayRouteChangeSm final : public Vesk::Machine {
  VESK_RECORD(Routing::Multicast::GatewayUnderlayRouteChangeSm)
  struct Inputs {
    Ombra::Ptr<Irb::Multicast::GatewayEsStatus const> gatewayEsStatus;
    Ombra::Ptr<GatewayUnderlayRouteFilter> filter;
    bool operator==(const Inputs&) const = default;
  };
  explicit GatewayUnderlayRouteChangeSm(Inputs inputs) : in(std::move(inputs)) {}
  const Inputs in;

 private:
  void reviewAll() { in.filter->filterChangeInc(1); }

  Vesk::Watch vlan_ = watch<&GatewayUnderlayRouteChangeSm::reviewAll>(
      in.gatewayEsStatus, Irb::Multicast::GatewayEsStatus::esVlanStatusAttr);
  Vesk::Watch route_ = watch<&GatewayUnderlayRouteChangeSm::reviewAll>(
      in.gatewayEsStatus, Irb::Multicast::GatewayEsStatus::underlayRouteStatusAttr);
};

}  // namespace Routing::Multicast
