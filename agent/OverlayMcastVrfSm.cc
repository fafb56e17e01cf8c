#include "agent/OverlayMcastVrfSm.h"

namespace Multicast::Vpn {

OverlayMcastVrfSm::OverlayMcastVrfSm(Inputs inputs) : in(std::move(inputs)) {
  handleVrf();
}

void OverlayMcastVrfSm::handleVrf() {
  for (const auto& vrf : in.mcastEnabledStatus->vrfIterator())
    handleVrf(vrf);
  // VRFs of an earlier life of this machine, which may be disabled by now.
  for (const auto& [vrf, intfs] : in.mcastIntfSmRoot->vrfSmIterator())
    handleVrf(vrf);
}

void OverlayMcastVrfSm::handleVrf(const L3::VrfName& vrf) {
  if (in.mcastEnabledStatus->vrfHas(vrf)) {
    in.mcastIntfSmRoot->vrfSmIs(vrf,
                                {.vrfName = vrf, .multicastAppDirRoot = in.multicastAppDirRoot});
  } else {
    in.mcastIntfSmRoot->vrfSmDel(vrf);
  }
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::OverlayMcastVrfSm)
