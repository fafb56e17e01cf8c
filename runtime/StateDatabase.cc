#include "runtime/StateDatabase.h"

#include <ios>
#include <map>

#include <fmt/format.h>
#include <yaml-cpp/yaml.h>

#include "runtime/Toggle.h"

namespace Halden {
namespace {

std::string& profileDir() {
  static std::string directory = CORVANE_PROFILE_DIR;
  return directory;
}

/// Profiles that were read from there: to read one takes longer than to mount all that it lists.
std::map<std::string, MountProfile>& knownProfiles() {
  static std::map<std::string, MountProfile> profiles;
  return profiles;
}

[[noreturn]] void refuse(const std::string& file, const YAML::Node& at, const std::string& text) {
  throw Orlane::ConfigError(fmt::format("{}:{}: {}", file, at.Mark().line + 1, text));
}

std::string textOf(const std::string& file, const YAML::Node& node) {
  if (!node.IsScalar()) refuse(file, node, "a text is expected here");
  return node.as<std::string>();
}

ProfileEntry entryOf(const std::string& file, const YAML::Node& node) {
  if (!node.IsMap()) refuse(file, node, "mount must be a mapping of path, type and access");
  ProfileEntry entry;
  std::string access = "read";
  for (const auto& pair : node) {
    const auto key = textOf(file, pair.first);
    if (!pair.second.IsScalar()) refuse(file, pair.second, fmt::format("'{}' must be a text", key));
    const auto value = pair.second.as<std::string>();
    if (key == "path") {
      entry.path = value;
    } else if (key == "type") {
      entry.type = value;
    } else if (key == "access") {
      access = value;
    } else {
      refuse(file, pair.first, fmt::format("unknown key '{}' of a mount", key));
    }
  }
  if (entry.path.empty()) refuse(file, node, "a mount has no path");
  if (('/' + entry.path + '/').find("//") != std::string::npos)
    refuse(file, node, fmt::format("path '{}': a name in it is empty", entry.path));
  if (Vesk::RecordType::find(entry.type) == nullptr)
    refuse(file, node, fmt::format("path '{}': unknown type '{}'", entry.path, entry.type));
  if (access != "read" && access != "write")
    refuse(file, node,
           fmt::format("path '{}': access '{}' is neither read nor write", entry.path, access));
  entry.write = access == "write";
  return entry;
}

template <class F>
void dropBelow(Vesk::Entity& entity, F drop) {
  drop(entity);
  for (const Vesk::FieldInfo* field : entity.recordType().fields())
    if (field->owns())
      field->forEachChild(entity,
                          [&](std::string_view, Vesk::Entity& child) { dropBelow(child, drop); });
}

}  // namespace

void profileDirIs(std::string directory) {
  profileDir() = std::move(directory);
  knownProfiles().clear();
}

MountProfile loadProfile(const std::string& name) {
  const std::string file = profileDir() + "/" + name + ".yaml";
  YAML::Node document;
  try {
    document = YAML::LoadFile(file);
  } catch (const YAML::BadFile&) {
    throw Orlane::ConfigError(fmt::format("{}: mount profile cannot be read", file));
  } catch (const std::ios_base::failure& error) {
    throw Orlane::ConfigError(
        fmt::format("{}: mount profile cannot be read: {}", file, error.code().message()));
  } catch (const YAML::ParserException& error) {
    throw Orlane::ConfigError(fmt::format("{}:{}: {}", file, error.mark.line + 1, error.msg));
  }
  if (!document.IsMap()) throw Orlane::ConfigError(fmt::format("{}: not a mount profile", file));
  MountProfile profile;
  std::set<std::string> seen;
  for (const auto& pair : document) {
    const auto key = textOf(file, pair.first);
    if (key == "profile") {
      profile.name = textOf(file, pair.second);
    } else if (key == "mounts") {
      if (!pair.second.IsSequence()) refuse(file, pair.second, "'mounts' must be a list");
      for (const auto& node : pair.second) {
        profile.entries.push_back(entryOf(file, node));
        if (!seen.insert(profile.entries.back().path).second)
          refuse(file, node,
                 fmt::format("path '{}' is mounted twice", profile.entries.back().path));
      }
    } else {
      refuse(file, pair.first, fmt::format("unknown key '{}' of a mount profile", key));
    }
  }
  if (profile.name != name)
    throw Orlane::ConfigError(
        fmt::format("{}: profile is named '{}', not '{}'", file, profile.name, name));
  return profile;
}

StateDatabase& StateDatabase::instance() {
  static StateDatabase database;
  return database;
}

StateDatabase::StateDatabase() : root_(Ombra::make<Vesk::Dir>()) {}

Ombra::Ptr<Vesk::Entity> StateDatabase::find(std::string_view path) const {
  Ombra::Ptr<Vesk::Entity> at = root_;
  while (!path.empty()) {
    auto* dir = dynamic_cast<Vesk::Dir*>(at.get());
    if (dir == nullptr) return nullptr;
    const std::string part(path.substr(0, path.find('/')));
    at = dir->entityPtr(part);
    if (!at) return nullptr;
    path.remove_prefix(std::min(path.size(), part.size() + 1));
  }
  return at;
}

Ombra::Ptr<Vesk::Entity> StateDatabase::create(std::string_view path, std::string_view type) {
  if (const auto present = find(path)) return present;
  const Vesk::RecordType* recordType = Vesk::RecordType::find(type);
  if (recordType == nullptr || !recordType->canMake()) return nullptr;
  const std::size_t slash = path.rfind('/');
  Ombra::Ptr<Vesk::Entity> above = slash == std::string_view::npos
                                       ? Ombra::Ptr<Vesk::Entity>(root_)
                                       : create(path.substr(0, slash), "Vesk::Dir");
  auto* dir = dynamic_cast<Vesk::Dir*>(above.get());
  if (dir == nullptr) return nullptr;
  const auto made = recordType->make({});
  Vesk::identityIs(*made, path);
  dir->createEntity(made,
                    std::string(slash == std::string_view::npos ? path : path.substr(slash + 1)));
  return made;
}

void StateDatabase::remove(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  const auto above = slash == std::string_view::npos ? Ombra::Ptr<Vesk::Entity>(root_)
                                                     : find(path.substr(0, slash));
  if (auto* dir = dynamic_cast<Vesk::Dir*>(above.get()))
    dir->deleteEntity(std::string(slash == std::string_view::npos ? path : path.substr(slash + 1)));
}

void StateDatabase::dropSubscribers() {
  dropBelow(*root_, [](Vesk::Entity& entity) { entity.publisher().dropMachines(); });
}

void MountGroup::doMountAll(const std::string& profile) {
  auto known = knownProfiles().find(profile);
  if (known == knownProfiles().end())
    known = knownProfiles().emplace(profile, loadProfile(profile)).first;
  const MountProfile& loaded = known->second;
  wanted_.insert(wanted_.end(), loaded.entries.begin(), loaded.entries.end());
}

void MountGroup::doClose(bool, const std::string&, double) {
  MountStatus status = mountSuccess();
  for (const ProfileEntry& entry : wanted_)
    if (manager_->mount(entry) != mountSuccess()) status = MountStatus::failed;
  wanted_.clear();
  mounter_->haldenMountsDone(status);
}

Ombra::Ptr<MountGroup> EntityManager::getMountGroup(Mounter* mounter) {
  return Ombra::make<MountGroup>(this, mounter);
}

MountStatus EntityManager::mount(const ProfileEntry& entry) {
  const auto entity = StateDatabase::instance().create(entry.path, entry.type);
  if (!entity || entity->recordType().name() != entry.type) return MountStatus::failed;
  mounted_.insert(entry.path);
  return mountSuccess();
}

Ombra::Ptr<Vesk::Entity> EntityManager::getEntity(const std::string& path) const {
  return mounted_.contains(path) ? StateDatabase::instance().find(path) : nullptr;
}

}  // namespace Halden
