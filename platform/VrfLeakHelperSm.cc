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
  for (const auto& [name, row] : in.policyRoot->prefixListIterator())
    handlePrefixList(name);
  for (const auto& [vrf, row] : in.vrfLeakConfig->vrfConfigIterator())
    handleVrfConfig(vrf);
}

void VrfLeakHelperSm::handleVrfConfig(L3::VrfName vrf) {
  const auto row = in.vrfLeakConfig->vrfConfig(vrf);
  const auto present = vrfConfig(vrf);
  if (present && present->in.row == row) return;
  vrfConfigDel(vrf);
  if (row) {
    vrfConfigIs(vrf, {.parent = this, .row = row});
    in.matcherStatus->vrfStatusIs(vrf);
    vrfChanged(vrf);
  } else {
    in.matcherStatus->vrfStatusDel(vrf);
  }
}

void VrfLeakHelperSm::handlePrefixList(std::string name) {
  const auto row = in.policyRoot->prefixList(name);
  const auto present = prefixList(name);
  if (present && present->in.row == row) return;
  prefixListDel(name);
  if (row) prefixListIs(name, {.parent = this, .row = row});
  prefixListChanged(name);
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
