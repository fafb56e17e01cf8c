// Groups that begin or cease to leak out of a VRF: its SBD vlan is judged again.
// Owns: a nested machine per VRF. Reads: the version of each VRF's matcher, the SBD vlan of a VRF
// and its members. Writes: change sets, through ReviewHelper. Runs: in reactors only.
// Caveat: only the version counts; a matcher that comes or goes is no change, and a change of a VRF
// without an SBD vlan is forgotten.
#pragma once

#include "egress/ReviewHelper.h"
#include "runtime/Record.h"

namespace Irb::Multicast::Egress {

class VrfLeakConfigChangeSm final : public Vesk::Machine {
  VESK_RECORD(Irb::Multicast::Egress::VrfLeakConfigChangeSm)
  using VrfLeakMatcherStatus = Routing::Multicast::VrfLeak::VrfLeakMatcherStatus;
  using VrfPfxListMatcherStatus = Routing::Multicast::VrfLeak::VrfPfxListMatcherStatus;

  struct Inputs {
    Ombra::Ptr<McastVrfLeakCtx const> mcastVrfLeakCtx;
    Ombra::Ptr<SbdToVlanStatus const> sbdToVlanStatus;
    Ombra::Ptr<Routing::Multicast::IpTunnelVlanGroupStatus const> tunnelVlanGroupStatus;
    Ombra::Ptr<ReviewHelper const> reviewHelper;
    bool operator==(const Inputs&) const = default;
  };
  explicit VrfLeakConfigChangeSm(Inputs inputs);
  const Inputs in;

  class NestedSm_VrfLeakStatus final : public Vesk::Machine {
    VESK_RECORD(Irb::Multicast::Egress::VrfLeakConfigChangeSm::NestedSm_VrfLeakStatus)
    struct Inputs {
      VrfLeakConfigChangeSm* parent;
      Ombra::Ptr<VrfPfxListMatcherStatus const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit NestedSm_VrfLeakStatus(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;
    void review() override { handleVersion(); }

   private:
    void handleVersion() { in.parent->handleVrfLeakVersion(in.row->vrfName()); }
    Vesk::Watch version_ =
        watch<&NestedSm_VrfLeakStatus::handleVersion>(in.row, VrfPfxListMatcherStatus::versionAttr);
  };

  VESK_INSTANCES(L3::VrfName, NestedSm_VrfLeakStatus, vrfLeakStatus)

 private:
  /// Throws Ombra::RangeException if the VRF's SBD vlan is none that can exist.
  void handleVrfLeakVersion(const L3::VrfName& vrfName);

  Vesk::Follow vrfs_ = follow(in.mcastVrfLeakCtx->vrfLeakMatcherStatus(),
                              VrfLeakMatcherStatus::vrfStatusAttr, vrfLeakStatusAttr);
};

}  // namespace Irb::Multicast::Egress
