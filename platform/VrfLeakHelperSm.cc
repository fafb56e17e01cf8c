#include "platform/VrfLeakHelperSm.h"

namespace Routing::Multicast::VrfLeak {

void VrfLeakConfigSm::handleLeakPrefixList() {
  in.parent->vrfChanged(in.row->vrfName());
}
void LeakPrefixListSm::handlePrefix() {
  in.parent->prefixListChanged(in.row->name());
}

VrfLeakHelperSm::VrfLeakHelperSm(Inputs inputs) : in(std::move(inputs)) {
  in.matcherStatus->vrfLeakConfigIs(in.vrfLeakConfig);
  in.matcherStatus->policyRootIs(in.policyRoot);
  lists_.beginWithHandler();
  vrfs_.beginWithHandler();
}

void VrfLeakHelperSm::handleVrfConfig(L3::VrfName vrf) {
  if (vrfConfigHas(vrf)) {
    in.matcherStatus->vrfStatusIs(vrf);
    vrfChanged(vrf);
  } else {
    in.matcherStatus->vrfStatusDel(vrf);
  }
}

void VrfLeakHelperSm::vrfChanged(const L3::VrfName& vrf) {
  if (const auto status = in.matcherStatus->vrfStatus(vrf))
    status->versionIs(status->version() + 1);
}

void VrfLeakHelperSm::prefixListChanged(const std::string& name) {
  for (const auto& [vrf, config] : vrfConfigIterator())
    if (config->in.row->leakPrefixListHas(name)) vrfChanged(vrf);
}

}  // namespace Routing::Multicast::VrfLeak

VESK_REGISTER(Routing::Multicast::VrfLeak::VrfLeakConfigSm)
VESK_REGISTER(Routing::Multicast::VrfLeak::LeakPrefixListSm)
VESK_REGISTER(Routing::Multicast::VrfLeak::VrfLeakHelperSm)
