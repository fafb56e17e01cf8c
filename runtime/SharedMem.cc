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
  if (theSink()) tableFault(EntityManager::getEntityManager()->pathOf(holder), message);
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

void tableFault(const std::string& path, const std::string& text) {
  if (theSink()) theSink()(path, text);
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

EntityManager::EntityManager() = default;
EntityManager::~EntityManager() = default;

SharedEntity* EntityManager::find(const std::string& path) const {
  const auto it = tables_.find(path);
  return it == tables_.end() ? nullptr : it->second.get();
}

SharedEntity& EntityManager::table(const std::string& path, std::string_view typeName,
                                   bool isWriter, const std::vector<CollectionSize>& sizes) {
  SharedEntity* present = find(path);
  std::unique_ptr<SharedEntity> made;
  if (present == nullptr) {
    made = std::make_unique<SharedEntity>(theDirectory(), path, typeName, sizes);
    present = made.get();
  }
  const std::string_view presentType = present->entity()->recordType().name();
  if (presentType != typeName)
    throw TableError(fmt::format("{}: is a {}, not a {}", path, presentType, typeName));
  if (isWriter) {
    present->claim();
  } else if (!present->isWriter()) {
    present->follow();
  }
  if (made) tables_.emplace(path, std::move(made));
  return *present;
}

Ombra::Ptr<Vesk::Entity> EntityManager::mount(const std::string& path, std::string_view typeName,
                                              bool isWriter,
                                              const std::vector<CollectionSize>& sizes) {
  SharedEntity& mounted = table(path, typeName, isWriter, sizes);
  mounted.mountedIs(isWriter ? SharedEntity::Mount::toWrite : SharedEntity::Mount::toRead);
  return mounted.entity();
}

Ombra::Ptr<Vesk::Entity> EntityManager::doMount(const std::string& path, std::string_view typeName,
                                                const VeskBriskel::MountInfo& info) {
  return mount(path, typeName, info.type() == VeskBriskel::VeskBriskelType::writer,
               info.collections());
}

Ombra::Ptr<Vesk::Entity> EntityManager::doMount(const std::string& path, std::string_view typeName,
                                                VeskSkarel::MountInfo info) {
  return mount(path, typeName, !info.second, {});
}

Ombra::Ptr<Vesk::Entity> EntityManager::getEntity(const std::string& path) const {
  const SharedEntity* const table = find(path);
  return table != nullptr && table->mounted() != SharedEntity::Mount::no ? table->entity()
                                                                         : nullptr;
}

void EntityManager::doUnmount(const std::string& path) {
  if (SharedEntity* const table = find(path)) table->mountedIs(SharedEntity::Mount::no);
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
  return table(path, typeName, true).entity();
}

Ombra::Ptr<Vesk::Entity> EntityManager::peek(const std::string& path, std::string_view typeName) {
  return table(path, typeName, false).entity();
}

void EntityManager::leaveToOthers() {
  for (const auto& [path, table] : tables_)
    if (table->mounted() != SharedEntity::Mount::toWrite) table->follow();
}

bool EntityManager::takeUpChanges(const std::function<bool()>& mustStop) {
  for (const auto& [path, table] : tables_) {
    EntityFollower* const follower = table->follower();
    if (follower != nullptr && follower->hasChanges() && !follower->takeUp(mustStop)) return false;
  }
  return true;
}

void EntityManager::waitForChanges(std::chrono::milliseconds timeout) {
  if (!waiter_) waiter_ = std::make_unique<TableWaiter>();
  TableWaiter::Watched watched;
  for (const auto& [path, table] : tables_) {
    if (const EntityFollower* const follower = table->follower()) follower->addTo(watched);
    if (const EntityWriter* const writer = table->writer()) writer->addTo(watched);
  }
  if (waiter_->wait(watched, timeout) != TableWaiter::Woken::byFile) return;
  for (const auto& [path, table] : tables_) {
    const auto refused = [&at = path](const TableError& error) { tableFault(at, error.what()); };
    if (EntityFollower* const follower = table->follower()) follower->findFiles(refused);
    if (EntityWriter* const writer = table->writer()) writer->mendFiles();
  }
}

void EntityManager::wakeReaders() {
  for (const auto& [path, table] : tables_)
    if (EntityWriter* const writer = table->writer()) writer->wakeReaders();
}

void EntityManager::signOff() {
  for (const auto& [path, table] : tables_)
    if (EntityWriter* const writer = table->writer()) writer->signOff();
}

std::string EntityManager::pathOf(const Vesk::Entity& entity) const {
  for (const auto& [path, table] : tables_)
    if (table->holds(entity)) return path;
  return {};
}

void EntityManager::corruptIs(Vesk::Entity& holder, const Vesk::FieldInfo& field,
                              std::string_view key, bool corrupt) {
  for (const auto& [path, table] : tables_) {
    if (!table->holds(holder)) continue;
    table->claim();
    if (field.corruptIs(holder, key, corrupt))
      table->writer()->markRow(holder, field, key, corrupt);
  }
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
