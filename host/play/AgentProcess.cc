#include "host/play/AgentProcess.h"

#include "agent/CorvaneAgent.h"
#include "runtime/Log.h"
#include "runtime/SharedMem.h"
#include "runtime/StateDatabase.h"
#include "runtime/Task.h"

namespace Host {
namespace {

/// Memory of dead processes: reachable, so that a leak checker stays silent, and never touched
/// again.
std::vector<Ombra::Ptr<Vesk::Entity>>& graveyard() {
  static auto& dead = *new std::vector<Ombra::Ptr<Vesk::Entity>>;
  return dead;
}

}  // namespace

void AgentProcess::create() {
  root_ = Multicast::Vpn::Agent::AgentIs("Corvane");
}

void AgentProcess::begin() {
  static_cast<Multicast::Vpn::Agent&>(*root_).start();
}

std::vector<Multicast::Vpn::Explanation> AgentProcess::explain(
    const Multicast::Vpn::Question& question) const {
  if (!root_) return {};
  return Multicast::Vpn::explain(static_cast<const Multicast::Vpn::Agent&>(*root_), question);
}

void AgentProcess::crash() {
  graveyard().push_back(std::move(root_));
  root_ = nullptr;
  Vesk::Publisher::dropWrites();
  Halden::StateDatabase::instance().dropSubscribers();
  Sylva::TaskSchedulerRoot::findOrCreateScheduler()->reset();
  VeskSharedMem::EntityManager::forgetProcess();
  Vesk::LogHandle::resetAll();
}

}  // namespace Host
