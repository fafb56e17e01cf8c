#include "platform/MulticastIntfsAppRoot.h"

namespace Routing::Multicast {

MulticastIntfsAppSm::MulticastIntfsAppSm(Inputs inputs) : in(std::move(inputs)) {
  handleEntry(std::string(in.parent->vrfName().str()));
}

void MulticastIntfsAppSm::handleEntry(const std::string& name) {
  if (name != in.parent->vrfName().str()) return;
  entityMoves(
      boost::dynamic_pointer_cast<MulticastIntfsForApplications const>(in.dir->entityPtr(name)));
}

void MulticastIntfsAppSm::handleIntf(Pavlin::IntfId intf) {
  in.parent->updateIntf(intf);
}

void MulticastIntfsAppSm::entityMoves(const Ombra::Ptr<MulticastIntfsForApplications const>& to) {
  const Ombra::Ptr<MulticastIntfsForApplications const> from = entity();
  if (from == to) return;
  entityIs(to);
  intfWatch_.inputIs(to);
  for (const auto& side : {from, to}) {
    if (!side) continue;
    for (const auto& [intf, enabled] : side->multicastIntfIterator())
      in.parent->updateIntf(intf);
  }
}

MulticastIntfsAppRootSm::MulticastIntfsAppRootSm(Inputs inputs) : in(std::move(inputs)) {
  if (!in.multicastAppDirRoot) return;
  for (const auto& [name, entity] : in.multicastAppDirRoot->entryStateIterator())
    handleApplication(name);
}

void MulticastIntfsAppRootSm::handleApplication(const std::string& name) {
  const auto dir =
      boost::dynamic_pointer_cast<Vesk::Dir const>(in.multicastAppDirRoot->entityPtr(name));
  const Ombra::Ptr<MulticastIntfsAppSm> present = app(name);
  if (present && present->in.dir == dir) return;
  if (present) {
    const Ombra::Ptr<MulticastIntfsForApplications const> left = present->entity();
    appDel(name);
    if (left)
      for (const auto& [intf, enabled] : left->multicastIntfIterator())
        updateIntf(intf);
  }
  if (!dir) return;
  const auto made = appIs(name, {.parent = this, .dir = dir});
  if (made->entity())  // the application was not in the list while it was made
    for (const auto& [intf, enabled] : made->entity()->multicastIntfIterator())
      updateIntf(intf);
}

void MulticastIntfsAppRootSm::updateIntf(Pavlin::IntfId intf) {
  bool present = false;
  for (const auto& [name, application] : appIterator())
    present = present || application->has(intf);
  if (present) {
    multicastIntfIs(intf, true);
  } else {
    multicastIntfDel(intf);
  }
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::MulticastIntfsAppSm)
VESK_REGISTER(Routing::Multicast::MulticastIntfsAppRootSm)
VESK_REGISTER(Routing::Multicast::MulticastIntfsAppRootSmColl)
