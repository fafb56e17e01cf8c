// The central state database: a tree of directories and entities that agents publish in and read
// from. Owns: the tree, which outlives the agent. An agent sees it through an EntityManager, at the
// paths that its mount profile lists; the profile is a data file (profiles/<name>.yaml). The tree
// is in-process behind this interface, so that another store can stand behind it.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/Dir.h"

namespace Halden {

enum class MountStatus { success, failed };
constexpr MountStatus mountSuccess() {
  return MountStatus::success;
}

/// One line of a mount profile.
struct ProfileEntry {
  std::string path;
  std::string type;
  bool write = false;
};
struct MountProfile {
  std::string name;
  std::vector<ProfileEntry> entries;
};

/// Where profiles are read from, anew from here on; the build's own directory unless the host says
/// otherwise.
void profileDirIs(std::string directory);
/// Reads <directory>/<name>.yaml. Throws Orlane::ConfigError that names file, path, key and value:
/// unreadable file, unknown key, a type that no record has, a path twice, an access other than read
/// or write.
[[nodiscard]] MountProfile loadProfile(const std::string& name);

/// The store itself.
class StateDatabase {
 public:
  /// The database of this process.
  static StateDatabase& instance();

  [[nodiscard]] const Ombra::Ptr<Vesk::Dir>& root() const { return root_; }
  /// The entity at the path, or null.
  [[nodiscard]] Ombra::Ptr<Vesk::Entity> find(std::string_view path) const;
  /// The entity at the path; made, with the directories above it, if it is not there. Null if the
  /// type is unknown or something on the way is not a directory.
  Ombra::Ptr<Vesk::Entity> create(std::string_view path, std::string_view type);
  /// Removes the entity at the path; no error if there is none.
  void remove(std::string_view path);
  /// The agent that listened has died: its subscriptions are forgotten, everything it published
  /// stays.
  void dropSubscribers();

 private:
  StateDatabase();
  Ombra::Ptr<Vesk::Dir> root_;
};

/// Whoever asks for mounts and is told when they are complete.
class Mounter {
 public:
  virtual void haldenMountsDone(MountStatus status) = 0;

 protected:
  ~Mounter() = default;
};

class EntityManager;

class MountGroup : public Ombra::Node {
 public:
  MountGroup(EntityManager* manager, Mounter* mounter) : manager_(manager), mounter_(mounter) {}
  /// Asks for every path of the named profile, which is read once.
  void doMountAll(const std::string& profile);
  /// No more paths come. When all are mounted the mounter is told, inside this call.
  void doClose(bool wait, const std::string& name, double duration);

 private:
  EntityManager* manager_;
  Mounter* mounter_;
  std::vector<ProfileEntry> wanted_;
};

/// An agent's view of the database: the paths that it has mounted.
class EntityManager : public Ombra::Node {
 public:
  [[nodiscard]] Ombra::Ptr<MountGroup> getMountGroup(Mounter* mounter);
  /// The entity at a mounted path; null if the path is not mounted. The caller casts it to the
  /// expected type.
  [[nodiscard]] Ombra::Ptr<Vesk::Entity> getEntity(const std::string& path) const;

 private:
  friend class MountGroup;
  MountStatus mount(const ProfileEntry& entry);
  std::set<std::string, std::less<>> mounted_;
};

}  // namespace Halden
