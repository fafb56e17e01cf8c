// Notes who reads and who writes what while a scenario is played: reading is a subscription of a
// machine, writing a change that comes in a machine's turn.
// Owns: observers of the agent's outputs and of its own records. Reads: the listeners of every
// entity below a mount or below the agent. Writes: a line for each new fact, into a file that many
// plays may share. Caveat: what a machine reads without a subscription is not seen.
#pragma once

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/Wiring.h"
#include "host/play/World.h"
#include "runtime/TreeObserver.h"

namespace Host {

class WiringNotes {
 public:
  WiringNotes(World& world, std::filesystem::path file);
  ~WiringNotes();

  /// The agent exists and has done nothing yet.
  void agentBegins();
  /// The world is at rest; the subscriptions of this moment are noted.
  void rests();

 private:
  class Writers;
  void noteReaders(const Vesk::Entity& entity, std::string_view end);
  void note(std::string_view machine, Wire wire, std::string_view end);

  World& world_;
  const std::filesystem::path file_;
  std::vector<std::unique_ptr<Writers>> writers_;
  std::set<std::string> lines_;
};

}  // namespace Host
