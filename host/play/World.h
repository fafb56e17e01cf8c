// Everything around the agent in one scenario: the stores, the time, the turns, and the agent
// itself. Owns: the played clock and the yield policy. Reads and writes: whatever an address names.
// Runs: the scheduler, when a step asks for it. Caveat: one per process, since the stores are the
// process's.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/play/Address.h"
#include "host/play/AgentProcess.h"
#include "host/play/Content.h"
#include "runtime/Clock.h"
#include "runtime/Task.h"

namespace Host {

/// What a step did not find as it should be.
struct Failure {
  std::string address;
  std::string expected;
  std::string found;
};

/// The world never comes to rest.
inline const Failure restless{"scheduler", "comes to rest", "tasks schedule each other for ever"};
/// Seconds after which nothing is under way any more, if the world comes to rest at all.
inline constexpr double settleTime = 60;

/// What stands at an address.
struct Found {
  Ombra::Ptr<Vesk::Entity> entity;  ///< the entity that is named, if the address names one
  Ombra::Ptr<Vesk::Entity>
      holder;  ///< else the entity that holds what is named; null if the way there is broken
  const Vesk::FieldInfo* field = nullptr;
};

class World {
 public:
  explicit World(std::size_t slice);

  // time and turns
  [[nodiscard]] double now() const { return clock_.now(); }
  /// Until nothing is runnable, or as many slices; false if it does not come to rest.
  bool run(std::size_t slices = Sylva::TaskScheduler::unlimited);
  bool advance(double seconds);
  /// Time runs by itself from here on, and whatever tables the agent does not write are left to
  /// other processes and followed.
  void stay(const std::function<bool()>& isOver);

  // the agent
  [[nodiscard]] AgentProcess& agent() { return agent_; }

  // reading
  /// The entity at the address's root, or null.
  [[nodiscard]] Ombra::Ptr<Vesk::Entity> root(const Address& address) const;
  /// A path that nobody has written reads as empty.
  [[nodiscard]] Found find(const Address& address) const;

  // writing
  /// Returns what could not be done.
  std::vector<Failure> write(const Address& address, const Content& patch);
  std::vector<Failure> corrupt(const Address& address);

 private:
  void writePath(const std::string& path, const Content& patch);
  void patchEntity(Vesk::Entity& entity, const std::string& path, const Content& patch);
  void patchField(Vesk::Entity& entity, const Vesk::FieldInfo& field, const std::string& path,
                  const Content& patch);
  void patchEntry(Vesk::Entity& entity, const Vesk::FieldInfo& field, const std::string& key,
                  const std::string& path, const Content& patch);
  /// Makes and stores an entity where there is none yet; filled first if it shall appear whole.
  void patchChild(Vesk::Entity& owner, const Vesk::FieldInfo& field, const std::string& key,
                  const Content& patch);
  Ombra::Ptr<Vesk::Entity> made(const Vesk::RecordType& type, const std::string& key);
  void cannot(const std::string& text);

  Vesk::ManualClock clock_;
  Sylva::ItemYield yield_;
  Sylva::TaskScheduler* scheduler_;
  AgentProcess agent_;
  std::string writing_;
  std::vector<Failure> failures_;
};

}  // namespace Host
