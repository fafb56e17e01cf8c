#include "platform/CAgent.h"

#include <malloc.h>

namespace Orlane {

VeskSharedMem::MountGroup& Mounter::getShmemMountGroup() {
  if (!shmemMountGroup_)
    shmemMountGroup_ = VeskSharedMem::EntityManager::getEntityManager()->getMountGroup();
  return *shmemMountGroup_;
}

CAgent::CAgent(std::string name)
    : name_(std::move(name)),
      entityManager_(Ombra::make<Halden::EntityManager>()),
      redundancyStatus_(boost::dynamic_pointer_cast<Redundancy::RedundancyStatus>(
          Halden::StateDatabase::instance().create(Redundancy::RedundancyStatus::mountPath(),
                                                   Redundancy::RedundancyStatus::veskName))) {}

void CAgent::start() {
  mallopt(M_MXFAST, getDefaultFastbinLimit());
  doInit();
}

VeskSharedMem::EntityManager* CAgent::getShmemEntityManager() {
  return VeskSharedMem::EntityManager::getEntityManager(name_, true);
}

}  // namespace Orlane
