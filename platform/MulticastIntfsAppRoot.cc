#include "platform/MulticastIntfsAppRoot.h"

namespace Routing::Multicast {

MulticastIntfsAppSm::MulticastIntfsAppSm(Inputs inputs) : in(std::move(inputs)) {
  handleEntry(std::string(in.parent->vrfName().str()));
}

void MulticastIntfsAppSm::handleEntry(const std::string& name) {
  if (name != in.parent->vrfName().str()) return;
  entityIs(
      boost::dynamic_pointer_cast<MulticastIntfsForApplications const>(in.row->entityPtr(name)));
}

void MulticastIntfsAppSm::handleIntf(Pavlin::IntfId intf) {
  in.parent->updateIntf(intf);
}

void MulticastIntfsAppSm::updateIntfs() {
  if (!entity()) return;
  for (const auto& [intf, enabled] : entity()->multicastIntfIterator())
    handleIntf(intf);
}

MulticastIntfsAppRootSm::MulticastIntfsAppRootSm(Inputs inputs) : in(std::move(inputs)) {
  vrfNameIs(in.vrfName);
  applications_.beginWithHandler();
}

void MulticastIntfsAppRootSm::handleApplication(const std::string& name) {
  // The application was not in the list while it was made.
  if (const auto application = app(name)) application->updateIntfs();
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
