// Shared-memory tables as the agent sees them: entities at paths whose rows live in mapped files.
// Owns: one entity per path for the process's life, and for each of its collections the file that
// holds its rows. A table's content survives unmounting, the agent and the process; what a dead
// process left is there at the next mount. A write to such an entity is in its file when the write
// returns. A full table ends the process with its name.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/Reflect.h"

namespace VeskBriskel {

/// 0 writes the table, 1 and 3 read it.
enum class VeskBriskelType : std::uint8_t { writer = 0, reader = 1, readerTracked = 3 };

/// Sizes one collection of a table.
struct CollectionInfo {
  std::string name;
  std::uint32_t maxEntries;
  bool flag = false;
};

class MountInfo {
 public:
  explicit MountInfo(VeskBriskelType type) : type_(type) {}
  MountInfo& collectionInfoIs(CollectionInfo info) {
    collections_.push_back(std::move(info));
    return *this;
  }
  [[nodiscard]] VeskBriskelType type() const { return type_; }
  [[nodiscard]] const std::vector<CollectionInfo>& collections() const { return collections_; }

 private:
  VeskBriskelType type_;
  std::vector<CollectionInfo> collections_;
};

}  // namespace VeskBriskel

namespace VeskSkarel {

/// Mount flags of a nested entity, in the order in which mounts give them.
struct MountInfo {
  bool first = false;
  bool second = false;
  bool third = false;
};

}  // namespace VeskSkarel

namespace VeskSharedMem {

class SharedEntity;

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

  /// Mounts at once and returns the entity. Throws TableError for a file of another layout or a
  /// writer that lives.
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

  /// The entity at a path, opened if its files are there or made empty, mounted or not. For whoever
  /// plays other agents.
  Ombra::Ptr<Vesk::Entity> open(const std::string& path, std::string_view typeName);
  /// The same without making anything: null if nobody has opened it and no file is there.
  [[nodiscard]] Ombra::Ptr<Vesk::Entity> peek(const std::string& path, std::string_view typeName);
  /// Path of the table that holds this entity; empty if none does.
  [[nodiscard]] std::string pathOf(const Vesk::Entity& entity) const;
  /// Marks a row damaged, or takes the mark away, in the entity and in its file.
  void corruptIs(Vesk::Entity& holder, const Vesk::FieldInfo& field, std::string_view key,
                 bool corrupt);

 private:
  EntityManager() = default;
  SharedEntity& table(const std::string& path, std::string_view typeName,
                      const std::vector<VeskBriskel::CollectionInfo>& sizes);
  std::map<std::string, std::unique_ptr<SharedEntity>, std::less<>> tables_;
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
