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
  for (const auto& [name, row] : in.aclListConfig->prefixListIterator())
    handlePrefixList(name);
}

void PrefixListConfigSm::handlePrefixList(std::string name) {
  const auto row = in.aclListConfig->prefixList(name);
  const auto present = prefixList(name);
  if (present && present->in.row == row) return;
  prefixListDel(name);
  in.policyRoot->prefixListDel(name);
  if (!row) return;
  in.policyRoot->prefixListIs(name);
  prefixListIs(name, {.parent = this, .row = row});
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
