// Multicast groups that leak from one VRF into another, chosen by prefix lists.
// Written by: the configuration agent (McastVrfLeakConfig), the VRF leak helper
// (VrfLeakMatcherStatus). Read by: the membership judgement and the machine that reviews groups
// after a change of `version`. Caveat: the matcher reads through its references; both must stand
// before the first question.
#pragma once

#include <string>

#include "records/Keys.h"
#include "records/Policy.h"
#include "runtime/Record.h"

namespace Routing::Multicast::VrfLeak {

class McastVrfLeakVrfConfig : public Vesk::Keyed<L3::VrfName> {
  VESK_RECORD(Routing::Multicast::VrfLeak::McastVrfLeakVrfConfig)
  VESK_KEY(vrfName)
  /// Prefix-list name to the VRF that its groups leak to.
  VESK_MAP(std::string, L3::VrfName, leakPrefixList)
};

class McastVrfLeakConfig : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::VrfLeak::McastVrfLeakConfig)
  VESK_INSTANCES(L3::VrfName, McastVrfLeakVrfConfig, vrfConfig)

  /// Of ipv4 or ipv6; any other family ends the process.
  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af);
};

class VrfPfxListMatcherStatus : public Vesk::Keyed<L3::VrfName> {
  VESK_RECORD(Routing::Multicast::VrfLeak::VrfPfxListMatcherStatus)
  VESK_KEY(vrfName)
  /// Grows whenever the answers for this VRF may have changed.
  VESK_VALUE(std::uint32_t, version)
};

class VrfLeakMatcherStatus : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::VrfLeak::VrfLeakMatcherStatus)
  VESK_INSTANCES(L3::VrfName, VrfPfxListMatcherStatus, vrfStatus)
  VESK_REF(McastVrfLeakConfig const, vrfLeakConfig)
  VESK_REF(Routing::Policy::PolicyRoot const, policyRoot)

  /// The VRF that the group leaks to: that of the first prefix list by name that holds the group.
  /// Empty if none does.
  [[nodiscard]] L3::VrfName shouldLeak(const L3::VrfName& vrfName,
                                       const Pavlin::IpGenAddr& group) const;
};

}  // namespace Routing::Multicast::VrfLeak
