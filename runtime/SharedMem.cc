#include "runtime/SharedMem.h"

#include <filesystem>
#include <system_error>

#include <fmt/format.h>

#include "runtime/Corruption.h"
#include "runtime/Dir.h"
#include "runtime/SharedEntity.h"
#include "runtime/shm/TableFile.h"

namespace VeskSharedMem {
namespace {

std::unique_ptr<EntityManager>& theManager() {
  static std::unique_ptr<EntityManager> manager;
  return manager;
}

std::string& theDirectory() {
  static std::string directory = ".";
  return directory;
}

CorruptionSink& theSink() {
  static CorruptionSink sink;
  return sink;
}

/// Raised at a damaged row, inside this layer only.
class CorruptionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Tells the table that holds the row.
void doCorruptionDetected(const Vesk::Entity& holder, const std::string& message) {
  if (theSink()) theSink()(EntityManager::getEntityManager()->pathOf(holder), message);
}

}  // namespace

bool damagedRow(const Vesk::Entity& holder, const std::string& keyText) {
  try {
    throw CorruptionError(
        fmt::format("{}: row {} is corrupt", holder.recordType().name(), keyText));
  } catch (const CorruptionError& error) {
    doCorruptionDetected(holder, error.what());
  }
  return true;
}

void corruptionSinkIs(CorruptionSink sink) {
  theSink() = std::move(sink);
}

EntityManager* EntityManager::getEntityManager(std::string_view, bool create) {
  if (!theManager() && create) theManager().reset(new EntityManager);
  return theManager().get();
}

void EntityManager::forgetProcess() {
  theManager().reset();
}

void EntityManager::directoryIs(const std::string& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) throw TableError(fmt::format("{}: {}", directory, error.message()));
  theDirectory() = directory;
}

const std::string& EntityManager::directory() {
  return theDirectory();
}

EntityManager::~EntityManager() = default;

SharedEntity& EntityManager::table(const std::string& path, std::string_view typeName,
                                   const std::vector<VeskBriskel::CollectionInfo>& sizes) {
  auto it = tables_.find(path);
  if (it == tables_.end())
    it =
        tables_.emplace(path, std::make_unique<SharedEntity>(theDirectory(), path, typeName, sizes))
            .first;
  const std::string_view present = it->second->entity()->recordType().name();
  if (present != typeName)
    throw TableError(fmt::format("{}: is a {}, not a {}", path, present, typeName));
  return *it->second;
}

Ombra::Ptr<Vesk::Entity> EntityManager::doMount(const std::string& path, std::string_view typeName,
                                                const VeskBriskel::MountInfo& info) {
  SharedEntity& mounted = table(path, typeName, info.collections());
  mounted.mountedIs(true);
  return mounted.entity();
}

Ombra::Ptr<Vesk::Entity> EntityManager::doMount(const std::string& path, std::string_view typeName,
                                                VeskSkarel::MountInfo) {
  SharedEntity& mounted = table(path, typeName, {});
  mounted.mountedIs(true);
  return mounted.entity();
}

Ombra::Ptr<Vesk::Entity> EntityManager::getEntity(const std::string& path) const {
  const auto it = tables_.find(path);
  return it != tables_.end() && it->second->mounted() ? it->second->entity() : nullptr;
}

void EntityManager::doUnmount(const std::string& path) {
  if (const auto it = tables_.find(path); it != tables_.end()) it->second->mountedIs(false);
}

void EntityManager::cleanup(const std::string& path) {
  const Ombra::Ptr<Vesk::Entity> entity = getEntity(path);
  if (!entity) return;
  for (const Vesk::FieldInfo* field : entity->recordType().fields())
    if (field->isCollection()) field->reset(*entity);
}

std::unique_ptr<MountGroup> EntityManager::getMountGroup() {
  return std::make_unique<MountGroup>(this);
}

void EntityManager::assertSafeToAccess(const Ombra::Ptr<const Vesk::Entity>& entity,
                                       std::string_view name) const {
  if (!entity) Ombra::fatal(fmt::format("shared entity {} is read before it is mounted", name));
}

Ombra::Ptr<Vesk::Entity> EntityManager::open(const std::string& path, std::string_view typeName) {
  return table(path, typeName, {}).entity();
}

Ombra::Ptr<Vesk::Entity> EntityManager::peek(const std::string& path, std::string_view typeName) {
  if (const auto it = tables_.find(path); it != tables_.end()) return it->second->entity();
  return SharedEntity::hasFiles(theDirectory(), path, typeName) ? open(path, typeName) : nullptr;
}

std::string EntityManager::pathOf(const Vesk::Entity& entity) const {
  for (const auto& [path, table] : tables_)
    if (table->holds(entity)) return path;
  return {};
}

void EntityManager::corruptIs(Vesk::Entity& holder, const Vesk::FieldInfo& field,
                              std::string_view key, bool corrupt) {
  if (!field.corruptIs(holder, key, corrupt)) return;
  for (const auto& [path, table] : tables_)
    if (table->holds(holder)) table->markRow(holder, field, key, corrupt);
}

void MountGroup::doClose() {
  for (const Wanted& wanted : wanted_) {
    if (wanted.isBriskel) {
      manager_->doMount(wanted.path, wanted.typeName, wanted.briskel);
    } else {
      manager_->doMount(wanted.path, wanted.typeName, wanted.skarel);
    }
  }
  wanted_.clear();
}

}  // namespace VeskSharedMem
