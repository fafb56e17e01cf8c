// Shared-memory tables as the agent sees them: entities at paths whose rows live in mapped files.
// Owns: one entity per path for the process's life. A table's content survives unmounting, the
// agent and the process; what a dead process left is there at the next mount. A write to a table
// that is mounted to be written is in its file when the write returns; a table grows, and a row
// beyond its limit is reported and waits. A table that is mounted to be read is as another process
// has it. Runs: whoever drives the scheduler calls wakeReaders between slices, and takeUpChanges
// whenever waitForChanges returns.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/Reflect.h"
#include "runtime/RowFile.h"

namespace VeskBriskel {

/// 0 writes the table, 1 and 3 read it.
enum class VeskBriskelType : std::uint8_t { writer = 0, reader = 1, readerTracked = 3 };

/// Sizes one collection of a table.
struct CollectionInfo : VeskSharedMem::CollectionSize {
  bool flag = false;
};

class MountInfo {
 public:
  explicit MountInfo(VeskBriskelType type) : type_(type) {}
  /// Name, maximum entries, flag. The flag has no meaning here.
  MountInfo& collectionInfoIs(CollectionInfo info) {
    collections_.push_back(std::move(info));
    return *this;
  }
  [[nodiscard]] VeskBriskelType type() const { return type_; }
  [[nodiscard]] std::vector<VeskSharedMem::CollectionSize> collections() const {
    return {collections_.begin(), collections_.end()};
  }

 private:
  VeskBriskelType type_;
  std::vector<CollectionInfo> collections_;
};

}  // namespace VeskBriskel

namespace VeskSkarel {

/// Mount flags of a nested entity, in the order in which mounts give them. The second says that it
/// is read here and written by another process.
struct MountInfo {
  bool first = false;
  bool second = false;
  bool third = false;
};

}  // namespace VeskSkarel

namespace VeskSharedMem {

class SharedEntity;
class TableWaiter;

/// A group of mounts that are made when it is closed.
class MountGroup;

class EntityManager {
 public:
  /// The manager of this process; all names give the same one.
  static EntityManager* getEntityManager(std::string_view name = {}, bool create = true);
  /// The process is played dead: its entities are forgotten, the files stay. The next use opens
  /// them anew.
  static void forgetProcess();
  /// Where the files are; before the first use. Made if it is not there. Throws TableError if that
  /// fails.
  static void directoryIs(const std::string& directory);
  [[nodiscard]] static const std::string& directory();

  ~EntityManager();

  /// Mounts at once and returns the entity. Throws TableError for a file of another layout, and in
  /// a mount to write for one that a living process has claimed; nothing is mounted then.
  Ombra::Ptr<Vesk::Entity> doMount(const std::string& path, std::string_view typeName,
                                   const VeskBriskel::MountInfo&);
  Ombra::Ptr<Vesk::Entity> doMount(const std::string& path, std::string_view typeName,
                                   VeskSkarel::MountInfo);
  /// The mounted entity, or null.
  [[nodiscard]] Ombra::Ptr<Vesk::Entity> getEntity(const std::string& path) const;
  /// The entity stays and so do its rows; it is no longer reached by getEntity.
  void doUnmount(const std::string& path);
  /// Clears a mounted table, with notification; touches nothing on a path that is not mounted.
  void cleanup(const std::string& path);
  [[nodiscard]] std::unique_ptr<MountGroup> getMountGroup();
  /// An entity that is not yet marked safe to read. Every mount here is complete when it returns,
  /// so all are.
  void assertSafeToAccess(const Ombra::Ptr<const Vesk::Entity>& entity,
                          std::string_view name) const;

  /// The entity at a path, claimed for this process to write, mounted or not. For whoever plays
  /// other agents.
  Ombra::Ptr<Vesk::Entity> open(const std::string& path, std::string_view typeName);
  /// The entity at a path to look at, without a claim.
  [[nodiscard]] Ombra::Ptr<Vesk::Entity> peek(const std::string& path, std::string_view typeName);
  /// Gives up the claim on each table that is not mounted to be written: whoever played other
  /// agents leaves, and others may come.
  void leaveToOthers();

  /// Takes up what other processes have written, a key at a time, so that reactors run per changed
  /// key. False if `mustStop` ended it before all was done. A file that is refused is reported as
  /// corruption of its table, and the table does without.
  bool takeUpChanges(const std::function<bool()>& mustStop);
  /// Sleeps until there is something to take up, at most so long; a signal ends it too.
  void waitForChanges(std::chrono::milliseconds timeout);
  /// The end of a batch: rouses the processes that sleep on tables which this one has changed.
  void wakeReaders();

  /// The process ends in order, though without destructors: it is not named as a writer any more.
  void signOff();

  /// Path of the table that holds this entity; empty if none does.
  [[nodiscard]] std::string pathOf(const Vesk::Entity& entity) const;
  /// Marks a row damaged, or takes the mark away, in the entity and in its file.
  void corruptIs(Vesk::Entity& holder, const Vesk::FieldInfo& field, std::string_view key,
                 bool corrupt);

 private:
  EntityManager();
  /// Null if there is none.
  [[nodiscard]] SharedEntity* find(const std::string& path) const;
  /// The table, made if need be, and with the claim or following.
  SharedEntity& table(const std::string& path, std::string_view typeName, bool isWriter,
                      const std::vector<CollectionSize>& sizes = {});
  Ombra::Ptr<Vesk::Entity> mount(const std::string& path, std::string_view typeName, bool isWriter,
                                 const std::vector<CollectionSize>& sizes);

  std::map<std::string, std::unique_ptr<SharedEntity>, std::less<>> tables_;
  std::unique_ptr<TableWaiter> waiter_;
};

class MountGroup {
 public:
  explicit MountGroup(EntityManager* manager) : manager_(manager) {}
  void doMount(const std::string& path, std::string_view typeName,
               const VeskBriskel::MountInfo& info) {
    wanted_.push_back({path, std::string(typeName), info, {}, true});
  }
  void doMount(const std::string& path, std::string_view typeName, VeskSkarel::MountInfo info) {
    wanted_.push_back({path, std::string(typeName), VeskBriskel::MountInfo({}), info, false});
  }
  /// Performs the mounts, in the order in which they were asked for.
  void doClose();

 private:
  struct Wanted {
    std::string path;
    std::string typeName;
    VeskBriskel::MountInfo briskel;
    VeskSkarel::MountInfo skarel;
    bool isBriskel;
  };
  EntityManager* manager_;
  std::vector<Wanted> wanted_;
};

}  // namespace VeskSharedMem
