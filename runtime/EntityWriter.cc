#include "runtime/EntityWriter.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include <fmt/format.h>

#include "runtime/Assert.h"
#include "runtime/Corruption.h"

namespace VeskSharedMem {
namespace {

using Vesk::FieldInfo;
using Vesk::FieldKind;

/// One type of entity may stand in several collections, so the whole way down has to agree.
bool isWayTo(const std::vector<const FieldInfo*>& chain, const Vesk::TreeObserver::Node& node,
             const FieldInfo* field) {
  std::size_t left = chain.size();
  const auto isNext = [&](const FieldInfo* step) { return left > 0 && chain[--left] == step; };
  if (field != nullptr && !isNext(field)) return false;
  for (const auto* n = &node; n->parent != nullptr; n = n->parent)
    if (!isNext(n->field)) return false;
  return left == 0;
}

std::string keyOf(const Vesk::TreeObserver::Node& node) {
  std::string key;
  for (const auto* n = &node; n->parent != nullptr; n = n->parent)
    key.insert(0, n->key);
  return key;
}

}  // namespace

EntityWriter::EntityWriter(std::string path, const std::vector<RowFile>& files)
    : path_(std::move(path)) {
  if (files.empty()) return;
  std::error_code ignored;  // opening the first file says more
  std::filesystem::create_directories(std::filesystem::path(files.front().file).parent_path(),
                                      ignored);
  for (const RowFile& layout : files)
    files_.push_back({&layout, TableWriter::open(layout.file, layout.shape)});
}

void EntityWriter::load(Vesk::Entity& entity) {
  for (OwnFile& file : files_) {
    const TableShape& shape = file.layout->shape;
    std::vector<std::string> useless;
    file.writer->forEach([&](const void* key, const void* value, bool corrupt) {
      const std::string_view keyBytes(static_cast<const char*>(key), shape.keySize);
      const std::string_view valueBytes(static_cast<const char*>(value), shape.valueSize);
      const Applied applied = applyRow(entity, *file.layout, keyBytes, valueBytes, corrupt);
      if (applied == Applied::done) return;
      if (applied == Applied::unreadable) damagedRow(entity, unreadableKey);
      useless.emplace_back(keyBytes);
    });
    for (const std::string& key : useless)
      erase(file, key);
  }
}

EntityWriter::OwnFile* EntityWriter::findFile(const Node& node, const FieldInfo* field) {
  for (OwnFile& file : files_)
    if (isWayTo(file.layout->chain, node, field)) return &file;
  return nullptr;
}

EntityWriter::OwnFile& EntityWriter::fileOf(const Node& node, const FieldInfo* field) {
  if (OwnFile* file = findFile(node, field)) return *file;
  if (field == nullptr) field = node.field;
  Ombra::fatal(fmt::format("table {}: no rows for attribute {}", path_,
                           field == nullptr ? "values" : field->name));
}

void EntityWriter::put(OwnFile& file, const std::string& key, const std::string& value) {
  const bool isFirst = file.waiting.empty();
  if (!isFirst) file.waiting.erase(key);
  std::string reason;
  // A file that could not grow is asked again at the end of the batch.
  if (tryPut(file, key, value, isFirst, reason)) return;
  file.waiting[key] = value;
  hasWaiting_ = true;
  if (isFirst)
    tableFault(path_, fmt::format("{}: row {} is not written, and waits", reason,
                                  file.layout->keyText(key)));
}

bool EntityWriter::tryPut(OwnFile& file, const std::string& key, const std::string& value,
                          bool mayGrow, std::string& reason) {
  TableWriter& writer = *file.writer;
  try {
    auto done = writer.put(key.data(), value.data());
    if (done == TableWriter::Put::full && mayGrow && writer.capacity() < file.layout->limit) {
      writer.growTo(static_cast<std::uint32_t>(
          std::min<std::uint64_t>(std::uint64_t{writer.capacity()} * 2, file.layout->limit)));
      done = writer.put(key.data(), value.data());
    }
    if (done == TableWriter::Put::full) {
      reason = fmt::format("table {}{} has its limit of {} rows", path_, file.layout->name(),
                           writer.capacity());
      return false;
    }
    if (done != TableWriter::Put::unchanged) changed(file);
    return true;
  } catch (const TableError& error) {
    reason = error.what();
    return false;
  }
}

/// Until the first for which there is no room still.
void EntityWriter::writeWaiting(OwnFile& file) {
  std::string reason;
  while (!file.waiting.empty()) {
    const auto& [key, value] = *file.waiting.begin();
    if (!tryPut(file, key, value, true, reason)) return;
    file.waiting.erase(file.waiting.begin());
  }
}

void EntityWriter::erase(OwnFile& file, const std::string& key) {
  if (!file.waiting.empty() && file.waiting.erase(key) != 0) return;
  if (file.writer->erase(key.data())) changed(file);
}

void EntityWriter::changed(OwnFile& file) {
  file.isDirty = isDirty_ = true;
}

void EntityWriter::addTo(TableWaiter::Watched& watched) const {
  for (const OwnFile& file : files_)
    watched.paths.push_back(file.layout->file);
}

void EntityWriter::mendFiles() {
  bool isAny = false;
  for (OwnFile& file : files_) {
    if (!file.writer->isLost()) continue;
    try {
      std::filesystem::create_directories(std::filesystem::path(file.layout->file).parent_path());
      file.writer->makeAnew();
      tableFault(path_, fmt::format("{} was taken away from its writer, and is made anew",
                                    file.layout->file));
    } catch (const std::exception& error) {
      // Not ours, and not removed.
      if (!std::exchange(file.isRefused, true)) tableFault(path_, error.what());
      continue;
    }
    file.isRefused = false;
    file.waiting.clear();
    // Another table may have been put there.
    std::vector<std::string> keys;
    file.writer->forEach([&](const void* key, const void*, bool) {
      keys.emplace_back(static_cast<const char*>(key), file.layout->shape.keySize);
    });
    for (const std::string& key : keys)
      erase(file, key);
    isAny = true;
  }
  if (!isAny) return;
  putValues(*root());
  putContent(*root());
}

void EntityWriter::wakeReaders() {
  if (std::exchange(hasWaiting_, false)) {
    for (OwnFile& file : files_) {
      writeWaiting(file);
      hasWaiting_ = hasWaiting_ || !file.waiting.empty();
    }
  }
  if (!isDirty_) return;
  isDirty_ = false;
  for (OwnFile& file : files_)
    if (std::exchange(file.isDirty, false)) file.writer->wakeReaders();
}

void EntityWriter::signOff() {
  for (OwnFile& file : files_)
    file.writer->signOff();
}

void EntityWriter::markRow(const Vesk::Entity& holder, const FieldInfo& field, std::string_view key,
                           bool corrupt) {
  const Node* node = find(holder);
  if (!corrupt) {
    valueChanged(*node, field, key);
    return;
  }
  OwnFile& file = fileOf(*node, &field);
  const std::string rowKey = keyOf(*node) + std::string(key);
  file.waiting.erase(rowKey);
  if (file.writer->markCorrupt(rowKey.data())) changed(file);
}

void EntityWriter::valueChanged(const Node& node, const FieldInfo& field, std::string_view key) {
  if (field.kind == FieldKind::value) {
    putValues(node);
    return;
  }
  if (!field.isCollection()) return;
  OwnFile& file = fileOf(node, &field);
  key_ = keyOf(node);
  key_ += key;
  value_.clear();
  const bool isThere = field.kind == FieldKind::valueMap ? field.find(*node.entity, key, value_)
                                                         : field.has(*node.entity, key);
  if (isThere) {
    put(file, key_, value_);
  } else {
    erase(file, key_);
  }
}

void EntityWriter::putValues(const Node& node) {
  OwnFile* const file = findFile(node, nullptr);
  if (file == nullptr || file->layout->values.empty()) return;
  put(*file, node.parent == nullptr ? rootKey : keyOf(node), file->layout->valuesOf(*node.entity));
}

void EntityWriter::entityCame(const Node& node) {
  OwnFile& file = fileOf(node, nullptr);
  put(file, keyOf(node), file.layout->valuesOf(*node.entity));
  putContent(node);
}

void EntityWriter::entityWent(const Node& node) {
  eraseContent(node);
  erase(fileOf(node, nullptr), keyOf(node));
}

void EntityWriter::putContent(const Node& node) {
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

void EntityWriter::eraseContent(const Node& node) {
  for (const FieldInfo* field : node.entity->recordType().fields()) {
    if (!field->isCollection()) continue;
    if (field->owns()) {
      node.forEachChild(*field, [&](const Node& child) { entityWent(child); });
    } else {
      OwnFile& file = fileOf(node, field);
      for (const std::string& key : field->keys(*node.entity))
        erase(file, keyOf(node) + key);
    }
  }
}

}  // namespace VeskSharedMem
