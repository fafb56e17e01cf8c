// Tells who depends on it when the answer to "does this group leak out of this VRF" may have
// changed. Reads: the leak configuration of each VRF and the prefix lists that it names. Writes:
// `matcherStatus`, one entry per VRF with leak configuration, whose version grows on every such
// change. Runs on these changes.
#pragma once

#include "records/VrfLeak.h"
#include "runtime/values/Addresses.h"

namespace Routing::Multicast::VrfLeak {

class VrfLeakHelperSm;

/// The leak configuration of one VRF.
class VrfLeakConfigSm final : public Vesk::Machine {
  VESK_RECORD(Routing::Multicast::VrfLeak::VrfLeakConfigSm)
  struct Inputs {
    VrfLeakHelperSm* parent;
    Ombra::Ptr<McastVrfLeakVrfConfig const> row;
    bool operator==(const Inputs&) const = default;
  };
  explicit VrfLeakConfigSm(Inputs inputs) : in(std::move(inputs)) {}
  const Inputs in;

 private:
  void handleLeakPrefixList();
  Vesk::Watch list_ = watch<&VrfLeakConfigSm::handleLeakPrefixList>(
      in.row, McastVrfLeakVrfConfig::leakPrefixListAttr);
};

/// One prefix list that some VRF may name.
class LeakPrefixListSm final : public Vesk::Machine {
  VESK_RECORD(Routing::Multicast::VrfLeak::LeakPrefixListSm)
  struct Inputs {
    VrfLeakHelperSm* parent;
    Ombra::Ptr<Policy::PrefixList const> row;
    bool operator==(const Inputs&) const = default;
  };
  explicit LeakPrefixListSm(Inputs inputs) : in(std::move(inputs)) {}
  const Inputs in;

 private:
  void handlePrefix();
  Vesk::Watch prefix_ =
      watch<&LeakPrefixListSm::handlePrefix>(in.row, Policy::PrefixList::prefixAttr);
};

class VrfLeakHelperSm final : public Vesk::Machine {
  VESK_RECORD(Routing::Multicast::VrfLeak::VrfLeakHelperSm)
  struct Inputs {
    Pavlin::AddressFamily af;
    Ombra::Ptr<McastVrfLeakConfig const> vrfLeakConfig;
    Ombra::Ptr<Policy::PolicyRoot const> policyRoot;
    Ombra::Ptr<VrfLeakMatcherStatus> matcherStatus;
    bool operator==(const Inputs&) const = default;
  };
  explicit VrfLeakHelperSm(Inputs inputs);
  const Inputs in;

  void vrfChanged(const L3::VrfName& vrf);
  void prefixListChanged(const std::string& name);

  VESK_INSTANCES(L3::VrfName, VrfLeakConfigSm, vrfConfig)
  VESK_INSTANCES(std::string, LeakPrefixListSm, prefixList)

 private:
  void handleVrfConfig(L3::VrfName vrf);
  Vesk::Follow vrfs_ = follow<&VrfLeakHelperSm::handleVrfConfig>(
      in.vrfLeakConfig, McastVrfLeakConfig::vrfConfigAttr, vrfConfigAttr);
  Vesk::Follow lists_ = follow<&VrfLeakHelperSm::prefixListChanged>(
      in.policyRoot, Policy::PolicyRoot::prefixListAttr, prefixListAttr);
};

}  // namespace Routing::Multicast::VrfLeak
