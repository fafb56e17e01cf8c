// A vlan that is bound to an SBD vlan, or leaves it, changes who the receivers of both are.
// Owns: a nested machine per SBD vlan. Reads: which vlans an SBD vlan serves. Writes: change sets,
// through ReviewHelper. Runs: in reactors only; takes all vlan groups of the two vlans.
#pragma once

#include "egress/ReviewHelper.h"
#include "runtime/Record.h"

namespace Irb::Multicast::Egress {

class SbdVlanChangeSm final : public Vesk::Machine {
  VESK_RECORD(Irb::Multicast::Egress::SbdVlanChangeSm)
  struct Inputs {
    Ombra::Ptr<SbdToVlanStatus const> sbdToVlanStatus;
    Ombra::Ptr<ReviewHelper const> reviewHelper;
    bool operator==(const Inputs&) const = default;
  };
  explicit SbdVlanChangeSm(Inputs inputs) : in(std::move(inputs)) { sbdVlans_.begin(); }
  const Inputs in;

  class NestedSm_SbdState final : public Vesk::Machine {
    VESK_RECORD(Irb::Multicast::Egress::SbdVlanChangeSm::NestedSm_SbdState)
    struct Inputs {
      SbdVlanChangeSm* parent;
      Ombra::Ptr<SbdVlanState const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit NestedSm_SbdState(Inputs inputs) : in(std::move(inputs)) { review(); }
    const Inputs in;
    void handleDel() { review(); }
    void review() override;

   private:
    void handleSbdStatus(Bridging::VlanId member);
    Vesk::Watch member_ =
        watch<&NestedSm_SbdState::handleSbdStatus>(in.row, SbdVlanState::vlanIdAttr);
  };

  VESK_INSTANCES(Bridging::VlanId, NestedSm_SbdState, sbdState)

 private:
  Vesk::Follow sbdVlans_ = follow(in.sbdToVlanStatus, SbdToVlanStatus::sbdStatusAttr, sbdStateAttr);
};

}  // namespace Irb::Multicast::Egress
