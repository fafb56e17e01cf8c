// Tells what a scenario does, with an agent that dies inside one of its writes and another that
// comes after it. Owns: the world of the story. Reads: the steps that act; what a step expects is
// not asked, since the delays of another agent start anew.
//
// The agent dies as by kill -9, between two instructions: it runs on a thread that stops inside the
// write and never goes on. Nothing on that stack is unwound, so no line and no destructor of the
// agent runs any more. The stores are whole at that point, for they tell of a write when it is
// done. (An exception would unwind the agent, and a process of its own would take the state
// database along.) Caveat: once per process, which ends without destructors.
#pragma once

#include <cstddef>
#include <limits>
#include <memory>
#include <optional>
#include <semaphore>
#include <vector>

#include "host/play/Outputs.h"
#include "host/play/Scenario.h"
#include "host/play/World.h"
#include "runtime/Machine.h"
#include "runtime/TreeObserver.h"

namespace Host {

class MortalStory {
 public:
  struct Result {
    std::size_t writes = 0;  ///< of the first agent, and of those that the story brings up itself
    std::optional<std::size_t> deadIn;  ///< index of the step; that after the last: at rest
    Outputs
        settled;  ///< at rest after the step of the death; without one, after another at the end
    Outputs end;  ///< at rest after the last step
    std::vector<Failure> failures;
  };

  /// A write that never comes.
  static constexpr std::size_t never = std::numeric_limits<std::size_t>::max();

  /// Tells the first `steps` steps. The agent dies in this write, counted from 1.
  MortalStory(const Scenario& scenario, std::size_t steps, std::size_t deadlyWrite);
  /// Steps that fail are among the failures of the result.
  Result tell();

 private:
  class Writes;

  void tellFrom(std::size_t step);
  void act(const Step& step);
  void begin();
  void wrote();
  void takeOver();
  void settle();
  void rests(bool atRest);
  void note(const std::vector<Failure>& failures);

  const Scenario& scenario_;
  std::size_t steps_;
  std::size_t deadlyWrite_;
  World world_;
  Ombra::Ptr<Vesk::Machine> listener_;
  std::vector<std::unique_ptr<Vesk::TreeObserver>> outputs_;
  bool isMortal_ = true;
  std::size_t step_ = 0;
  double stepEnd_ = 0;
  Result result_;
  std::binary_semaphore isOver_{0};  ///< the agent is dead, or the story is told
};

}  // namespace Host
