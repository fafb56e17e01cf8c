// The base of an agent process: its start, its mounts, and what the supervisor tells it.
// Owns: the agent's view of the state database. Reads: the redundancy status of this supervisor.
// Runs: `start` once, by the host; from it doInit, and doMountsComplete when the mounts are done.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "records/Redundancy.h"
#include "runtime/Record.h"
#include "runtime/SharedMem.h"
#include "runtime/StateDatabase.h"

namespace Orlane {

/// The shared group of deferred shared-memory mounts of an agent.
class Mounter : public Halden::Mounter {
 public:
  [[nodiscard]] VeskSharedMem::MountGroup& getShmemMountGroup();
  void haldenMountsDone(Halden::MountStatus status) override { doHaldenMountsComplete(status); }
  /// The runtime's step that leads to doMountsComplete.
  virtual void doHaldenMountsComplete(Halden::MountStatus status) = 0;

 protected:
  ~Mounter() = default;

 private:
  std::unique_ptr<VeskSharedMem::MountGroup> shmemMountGroup_;
};

class CAgent : public Vesk::Entity, public Mounter {
 public:
  explicit CAgent(std::string name);

  [[nodiscard]] const std::string& agentName() const { return name_; }
  /// The process begins.
  void start();
  /// The state of this supervisor.
  [[nodiscard]] const Ombra::Ptr<Redundancy::RedundancyStatus const>& redundancyStatus() const {
    return redundancyStatus_;
  }
  [[nodiscard]] const Ombra::Ptr<Halden::EntityManager>& entityManager() const {
    return entityManager_;
  }
  [[nodiscard]] virtual VeskSharedMem::EntityManager* getShmemEntityManager();

  /// A stage that this agent waits for has begun.
  virtual void doStage(const std::string& stageClass, const std::string& stage) = 0;

 protected:
  /// Largest block, in bytes, that the allocator may keep aside without merging it with its
  /// neighbours. None by default: a hundred thousand of them would be merged in one go, in the
  /// middle of somebody's slice.
  [[nodiscard]] virtual int getDefaultFastbinLimit() const { return 0; }
  virtual void doInit() = 0;
  virtual void doMountsComplete(Halden::MountStatus status,
                                const Ombra::Ptr<Halden::EntityManager>& em) = 0;
  void doHaldenMountsComplete(Halden::MountStatus status) override {
    doMountsComplete(status, entityManager_);
  }

 private:
  std::string name_;
  Ombra::Ptr<Halden::EntityManager> entityManager_;
  Ombra::Ptr<Redundancy::RedundancyStatus const> redundancyStatus_;
};

}  // namespace Orlane
