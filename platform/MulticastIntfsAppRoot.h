// The multicast-enabled interfaces of a VRF, gathered from every application that enables some.
// Reads: the directory of applications, in each the entity named by the VRF, in it `multicastIntf`.
// Directories, entities and entries come and go. Writes: its own `multicastIntf`, the union. Runs
// on each of these changes.
#pragma once

#include <string>

#include "records/MulticastIntfs.h"
#include "runtime/Dir.h"
#include "runtime/values/IntfId.h"
#include "runtime/values/VrfName.h"

namespace Routing::Multicast {

class MulticastIntfsAppRootSm;

/// One application's interfaces in one VRF.
class MulticastIntfsAppSm final : public Vesk::Machine {
  VESK_RECORD(Routing::Multicast::MulticastIntfsAppSm)
  struct Inputs {
    MulticastIntfsAppRootSm* parent;
    Ombra::Ptr<Vesk::Dir const> row;  ///< the application's directory
    bool operator==(const Inputs&) const = default;
  };
  explicit MulticastIntfsAppSm(Inputs inputs);
  const Inputs in;

  [[nodiscard]] bool has(Pavlin::IntfId intf) const {
    return entity() && entity()->multicastIntfHas(intf);
  }
  /// Each interface that the application has, again.
  void updateIntfs();
  /// What it had is gone before it leaves the list.
  void handleDel() { entityIs(nullptr); }

  VESK_REF(MulticastIntfsForApplications const, entity)

 private:
  void handleEntry(const std::string& name);
  void handleIntf(Pavlin::IntfId intf);

  Vesk::Watch entry_ = watch<&MulticastIntfsAppSm::handleEntry>(in.row, Vesk::Dir::entryStateAttr);
  Vesk::PathWatch intf_ = watchPath<&MulticastIntfsAppSm::handleIntf>(
      this, entityAttr, MulticastIntfsForApplications::multicastIntfAttr);
};

/// One VRF: the union over all applications.
class MulticastIntfsAppRootSm final : public Vesk::Machine {
  VESK_RECORD(Routing::Multicast::MulticastIntfsAppRootSm)
  struct Inputs {
    L3::VrfName vrfName;
    Ombra::Ptr<Vesk::Dir const> multicastAppDirRoot;
    bool operator==(const Inputs&) const = default;
  };
  explicit MulticastIntfsAppRootSm(Inputs inputs);
  const Inputs in;

  /// An interface may have come to, or gone from, one of the applications.
  void updateIntf(Pavlin::IntfId intf);

  VESK_VALUE(L3::VrfName, vrfName)
  VESK_MAP(Pavlin::IntfId, bool, multicastIntf)
  VESK_INSTANCES(std::string, MulticastIntfsAppSm, app)

 private:
  void handleApplication(const std::string& name);

  Vesk::Follow applications_ = follow<&MulticastIntfsAppRootSm::handleApplication>(
      in.multicastAppDirRoot, Vesk::Dir::entryStateAttr, appAttr);
};

/// The VRFs in which multicast is enabled.
class MulticastIntfsAppRootSmColl final : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::MulticastIntfsAppRootSmColl)
  VESK_INSTANCES(L3::VrfName, MulticastIntfsAppRootSm, vrfSm)
};

}  // namespace Routing::Multicast
