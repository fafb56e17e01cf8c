#include "records/VrfLeak.h"

#include "runtime/Assert.h"

namespace Routing::Multicast::VrfLeak {

std::string McastVrfLeakConfig::mountPath(Pavlin::AddressFamily af) {
  switch (af) {
    case Pavlin::AddressFamily::ipv4:
      return "routing/multicast/vrf/leakConfig";
    case Pavlin::AddressFamily::ipv6:
      return "routing6/multicast/vrf/leakConfig";
    default:
      Ombra::assertThat(false, "false && \"Unsupported address family\"");
      return {};
  }
}

L3::VrfName VrfLeakMatcherStatus::shouldLeak(const L3::VrfName& vrfName,
                                             const Pavlin::IpGenAddr& group) const {
  if (!vrfLeakConfig() || !policyRoot()) return {};
  const auto config = vrfLeakConfig()->vrfConfig(vrfName);
  if (!config) return {};
  std::string firstName;
  L3::VrfName target;
  for (const auto& [name, leakTo] : config->leakPrefixListIterator()) {
    if (!firstName.empty() && firstName < name) continue;
    const auto list = policyRoot()->prefixList(name);
    if (!list || !list->contains(group)) continue;
    firstName = name;
    target = leakTo;
  }
  return target;
}

}  // namespace Routing::Multicast::VrfLeak

VESK_REGISTER(Routing::Multicast::VrfLeak::McastVrfLeakVrfConfig)
VESK_REGISTER(Routing::Multicast::VrfLeak::McastVrfLeakConfig)
VESK_REGISTER(Routing::Multicast::VrfLeak::VrfPfxListMatcherStatus)
VESK_REGISTER(Routing::Multicast::VrfLeak::VrfLeakMatcherStatus)
