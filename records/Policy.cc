#include "records/Policy.h"

namespace Routing::Policy {

bool PrefixList::contains(const Pavlin::IpGenAddr& addr) const {
  for (const auto& covering : prefixIterator())
    if (covering.contains(addr)) return true;
  return false;
}

}  // namespace Routing::Policy

VESK_REGISTER(Acl::PrefixListConfig)
VESK_REGISTER(Acl::AclListConfig)
VESK_REGISTER(Routing::Policy::PrefixList)
VESK_REGISTER(Routing::Policy::PolicyRoot)
