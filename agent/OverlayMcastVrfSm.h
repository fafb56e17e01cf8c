// Keeps the list of VRFs in which multicast is enabled.
// Reads: the multicast routing agent's enabled VRFs. Writes: `mcastIntfSmRoot.vrfSm`, one machine
// per VRF that gathers its multicast interfaces. Runs when a VRF is enabled or disabled.
#pragma once

#include "platform/MulticastIntfsAppRoot.h"
#include "records/Fib.h"

namespace Multicast::Vpn {

class OverlayMcastVrfSm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Vpn::OverlayMcastVrfSm)
  struct Inputs {
    Pavlin::AddressFamily af;
    Ombra::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> mcastEnabledStatus;
    Ombra::Ptr<Vesk::Dir const> multicastAppDirRoot;
    Ombra::Ptr<Routing::Multicast::MulticastIntfsAppRootSmColl> mcastIntfSmRoot;
    bool operator==(const Inputs&) const = default;
  };
  explicit OverlayMcastVrfSm(Inputs inputs);
  const Inputs in;

 private:
  void handleVrf();
  void handleVrf(const L3::VrfName& vrf);
  void handleVrfKey(L3::VrfName vrf) { handleVrf(vrf); }

  Vesk::Watch vrf_ = watch<&OverlayMcastVrfSm::handleVrfKey>(
      in.mcastEnabledStatus, Routing::Multicast::Fib::VrfEnabledStatus::vrfAttr);
};

}  // namespace Multicast::Vpn
