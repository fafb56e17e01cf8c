// The agent's trace ring and its mounts, as the list of mounts has them. The order of mounting is
// the order in which inputs may be relied on.
#include <cstdlib>
#include <sstream>

#include "agent/CorvaneAgent.h"
#include "platform/Cell.h"
#include "platform/Toggles.h"
#include "runtime/Assert.h"
#include "runtime/Fleetlog.h"
#include "runtime/Trace.h"

namespace Multicast::Vpn {
namespace {

using Corvane::AtShutdown;
using Corvane::Moment;
using Corvane::Mounting;
using Corvane::MountPath;

Vesk::TraceHandle trace("CorvaneAgent");

VeskSharedMem::EntityManager& shmem() {
  return *VeskSharedMem::EntityManager::getEntityManager();
}

/// Asks the manager, or a group, for a table.
template <class Mounter>
void askFor(const MountPath& mount, Mounter& mounter) {
  if (const auto* table = std::get_if<VeskBriskel::MountInfo>(&mount.info))
    mounter.doMount(mount.path, mount.type, *table);
  if (const auto* nested = std::get_if<VeskSkarel::MountInfo>(&mount.info))
    mounter.doMount(mount.path, mount.type, *nested);
}

/// Whether the entry concerns the family, or the agent as a whole, at present.
[[nodiscard]] bool applies(const MountPath& mount, Pavlin::AddressFamily af, bool isStandby) {
  return mount.isMounted() && mount.af == af && holds(mount.condition, isStandby);
}

/// Sizes of the ring's buffers, with those that the environment gives in place of the first ones.
[[nodiscard]] Fleetlog::Sizes ringSizes() {
  Fleetlog::Sizes sizes{30, 30, 30, 30, 30, 30, 30, 90, 90, 90};
  const char* given = std::getenv("PIMFLSIZE");
  if (given == nullptr) return sizes;
  std::istringstream tokens(given);
  std::string token;
  std::size_t i = 0;
  for (; i < sizes.size() && tokens >> token; ++i)
    sizes[i] = static_cast<unsigned>(std::strtoul(token.c_str(), nullptr, 10));
  if (auto t = trace.at(1)) t << ", using new fleetlog sizes";
  for (std::size_t k = 0; k < sizes.size(); ++k)
    if (auto t = trace.at(1)) t << "  FL buffer " << k << " " << sizes[k];
  if (i == sizes.size() && tokens >> token)
    fmt::print(stderr, "PIMFLSIZE: more than {} sizes, '{}' and what follows are ignored\n",
               sizes.size(), token);
  return sizes;
}

}  // namespace

void Agent::setupFlBuffer() {
  if (std::getenv("FLEETLOG_DISABLE") != nullptr) return;
  std::string fileName = agentName();
  if (std::getenv("FLEETLOGDIR") == nullptr) fileName += "-%d";
  fileName += ".fl";
  Fleetlog::initialize(fileName, ringSizes(), nullptr, 0, 24, 0, true, 512);
}

void Agent::doSkarelMount() {
  auto& group = getShmemMountGroup();
  for (const MountPath& mount : Corvane::mountCatalog())
    if (mount.mounting == Mounting::deferred && holds(mount.condition, standbyMode()))
      askFor(mount, group);
  group.doClose();
}

void Agent::doBriskelMount(Pavlin::AddressFamily af) {
  for (const MountPath& mount : Corvane::mountCatalog()) {
    if (!applies(mount, af, standbyMode())) continue;
    if (mount.mounting == Mounting::startup) {
      askFor(mount, shmem());
    } else if (mount.mounting == Mounting::group) {
      const auto group = shmem().getMountGroup();
      askFor(mount, *group);
      group->doClose();
    }
  }
  keepMounts(Moment::startup, af);
}

void Agent::doBriskelMountAf(Pavlin::AddressFamily af) {
  AfContainer& container = *afContainer(af);
  if (toggleOismGatewayEnabled()) container.electedDfStatusDirIs();
  const auto joins = container.membershipJoinStatusCollIs();
  doBriskelMount(af);
  const auto leakCtx = container.mcastVrfLeakCtx();
  leakCtx->mcastIrbStatusIs(container.mcastIrbStatus());
  leakCtx->vxlanEnabledStatusIs(vxlanEnabledStatus());
  joins->mcastVrfLeakCtxIs(leakCtx);
}

void Agent::doBriskelUnmount(Pavlin::AddressFamily af) {
  for (const MountPath& mount : Corvane::mountCatalog()) {
    if (mount.atShutdown == AtShutdown::stays || !applies(mount, af, standbyMode())) continue;
    if (mount.atShutdown == AtShutdown::cleaned) shmem().cleanup(mount.path);
    shmem().doUnmount(mount.path);
  }
}

void Agent::clearLeftovers() {
  for (const auto af : {noFamily, Pavlin::ipv4(), Pavlin::ipv6()})
    for (const MountPath& mount : Corvane::mountCatalog()) {
      // The memberships, which have a group of their own, are not among these.
      const bool isOutput =
          mount.mounting == Mounting::startup && mount.access == Corvane::Access::write;
      if (!isOutput || !applies(mount, af, standbyMode())) continue;
      askFor(mount, shmem());
      shmem().cleanup(mount.path);
      shmem().doUnmount(mount.path);
    }
  for (const auto af : Pavlin::families)
    for (const auto& domain : afContainer(af)->domainContainers())
      domain->clearGroupStatus();
}

void Agent::keepMounts(Moment moment, Pavlin::AddressFamily af) {
  for (const MountPath& mount : Corvane::mountCatalog()) {
    if (mount.kept != moment || !applies(mount, af, standbyMode())) continue;
    const auto entity = entityOf(mount);
    if (!entity) Ombra::fatal(fmt::format("{}: no {} is mounted here", mount.path, mount.type));
    mount.keep(*this, mount, entity);
  }
}

Ombra::Ptr<Vesk::Entity> Agent::entityOf(const MountPath& mount) const {
  if (mount.store() != Corvane::Store::stateDb) return shmem().getEntity(mount.path);
  const bool isOfStage = mount.kept == Moment::standby;
  return entityManager()->getEntity(isOfStage ? Cell::path(mount.path) : mount.path);
}

}  // namespace Multicast::Vpn
