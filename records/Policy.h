// Prefix lists: as configured, and as one address family uses them.
// Written by: the configuration agent (AclListConfig), the prefix-list machines (PolicyRoot).
// Read by: the prefix-list machines, and by the VRF leak through PolicyRoot.
// Caveat: a list of AclListConfig may mix families; the lists of a PolicyRoot hold one family.
#pragma once

#include <string>

#include "records/Keys.h"
#include "runtime/Record.h"

namespace Acl {

class PrefixListConfig : public Vesk::Keyed<std::string> {
  VESK_RECORD(Acl::PrefixListConfig)
  VESK_KEY(name)
  VESK_SET(Pavlin::IpGenPrefix, prefix)
};

class AclListConfig : public Vesk::Entity {
  VESK_RECORD(Acl::AclListConfig)
  VESK_INSTANCES(std::string, PrefixListConfig, prefixList)

  [[nodiscard]] static std::string mountPath() { return "routing/acl/config"; }
};

}  // namespace Acl

namespace Routing::Policy {

class PrefixList : public Vesk::Keyed<std::string> {
  VESK_RECORD(Routing::Policy::PrefixList)
  VESK_KEY(name)
  VESK_SET(Pavlin::IpGenPrefix, prefix)

  /// True if one of the prefixes covers the address.
  [[nodiscard]] bool contains(const Pavlin::IpGenAddr& addr) const;
};

class PolicyRoot : public Vesk::Entity {
  VESK_RECORD(Routing::Policy::PolicyRoot)
  VESK_INSTANCES(std::string, PrefixList, prefixList)
};

}  // namespace Routing::Policy
