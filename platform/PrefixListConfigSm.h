// Prefix lists of one address family, as policy uses them.
// Reads: the configured lists. Writes: `policyRoot.prefixList`, each list with the prefixes of the
// own family. Runs when a list comes or goes, or a prefix of one does.
#pragma once

#include "records/Policy.h"
#include "runtime/Task.h"
#include "runtime/values/Addresses.h"

namespace Routing::RouteMap {

class PrefixListConfigSm;

/// One configured list.
class PrefixListSm final : public Vesk::Machine {
  VESK_RECORD(Routing::RouteMap::PrefixListSm)
  struct Inputs {
    PrefixListConfigSm* parent;
    Ombra::Ptr<Acl::PrefixListConfig const> row;
    bool operator==(const Inputs&) const = default;
  };
  explicit PrefixListSm(Inputs inputs);
  const Inputs in;

 private:
  void handlePrefix(Pavlin::IpGenPrefix prefix);
  Vesk::Watch prefix_ =
      watch<&PrefixListSm::handlePrefix>(in.row, Acl::PrefixListConfig::prefixAttr);
};

class PrefixListConfigSm final : public Vesk::Machine {
  VESK_RECORD(Routing::RouteMap::PrefixListConfigSm)
  struct Inputs {
    Sylva::TaskScheduler* scheduler;
    Pavlin::AddressFamily af;
    Ombra::Ptr<Acl::AclListConfig const> aclListConfig;
    Ombra::Ptr<Policy::PolicyRoot> policyRoot;
    bool operator==(const Inputs&) const = default;
  };
  explicit PrefixListConfigSm(Inputs inputs);
  const Inputs in;

  VESK_INSTANCES(std::string, PrefixListSm, prefixList)

 private:
  void handlePrefixList(std::string name);
  // A list is there anew, and empty, before its machine fills it.
  Vesk::Follow lists_ = followAfter<&PrefixListConfigSm::handlePrefixList>(
      in.aclListConfig, Acl::AclListConfig::prefixListAttr, prefixListAttr);
};

/// The machine of each family.
[[nodiscard]] Ombra::Ptr<PrefixListConfigSm> prefixListConfigSmFactory(
    Sylva::TaskScheduler* scheduler, const Ombra::Ptr<Acl::AclListConfig const>& aclListConfig,
    const Ombra::Ptr<Policy::PolicyRoot>& policyRoot);
[[nodiscard]] Ombra::Ptr<PrefixListConfigSm> ipv6PrefixListConfigSmFactory(
    Sylva::TaskScheduler* scheduler, const Ombra::Ptr<Acl::AclListConfig const>& aclListConfig,
    const Ombra::Ptr<Policy::PolicyRoot>& policyRoot);

}  // namespace Routing::RouteMap
