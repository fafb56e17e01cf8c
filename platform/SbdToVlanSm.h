// The inverse of `vlanToSbd`: the vlans that each SBD vlan serves.
// Owns: the SBD vlan of each vlan as it was entered last. Reads: McastIrbStatus. Writes:
// SbdToVlanStatus. Runs: in reactors only, one vlan at a time. Caveat: a row that reads as corrupt
// is a vlan without an SBD vlan.
#pragma once

#include "records/McastIrbStatus.h"
#include "runtime/Record.h"

namespace Irb::Multicast {

class SbdToVlanSm final : public Vesk::Machine {
  VESK_RECORD(Irb::Multicast::SbdToVlanSm)
  struct Inputs {
    Ombra::Ptr<McastIrbStatus const> mcastIrbStatus;
    Ombra::Ptr<SbdToVlanStatus> sbdToVlanStatus;
    bool operator==(const Inputs&) const = default;
  };
  explicit SbdToVlanSm(Inputs inputs);
  const Inputs in;

  void review() override;

 private:
  void handleVlanToSbd(Bridging::VlanId vlan);
  /// Drops what was left by whoever wrote the status before and does not follow.
  void sweep();

  Vesk::KeyedMap<Bridging::VlanId, Bridging::VlanId> sbdOf_;
  Vesk::Watch vlanToSbd_ =
      watch<&SbdToVlanSm::handleVlanToSbd>(in.mcastIrbStatus, McastIrbStatus::vlanToSbdAttr);
};

}  // namespace Irb::Multicast
