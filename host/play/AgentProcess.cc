#include "host/play/AgentProcess.h"

#include "agent/CorvaneAgent.h"
#include "runtime/Log.h"
#include "runtime/SharedMem.h"
#include "runtime/StateDatabase.h"
#include "runtime/Task.h"
#include "tunnel/McastTunnelConfigSm.h"

namespace Host {
namespace {

/// Memory of dead processes: reachable, so that a leak checker stays silent, and never touched
/// again.
std::vector<Ombra::Ptr<Vesk::Entity>>& graveyard() {
  static auto& dead = *new std::vector<Ombra::Ptr<Vesk::Entity>>;
  return dead;
}

bool servesFloodLists = false;

Ombra::Ptr<Vesk::Entity> floodListsOfAll() {
  using namespace Multicast::Tunnel;
  using Requests = IrVxlanIpv4TunnelRequestTable;
  using Vxlan::VxlanConfigDir;
  const auto configs = Halden::StateDatabase::instance().create(VxlanConfigDir::mountPath(),
                                                                VxlanConfigDir::veskName);
  const auto requests = VeskSharedMem::EntityManager::getEntityManager()->open(
      Requests::mountPath(McastTunnelClientType::client2), Requests::veskName);
  return mcastTunnelConfigSmFactory(boost::dynamic_pointer_cast<VxlanConfigDir const>(configs),
                                    boost::dynamic_pointer_cast<Requests>(requests));
}

}  // namespace

void AgentProcess::servesFloodListsIs(bool serves) {
  servesFloodLists = serves;
}

void AgentProcess::create() {
  root_ = Multicast::Vpn::Agent::AgentIs("Corvane");
}

void AgentProcess::begin() {
  static_cast<Multicast::Vpn::Agent&>(*root_).start();
  if (servesFloodLists) floodLists_ = floodListsOfAll();
}

std::vector<Multicast::Vpn::Explanation> AgentProcess::explain(
    const Multicast::Vpn::Question& question) const {
  if (!root_) return {};
  return Multicast::Vpn::explain(static_cast<const Multicast::Vpn::Agent&>(*root_), question);
}

void AgentProcess::crash() {
  for (auto* object : {&root_, &floodLists_}) {
    graveyard().push_back(std::move(*object));
    *object = nullptr;
  }
  Vesk::Publisher::dropWrites();
  Halden::StateDatabase::instance().dropSubscribers();
  Sylva::TaskSchedulerRoot::findOrCreateScheduler()->reset();
  VeskSharedMem::EntityManager::forgetProcess();
  Vesk::LogHandle::resetAll();
}

}  // namespace Host
