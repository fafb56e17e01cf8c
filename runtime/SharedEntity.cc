#include "runtime/SharedEntity.h"

#include <fmt/format.h>

#include "runtime/Dir.h"

namespace VeskSharedMem {
namespace {

[[noreturn]] void refuse(const TableError& error) {
  throw error;
}

bool never() {
  return false;
}

bool isWithin(const Vesk::Entity& root, const Vesk::Entity& entity) {
  if (&root == &entity) return true;
  bool isFound = false;
  for (const Vesk::FieldInfo* field : root.recordType().fields())
    if (field->owns())
      field->forEachChild(root, [&](std::string_view, const Vesk::Entity& child) {
        isFound = isFound || isWithin(child, entity);
      });
  return isFound;
}

}  // namespace

SharedEntity::SharedEntity(const std::string& directory, const std::string& path,
                           std::string_view typeName, const std::vector<CollectionSize>& sizes)
    : path_(path) {
  const Vesk::RecordType* type = Vesk::RecordType::find(typeName);
  if (type == nullptr || !type->canMake())
    throw TableError(fmt::format("{}: unknown table type '{}'", path, typeName));
  entity_ = type->make({});
  Vesk::identityIs(*entity_, path);
  files_ = rowFilesOf(directory, path, *type, sizes);
}

bool SharedEntity::holds(const Vesk::Entity& entity) const {
  return isWithin(*entity_, entity);
}

void SharedEntity::claim() {
  if (isWriter()) return;
  auto writer = std::make_unique<EntityWriter>(path_, files_);
  // Nobody else writes from here on; what was written before has to be known first.
  if (follower_) {
    follower_->findFiles(refuse);
    while (follower_->hasChanges())
      follower_->takeUp(never);
  }
  writer->load(*entity_);
  writer->begin(entity_);
  writer_ = std::move(writer);
  follower_.reset();
}

void SharedEntity::follow() {
  if (follower_) return;
  auto follower = std::make_unique<EntityFollower>(entity_, files_);
  follower->findFiles(refuse);
  if (writer_) {
    // Under our claim still, so that no change falls in between.
    follower->skipPresent();
    writer_->wakeReaders();
  } else {
    follower->takeUp(never);
  }
  follower_ = std::move(follower);
  writer_.reset();
}

}  // namespace VeskSharedMem
