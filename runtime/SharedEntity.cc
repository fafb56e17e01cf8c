#include "runtime/SharedEntity.h"

#include <algorithm>
#include <filesystem>

#include <fmt/format.h>

#include "runtime/Assert.h"
#include "runtime/Dir.h"

namespace VeskSharedMem {
namespace {

using Vesk::FieldInfo;
using Vesk::FieldKind;
using Vesk::RecordType;

/// Rows of a collection that states no capacity.
constexpr std::uint32_t defaultCapacity = 16384;

/// Attributes of an entity that stand in its row. Its own key and what the mount fills in from the
/// path do not.
std::vector<const FieldInfo*> rowValues(const RecordType& type) {
  std::vector<const FieldInfo*> values;
  for (const FieldInfo* field : type.fields())
    if (field->kind == FieldKind::value && !field->isKey && field->name != "af" &&
        field->valueType->byteSize() != 0)
      values.push_back(field);
  return values;
}

std::string joinedNames(const std::vector<const FieldInfo*>& chain) {
  std::string names;
  for (const FieldInfo* field : chain)
    names += fmt::format(".{}", field->name);
  return names.empty() ? ".values" : names;
}

/// The layout in words; its hash tells one layout from another.
std::uint64_t signatureOf(const RowFile& file) {
  std::string words;
  for (const FieldInfo* field : file.chain)
    words +=
        fmt::format("{}:{}:{};", field->name, field->keyType->name(), field->keyType->byteSize());
  const auto add = [&](const FieldInfo* field) {
    words += fmt::format("{}={}:{};", field->name, field->valueType->name(),
                         field->valueType->byteSize());
  };
  if (!file.chain.empty() && file.chain.back()->kind == FieldKind::valueMap) add(file.chain.back());
  for (const FieldInfo* field : file.values)
    add(field);
  return Vesk::hashBytes(words);
}

void finish(RowFile& file, const std::string& directory, const std::string& path,
            std::uint32_t capacity) {
  std::size_t keySize = 0;
  for (const FieldInfo* field : file.chain)
    keySize += field->keyType->byteSize();
  std::size_t valueSize = 0;
  for (const FieldInfo* field : file.values)
    valueSize += field->valueType->byteSize();
  if (!file.chain.empty() && file.chain.back()->kind == FieldKind::valueMap)
    valueSize = file.chain.back()->valueType->byteSize();
  file.file = directory + "/" + path + joinedNames(file.chain) + ".table";
  file.shape = {.keySize = static_cast<std::uint32_t>(file.chain.empty() ? 1 : keySize),
                .valueSize = static_cast<std::uint32_t>(valueSize),
                .capacity = capacity,
                .signature = signatureOf(file)};
}

struct Collector {
  const std::string& directory;
  const std::string& path;
  const std::vector<VeskBriskel::CollectionInfo>& sizes;
  std::vector<RowFile> files;

  void collect(const RecordType& type, const std::vector<const FieldInfo*>& above) {
    for (const FieldInfo* field : type.fields()) {
      if (!field->isCollection()) continue;
      RowFile file;
      file.chain = above;
      file.chain.push_back(field);
      if (field->kind == FieldKind::instanceMap) file.values = rowValues(field->targetType());
      std::uint32_t capacity = field->capacity != 0 ? field->capacity : defaultCapacity;
      for (const auto& size : sizes)
        if (above.empty() && size.name == field->name) capacity = size.maxEntries;
      finish(file, directory, path, capacity);
      const auto chain = file.chain;
      files.push_back(std::move(file));
      if (field->kind == FieldKind::instanceMap) collect(field->targetType(), chain);
    }
  }
};

std::string keyOf(const Vesk::TreeObserver::Node& node) {
  std::string key;
  for (const auto* n = &node; n->parent != nullptr; n = n->parent)
    key.insert(0, n->key);
  return key;
}

std::string valuesOf(const RowFile& file, const Vesk::Entity& entity) {
  std::string values;
  for (const FieldInfo* field : file.values)
    values += field->get(entity);
  return values;
}

void setValues(const RowFile& file, Vesk::Entity& entity, std::string_view values) {
  for (const FieldInfo* field : file.values) {
    field->set(entity, values.substr(0, field->valueType->byteSize()));
    values.remove_prefix(field->valueType->byteSize());
  }
}

/// Throws RangeException if the bytes are no values of their types.
bool enterRow(Vesk::Entity& root, const RowFile& file, std::string_view key, std::string_view value,
              bool corrupt) {
  if (file.chain.empty()) {
    setValues(file, root, value);
    return true;
  }
  Ombra::Ptr<Vesk::Entity> holder(&root);
  for (std::size_t i = 0; i + 1 < file.chain.size(); ++i) {
    const std::size_t size = file.chain[i]->keyType->byteSize();
    holder = file.chain[i]->child(*holder, key.substr(0, size));
    if (!holder) return false;
    key.remove_prefix(size);
  }
  const FieldInfo& field = *file.chain.back();
  if (field.kind == FieldKind::valueMap) {
    field.set(*holder, key, value);
  } else {
    field.add(*holder, key);
    if (field.kind == FieldKind::instanceMap) setValues(file, *field.child(*holder, key), value);
  }
  if (corrupt) field.corruptIs(*holder, key, true);
  return true;
}

const std::string rootKey(1, '\0');

}  // namespace

std::vector<RowFile> rowFilesOf(const std::string& directory, const std::string& path,
                                const RecordType& type,
                                const std::vector<VeskBriskel::CollectionInfo>& sizes) {
  Collector collector{directory, path, sizes, {}};
  if (RowFile own; !(own.values = rowValues(type)).empty()) {
    finish(own, directory, path, 1);
    collector.files.push_back(std::move(own));
  }
  collector.collect(type, {});
  return std::move(collector.files);
}

bool applyRow(Vesk::Entity& root, const RowFile& file, std::string_view key, std::string_view value,
              bool corrupt) {
  if (!corrupt) return enterRow(root, file, key, value, false);
  // The bytes of a damaged row need not be values of their types.
  const bool isMap = !file.chain.empty() && file.chain.back()->kind == FieldKind::valueMap;
  for (const std::string& bytes :
       {std::string(value), isMap ? file.chain.back()->valueType->defaultBytes() : ""}) {
    try {
      return enterRow(root, file, key, bytes, true);
    } catch (const Ombra::RangeException&) {
      if (!isMap) break;
    }
  }
  return false;
}

SharedEntity::SharedEntity(const std::string& directory, const std::string& path,
                           std::string_view typeName,
                           const std::vector<VeskBriskel::CollectionInfo>& sizes)
    : path_(path) {
  const RecordType* type = RecordType::find(typeName);
  if (type == nullptr || !type->canMake())
    throw TableError(fmt::format("{}: unknown table type '{}'", path, typeName));
  entity_ = type->make({});
  Vesk::identityIs(*entity_, path);
  files_ = rowFilesOf(directory, path, *type, sizes);
  load();
  rootIs(entity_);
}

bool SharedEntity::hasFiles(const std::string& directory, const std::string& path,
                            std::string_view typeName) {
  const RecordType* type = RecordType::find(typeName);
  if (type == nullptr) return false;
  const auto files = rowFilesOf(directory, path, *type);
  return std::any_of(files.begin(), files.end(),
                     [](const RowFile& f) { return std::filesystem::exists(f.file); });
}

bool SharedEntity::holds(const Vesk::Entity& entity) const {
  return find(entity) != nullptr;
}

void SharedEntity::load() {
  for (RowFile& file : files_) {
    if (!std::filesystem::exists(file.file)) continue;
    file.writer = TableWriter::open(file.file, file.shape);
    std::vector<std::string> orphans;
    file.writer->forEach([&](const void* key, const void* value, bool corrupt) {
      const std::string_view keyBytes(static_cast<const char*>(key), file.shape.keySize);
      const std::string_view valueBytes(static_cast<const char*>(value), file.shape.valueSize);
      if (!applyRow(*entity_, file, keyBytes, valueBytes, corrupt)) orphans.emplace_back(keyBytes);
    });
    for (const std::string& key : orphans)
      file.writer->erase(key.data());
  }
}

RowFile* SharedEntity::findFile(const Node& node, const FieldInfo* field) {
  // One type of entity may stand in several collections, so the whole way down has to agree.
  std::vector<const FieldInfo*> chain;
  if (field != nullptr) chain.push_back(field);
  for (const Node* n = &node; n->parent != nullptr; n = n->parent)
    chain.push_back(n->field);
  for (RowFile& file : files_)
    if (std::equal(file.chain.begin(), file.chain.end(), chain.rbegin(), chain.rend()))
      return &file;
  return nullptr;
}

RowFile& SharedEntity::fileOf(const Node& node, const FieldInfo* field) {
  if (RowFile* file = findFile(node, field)) return *file;
  if (field == nullptr) field = node.field;
  Ombra::fatal(fmt::format("table {}: no rows for attribute {}", path_,
                           field == nullptr ? "values" : field->name));
}

void SharedEntity::put(RowFile& file, const std::string& key, const std::string& value) {
  if (!file.writer) {
    std::filesystem::create_directories(std::filesystem::path(file.file).parent_path());
    file.writer = TableWriter::open(file.file, file.shape);
  }
  if (file.writer->put(key.data(), value.data()) == TableWriter::Put::full)
    Ombra::fatal(fmt::format("table {}{} is full: capacity {}", path_, joinedNames(file.chain),
                             file.shape.capacity));
  file.writer->wakeReaders();
}

void SharedEntity::erase(RowFile& file, const std::string& key) {
  if (file.writer && file.writer->erase(key.data())) file.writer->wakeReaders();
}

void SharedEntity::markRow(const Vesk::Entity& holder, const FieldInfo& field, std::string_view key,
                           bool corrupt) {
  const Node* node = find(holder);
  if (!corrupt) {
    valueChanged(*node, field, key);
    return;
  }
  RowFile& file = fileOf(*node, &field);
  const std::string rowKey = keyOf(*node) + std::string(key);
  if (file.writer && file.writer->markCorrupt(rowKey.data())) file.writer->wakeReaders();
}

void SharedEntity::valueChanged(const Node& node, const FieldInfo& field, std::string_view key) {
  if (field.kind == FieldKind::value) {
    putValues(node);
    return;
  }
  if (!field.isCollection()) return;
  RowFile& file = fileOf(node, &field);
  const std::string rowKey = keyOf(node) + std::string(key);
  if (!field.has(*node.entity, key)) {
    erase(file, rowKey);
  } else {
    put(file, rowKey,
        field.kind == FieldKind::valueMap ? field.get(*node.entity, key) : std::string());
  }
}

void SharedEntity::putValues(const Node& node) {
  RowFile* const file = findFile(node, nullptr);
  if (file == nullptr || file->values.empty()) return;
  put(*file, node.parent == nullptr ? rootKey : keyOf(node), valuesOf(*file, *node.entity));
}

void SharedEntity::entityCame(const Node& node) {
  RowFile& file = fileOf(node, nullptr);
  put(file, keyOf(node), valuesOf(file, *node.entity));
  putContent(node);
}

void SharedEntity::entityWent(const Node& node) {
  eraseContent(node);
  erase(fileOf(node, nullptr), keyOf(node));
}

void SharedEntity::putContent(const Node& node) {
  for (const FieldInfo* field : node.entity->recordType().fields()) {
    if (!field->isCollection()) continue;
    if (field->owns()) {
      node.forEachChild(*field, [&](const Node& child) { entityCame(child); });
    } else {
      for (const std::string& key : field->keys(*node.entity))
        valueChanged(node, *field, key);
    }
  }
}

void SharedEntity::eraseContent(const Node& node) {
  for (const FieldInfo* field : node.entity->recordType().fields()) {
    if (!field->isCollection()) continue;
    if (field->owns()) {
      node.forEachChild(*field, [&](const Node& child) { entityWent(child); });
    } else {
      RowFile& file = fileOf(node, field);
      for (const std::string& key : field->keys(*node.entity))
        erase(file, keyOf(node) + key);
    }
  }
}

}  // namespace VeskSharedMem
