// The agent as the player sees it: a process that can be started, killed and started again. It may
// serve static flood lists besides.
// Owns: the agent object of the present life, and those of former lives, which are never destroyed:
// a process that is killed runs no destructor. Caveat: one per program; the stores that outlive the
// agent are not touched here.
#pragma once

#include <vector>

#include "agent/Explain.h"
#include "runtime/Entity.h"

namespace Host {

class AgentProcess {
 public:
  /// From here on each process also asks for the tunnels of configured flood lists, as the second
  /// client of the tunnel service.
  static void servesFloodListsIs(bool serves);
  /// The process exists, and has done nothing yet.
  void create();
  /// It runs its start.
  void begin();
  /// It is gone, as by kill -9.
  void crash();
  /// Why something is as it is; empty while no agent is there.
  [[nodiscard]] std::vector<Multicast::Vpn::Explanation> explain(
      const Multicast::Vpn::Question& question) const;
  /// The agent, null while none is there.
  [[nodiscard]] const Ombra::Ptr<Vesk::Entity>& root() const { return root_; }

 private:
  Ombra::Ptr<Vesk::Entity> root_;
  Ombra::Ptr<Vesk::Entity> floodLists_;
};

}  // namespace Host
