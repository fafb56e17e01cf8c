#include "platform/PrefixListConfigSm.h"

namespace Routing::RouteMap {

PrefixListSm::PrefixListSm(Inputs inputs) : in(std::move(inputs)) {
  for (const auto& prefix : in.row->prefixIterator())
    handlePrefix(prefix);
}

void PrefixListSm::handlePrefix(Pavlin::IpGenPrefix prefix) {
  if (prefix.ipGenAddr().af() != in.parent->in.af) return;
  const auto list = in.parent->in.policyRoot->prefixListIs(in.row->name());
  if (in.row->prefixHas(prefix)) {
    list->prefixIs(prefix);
  } else {
    list->prefixDel(prefix);
  }
}

PrefixListConfigSm::PrefixListConfigSm(Inputs inputs) : in(std::move(inputs)) {
  lists_.beginWithHandler();
}

void PrefixListConfigSm::handlePrefixList(std::string name) {
  in.policyRoot->prefixListDel(name);
  if (in.aclListConfig->prefixListHas(name)) in.policyRoot->prefixListIs(name);
}

Ombra::Ptr<PrefixListConfigSm> prefixListConfigSmFactory(
    Sylva::TaskScheduler* scheduler, const Ombra::Ptr<Acl::AclListConfig const>& aclListConfig,
    const Ombra::Ptr<Policy::PolicyRoot>& policyRoot) {
  return Ombra::make<PrefixListConfigSm>(
      PrefixListConfigSm::Inputs{scheduler, Pavlin::ipv4(), aclListConfig, policyRoot});
}

Ombra::Ptr<PrefixListConfigSm> ipv6PrefixListConfigSmFactory(
    Sylva::TaskScheduler* scheduler, const Ombra::Ptr<Acl::AclListConfig const>& aclListConfig,
    const Ombra::Ptr<Policy::PolicyRoot>& policyRoot) {
  return Ombra::make<PrefixListConfigSm>(
      PrefixListConfigSm::Inputs{scheduler, Pavlin::ipv6(), aclListConfig, policyRoot});
}

}  // namespace Routing::RouteMap

VESK_REGISTER(Routing::RouteMap::PrefixListSm)
VESK_REGISTER(Routing::RouteMap::PrefixListConfigSm)
