#include "runtime/RowFile.h"

#include <algorithm>
#include <map>

#include <fmt/format.h>

#include "runtime/Assert.h"

namespace VeskSharedMem {
namespace {

using Vesk::FieldInfo;
using Vesk::FieldKind;
using Vesk::RecordType;

/// Rows of a collection that states no capacity.
constexpr std::uint32_t defaultCapacity = 16384;

struct RowLimits {
  std::uint32_t factor = 16;
  std::map<std::string, std::uint32_t> ofPath;
};

RowLimits& rowLimits() {
  static RowLimits limits;
  return limits;
}

std::uint32_t limitOf(const std::string& path, std::uint32_t stated) {
  const auto& [factor, ofPath] = rowLimits();
  const auto own = ofPath.find(path);
  const std::uint64_t limit = own != ofPath.end() ? own->second : std::uint64_t{stated} * factor;
  return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(limit, 1, kMaxCapacity));
}

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

/// A value type in words: name and size, then the members of a composite, or the enumerators.
std::string wordsOf(const Vesk::ValueType& type) {
  std::string words = fmt::format("{}:{}", type.name(), type.byteSize());
  if (type.fields().empty() && type.enumerators().empty()) return words;
  words += '{';
  for (const auto& member : type.fields())
    words += fmt::format("{}={};", member.name, wordsOf(*member.type));
  for (const auto& known : type.enumerators())
    words += fmt::format("{}={};", known.name, known.number);
  return words + '}';
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
  file.file = directory + "/" + path + file.name() + ".table";
  file.shape = {.keySize = static_cast<std::uint32_t>(file.chain.empty() ? 1 : keySize),
                .valueSize = static_cast<std::uint32_t>(valueSize),
                .capacity = capacity,
                .signature = 0};
  const std::string layout = file.layoutText();
  file.shape.signature = hashBytes(layout.data(), layout.size());
  file.limit = file.chain.empty() ? 1 : limitOf(path, capacity);
}

struct Collector {
  const std::string& directory;
  const std::string& path;
  const std::vector<CollectionSize>& sizes;
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

void setValues(const RowFile& file, Vesk::Entity& entity, std::string_view values) {
  for (const FieldInfo* field : file.values) {
    field->set(entity, values.substr(0, field->valueType->byteSize()));
    values.remove_prefix(field->valueType->byteSize());
  }
}

/// True if the bytes are a value of the type. Asked before anything is written: once machines
/// listen, a range error that comes out of a write is theirs, and ends the process.
bool reads(const Vesk::ValueType& type, std::string_view bytes) {
  try {
    static_cast<void>(type.compare(bytes, bytes));
    return true;
  } catch (const Ombra::RangeException&) {
    return false;
  }
}

/// Of bytes that are one value after the other: `type` names the type of each field's.
bool eachReads(const std::vector<const FieldInfo*>& fields, const Vesk::ValueType* FieldInfo::*type,
               std::string_view bytes) {
  for (const FieldInfo* field : fields) {
    const std::size_t size = (field->*type)->byteSize();
    if (!reads(*(field->*type), bytes.substr(0, size))) return false;
    bytes.remove_prefix(size);
  }
  return true;
}

bool keyReads(const RowFile& file, std::string_view key) {
  return eachReads(file.chain, &FieldInfo::keyType, key);
}

/// The entity that holds a row, or null; the key becomes the last part of itself.
Ombra::Ptr<Vesk::Entity> holderOf(Vesk::Entity& root, const RowFile& file, std::string_view& key) {
  Ombra::Ptr<Vesk::Entity> holder(&root);
  for (std::size_t i = 0; i + 1 < file.chain.size() && holder; ++i) {
    const std::size_t size = file.chain[i]->keyType->byteSize();
    holder = file.chain[i]->child(*holder, key.substr(0, size));
    key.remove_prefix(size);
  }
  return holder;
}

void enterEntity(const RowFile& file, Vesk::Entity& holder, const std::string& key,
                 std::string_view values) {
  const FieldInfo& field = *file.chain.back();
  if (const auto present = field.child(holder, key)) return setValues(file, *present, values);
  const Ombra::Ptr<Vesk::Entity> entity = field.targetType().make(key);
  setValues(file, *entity, values);
  field.adopt(holder, key, entity);
}

/// A damaged entry keeps what it held: nobody is to act on the new bytes before the mark stands.
void enterValue(const FieldInfo& field, Vesk::Entity& holder, std::string_view key,
                std::string_view value, bool corrupt) {
  const bool isSound = reads(*field.valueType, value);
  if (isSound && !corrupt) return field.set(holder, key, value);
  if (field.corrupt(holder, key)) return;
  if (!field.has(holder, key))
    field.set(holder, key, isSound ? std::string(value) : field.valueType->defaultBytes());
  field.corruptIs(holder, key, true);
}

}  // namespace

void rowLimitFactorIs(std::uint32_t factor) {
  rowLimits().factor = factor;
}

void rowLimitIs(const std::string& path, std::uint32_t rows) {
  rowLimits().ofPath[path] = rows;
}

std::string RowFile::name() const {
  std::string names;
  for (const FieldInfo* field : chain)
    names += fmt::format(".{}", field->name);
  return names.empty() ? ".values" : names;
}

std::string RowFile::keyText(std::string_view key) const {
  std::string text;
  for (const FieldInfo* field : chain) {
    const std::size_t size = field->keyType->byteSize();
    text += fmt::format("[{}]", field->keyType->text(key.substr(0, size), true));
    key.remove_prefix(size);
  }
  return text;
}

std::string RowFile::layoutText() const {
  std::string words;
  for (const FieldInfo* field : chain)
    words += fmt::format("{}:{};", field->name, wordsOf(*field->keyType));
  if (!chain.empty() && chain.back()->kind == FieldKind::valueMap)
    words += fmt::format("{}={};", chain.back()->name, wordsOf(*chain.back()->valueType));
  for (const FieldInfo* field : values)
    words += fmt::format("{}={};", field->name, wordsOf(*field->valueType));
  return words;
}

std::string RowFile::valuesOf(const Vesk::Entity& entity) const {
  std::string bytes;
  for (const FieldInfo* field : values)
    bytes += field->get(entity);
  return bytes;
}

std::vector<RowFile> rowFilesOf(const std::string& directory, const std::string& path,
                                const RecordType& type, const std::vector<CollectionSize>& sizes) {
  Collector collector{directory, path, sizes, {}};
  if (RowFile own; !(own.values = rowValues(type)).empty()) {
    finish(own, directory, path, 1);
    collector.files.push_back(std::move(own));
  }
  collector.collect(type, {});
  return std::move(collector.files);
}

std::unique_ptr<TableReader> readerOf(const std::string& file, const TableShape& expected) {
  auto reader = TableReader::openAny(file);
  const auto& shape = reader->shape();
  if (shape.signature != expected.signature || shape.keySize != expected.keySize ||
      shape.valueSize != expected.valueSize)
    throw TableError(fmt::format("{}: a table of another layout", file));
  return reader;
}

Applied applyRow(Vesk::Entity& root, const RowFile& file, std::string_view key,
                 std::string_view value, bool corrupt) {
  if (!keyReads(file, key) || !eachReads(file.values, &FieldInfo::valueType, value))
    return Applied::unreadable;
  // Where there is no value to be damaged, it is the key that may be any.
  if (corrupt && file.shape.valueSize == 0) {
    removeRow(root, file, key);
    return Applied::unreadable;
  }
  if (file.chain.empty()) {
    if (corrupt || key != rootKey) return Applied::unreadable;
    setValues(file, root, value);
    return Applied::done;
  }
  const auto holder = holderOf(root, file, key);
  if (!holder) return Applied::orphan;
  const FieldInfo& field = *file.chain.back();
  if (field.kind == FieldKind::valueMap) {
    enterValue(field, *holder, key, value, corrupt);
    return Applied::done;
  }
  if (field.kind == FieldKind::instanceMap) {
    enterEntity(file, *holder, std::string(key), value);
  } else {
    field.add(*holder, key);
  }
  if (corrupt) field.corruptIs(*holder, key, true);
  return Applied::done;
}

void removeRow(Vesk::Entity& root, const RowFile& file, std::string_view key) {
  if (!keyReads(file, key)) return;
  if (file.chain.empty()) {
    for (const FieldInfo* field : file.values)
      field->reset(root);
    return;
  }
  if (const auto holder = holderOf(root, file, key)) file.chain.back()->del(*holder, key);
}

}  // namespace VeskSharedMem
