// Which underlay routes this switch of an MLAG pair joins, and the machine that tells when the
// answers may have changed. The filter asks MlagVxlanState; the machine watches it and raises the
// filter's `filterChange` by one for each change. Both run in the call, or in the reactor, only.
#pragma once

#include <string>

#include "records/MlagVxlanState.h"
#include "records/UnderlayRouteFilter.h"

namespace Routing::Multicast {

class MlagUnderlayRouteFilter final : public UnderlayRouteFilterBase {
 public:
  using UnderlayRouteFilterBase::veskCount;
  using UnderlayRouteFilterBase::veskField;
  VESK_RECORD(Routing::Multicast::MlagUnderlayRouteFilter)
  explicit MlagUnderlayRouteFilter(Ombra::Ptr<MlagVxlanState const> state) {
    mlagStateIs(std::move(state));
  }
  [[nodiscard]] bool filterUnderlayRoute(const UnderlayRouteContext& context) const override;
  [[nodiscard]] std::string whyNot(const UnderlayRouteContext& context) const override;

  VESK_REF(MlagVxlanState const, mlagState)
};

class MlagUnderlayRouteChangeSm final : public Vesk::Machine {
  VESK_RECORD(Routing::Multicast::MlagUnderlayRouteChangeSm)
  struct Inputs {
    Ombra::Ptr<MlagVxlanState const> mlagState;
    Ombra::Ptr<MlagUnderlayRouteFilter> filter;
    bool operator==(const Inputs&) const = default;
  };
  explicit MlagUnderlayRouteChangeSm(Inputs inputs) : in(std::move(inputs)) {}
  const Inputs in;

 private:
  void handleMlagState() { in.filter->filterChangeInc(1); }

  using Self = MlagUnderlayRouteChangeSm;
  Vesk::Watch join_ =
      watch<&Self::handleMlagState>(in.mlagState, MlagVxlanState::mlagUnderlayJoinAttr);
  Vesk::Watch join6_ =
      watch<&Self::handleMlagState>(in.mlagState, MlagVxlanState::mlagUnderlayJoin6Attr);
  Vesk::Watch parity_ = watch<&Self::handleMlagState>(in.mlagState, MlagVxlanState::parityAttr);
  Vesk::Watch parity6_ = watch<&Self::handleMlagState>(in.mlagState, MlagVxlanState::parity6Attr);
  Vesk::Watch peer_ =
      watch<&Self::handleMlagState>(in.mlagState, MlagVxlanState::peerLocalVtepAddrAttr);
  Vesk::Watch peer6_ =
      watch<&Self::handleMlagState>(in.mlagState, MlagVxlanState::peerLocalVtepAddr6Attr);
};

}  // namespace Routing::Multicast
