#include "host/play/Outputs.h"

#include <set>

#include "host/play/Watch.h"
#include "runtime/SharedMem.h"
#include "runtime/StateDatabase.h"

namespace Host {

bool isOutput(const Corvane::MountPath& mount) {
  return mount.isMounted() && mount.access == Corvane::Access::write &&
         mount.recordType() != nullptr;
}

Ombra::Ptr<Vesk::Entity> outputEntity(const Corvane::MountPath& mount) {
  if (mount.store() == Corvane::Store::stateDb)
    return Halden::StateDatabase::instance().create(mount.path, mount.type);
  return VeskSharedMem::EntityManager::getEntityManager()->open(mount.path, mount.type);
}

Outputs outputsOf(const World& world) {
  Outputs outputs;
  for (const auto& mount : Corvane::mountCatalog()) {
    if (!isOutput(mount)) continue;
    const Address address = Address::parse(mount.path);
    auto& lines = outputs[mount.path];
    if (const auto entity = world.root(address)) contentLines(*entity, AddressText(address), lines);
  }
  return outputs;
}

std::vector<Failure> differences(const Outputs& before, const Outputs& after) {
  std::vector<Failure> failures;
  for (const auto& [path, was] : before) {
    const auto& is = after.at(path);
    if (was == is) continue;
    const std::set<std::string> old(was.begin(), was.end());
    const std::set<std::string> now(is.begin(), is.end());
    for (const std::string& line : old)
      if (!now.contains(line)) failures.push_back({path, line, "no such row or value"});
    for (const std::string& line : now)
      if (!old.contains(line)) failures.push_back({path, "no such row or value", line});
  }
  return failures;
}

}  // namespace Host
