#include "host/TableFollower.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include <fmt/format.h>

#include "runtime/Assert.h"

namespace Host {
namespace {

namespace fs = std::filesystem;

using Vesk::FieldInfo;
using Vesk::FieldKind;
using VeskSharedMem::RowFile;
using VeskSharedMem::RowState;
using VeskSharedMem::TableWaiter;

/// A writer takes the rows of an entity away one by one and the entity's own row last.
constexpr std::chrono::milliseconds holdTime{10};

/// Calls f(field, part of the key) for each collection on the way to a row.
template <class F>
void forEachKey(const RowFile& layout, std::string_view key, F f) {
  for (const FieldInfo* field : layout.chain) {
    const std::size_t size = field->keyType->byteSize();
    f(*field, key.substr(0, size));
    key.remove_prefix(size);
  }
}

/// Throws RangeException if the key is not one.
AddressText addressOf(const std::string& path, const RowFile& layout, std::string_view key) {
  AddressText at(path, true);
  forEachKey(layout, key,
             [&](const FieldInfo& field, std::string_view part) { at = at.child(field, part); });
  return at;
}

/// In the order of the keys' own types.
void sort(const RowFile& layout, std::vector<std::string>& keys) {
  std::sort(keys.begin(), keys.end(), [&](const std::string& a, const std::string& b) {
    int order = 0;
    std::size_t at = 0;
    forEachKey(layout, a, [&](const FieldInfo& field, std::string_view part) {
      if (order == 0)
        order = field.keyType->compare(part, std::string_view(b).substr(at, part.size()));
      at += part.size();
    });
    return order < 0;
  });
}

template <class Rows>
std::vector<std::string> keysBelow(const Rows& rows, const std::string& prefix) {
  std::vector<std::string> keys;
  for (auto it = rows.lower_bound(prefix); it != rows.end() && it->first.starts_with(prefix); ++it)
    keys.push_back(it->first);
  return keys;
}

bool isOnlyKey(const Vesk::ValueType& type) {
  return type.hasKey() && std::all_of(type.fields().begin(), type.fields().end(),
                                      [](const auto& member) { return member.isKey; });
}

}  // namespace

TableFollower::TableFollower(std::string directory, std::vector<Address> addresses, Sink sink)
    : directory_(std::move(directory)), addresses_(std::move(addresses)), sink_(std::move(sink)) {
  for (const Address& address : addresses_)
    addTables(address);
}

void TableFollower::addTables(const Address& address) {
  for (const auto& table : tables_)
    if (table->path == address.path) return;
  const std::size_t first = tables_.size();
  // The directory goes before the name when the file is opened: it may come later.
  for (RowFile& layout : VeskSharedMem::rowFilesOf({}, address.path, *address.rootType)) {
    auto table = std::make_unique<Table>();
    table->path = address.path;
    const FieldInfo* last = layout.chain.empty() ? nullptr : layout.chain.back();
    table->type = last == nullptr                        ? address.rootType
                  : last->kind == FieldKind::instanceMap ? &last->targetType()
                                                         : nullptr;
    table->layout = std::move(layout);
    if (!scopeOf(*table, nullptr).isOnWay) continue;
    const auto& chain = table->layout.chain;
    for (std::size_t i = first; i < tables_.size(); ++i) {
      const auto& above = tables_[i]->layout.chain;
      if (above.empty() || above.size() + 1 != chain.size() ||
          !std::equal(above.begin(), above.end(), chain.begin()))
        continue;
      table->parent = tables_[i].get();
      tables_[i]->children.push_back(table.get());
    }
    tables_.push_back(std::move(table));
  }
}

/// Without a key: what of any row of the table.
TableFollower::Scope TableFollower::scopeOf(const Table& table, const std::string* key) const {
  Scope scope;
  const auto& chain = table.layout.chain;
  for (const Address& address : addresses_) {
    if (address.path != table.path) continue;
    const auto& steps = address.steps;
    bool fits = true;
    std::size_t at = 0;
    for (std::size_t i = 0; i < std::min(chain.size(), steps.size()); ++i) {
      const std::size_t size = chain[i]->keyType->byteSize();
      fits = fits && steps[i].field == chain[i] &&
             (key == nullptr || !steps[i].key || key->compare(at, size, *steps[i].key) == 0);
      at += size;
    }
    if (!fits) continue;
    if (steps.size() <= chain.size()) {
      scope.isWhole = scope.isOnWay = true;
      continue;
    }
    const FieldInfo* next = steps[chain.size()].field;
    const auto& values = table.layout.values;
    const bool isHere = std::find(values.begin(), values.end(), next) != values.end();
    if (isHere) scope.attributes.push_back(next);
    scope.isOnWay = scope.isOnWay || isHere || !chain.empty();
  }
  return scope;
}

void TableFollower::findFiles() {
  for (const auto& table : tables_) {
    if (table->follower && !table->follower->reader().isReplaced()) continue;
    const std::string file = directory_ + table->layout.file;
    std::unique_ptr<VeskSharedMem::TableReader> reader;
    try {
      if (fs::exists(file)) reader = VeskSharedMem::readerOf(file, table->layout.shape);
      table->isRefused = false;
    } catch (const VeskSharedMem::TableError& error) {
      if (fs::exists(file) && !hasLooked_) throw;
      if (fs::exists(file) && !std::exchange(table->isRefused, true))
        fmt::print(stderr, "{}\n", error.what());
    }
    if (reader && table->follower) {
      table->follower->readerIs(std::move(reader));
    } else if (reader) {
      table->follower = std::make_unique<VeskSharedMem::RowFollower>(std::move(reader));
    } else if (table->follower) {
      letGo(*table);
    }
  }
  hasLooked_ = true;
}

void TableFollower::letGo(Table& table) {
  table.follower.reset();
  for (auto& [key, row] : table.rows) {
    row.now.reset();
    table.touched.push_back(key);
  }
  sort(table.layout, table.touched);
}

void TableFollower::tellChanges(bool isEnd) {
  // What an entity holds goes before it: whoever looks from below sees both, or only the former.
  for (auto table = tables_.rbegin(); table != tables_.rend(); ++table)
    takeUp(**table);
  for (const auto& table : tables_) {
    std::vector<std::string> keys;
    keys.swap(table->touched);
    for (const std::string& key : keys)
      settle(*table, key, isEnd);
  }
}

void TableFollower::takeUp(Table& table) {
  if (!table.follower) return;
  const bool isFirst = table.rows.empty();
  table.follower->follow([&](std::string_view key, RowState state, std::string_view bytes) {
    enter(table, std::string(key), state, bytes);
  });
  if (isFirst) sort(table.layout, table.touched);
}

void TableFollower::enter(Table& table, std::string key, RowState state, std::string_view bytes) {
  if (!scopeOf(table, &key).isOnWay) return;
  try {
    static_cast<void>(addressOf(table.path, table.layout, key));
  } catch (const Ombra::RangeException&) {
    return;  // a damaged row may have damaged keys
  }
  Row& row = table.rows[key];
  row.now.reset();
  if (state != RowState::missing) {
    row.now = Content{std::string(bytes), state == RowState::corrupt};
    row.heldSince.reset();
  }
  table.touched.push_back(std::move(key));
}

void TableFollower::settle(Table& table, const std::string& key, bool isEnd) {
  const auto it = table.rows.find(key);
  if (it == table.rows.end()) return;
  Row& row = it->second;
  bool hasParent = true;
  if (table.parent != nullptr) {
    const std::size_t size = table.parent->layout.shape.keySize;
    const auto above = table.parent->rows.find(key.substr(0, size));
    hasParent = above != table.parent->rows.end() && above->second.told;
  }
  // A row without its parent is a leftover, or its parent is about to be seen.
  const std::optional<Content> wanted = hasParent ? row.now : std::nullopt;
  if (row.told && !wanted && table.parent != nullptr && !isEnd) {
    if (!row.heldSince) row.heldSince = Clock::now();
    if (Clock::now() - *row.heldSince < holdTime) {
      table.touched.push_back(key);
      return;
    }
  }
  if (row.told != wanted) {
    const std::optional<Content> before = std::exchange(row.told, wanted);
    tell(table, key, before ? &*before : nullptr, wanted ? &*wanted : nullptr);
    if (!wanted) forgetBelow(table, key);
    if (!before) settleBelow(table, key);
  }
  row.heldSince.reset();
  if (!row.now && !row.told) table.rows.erase(it);
}

void TableFollower::forgetBelow(Table& table, const std::string& key) {
  for (Table* child : table.children) {
    for (const std::string& below : keysBelow(child->rows, key)) {
      Row& row = child->rows[below];
      row.told.reset();
      forgetBelow(*child, below);
      if (!row.now) child->rows.erase(below);
    }
  }
}

void TableFollower::settleBelow(Table& table, const std::string& key) {
  for (Table* child : table.children) {
    std::vector<std::string> keys = keysBelow(child->rows, key);
    sort(child->layout, keys);
    for (const std::string& below : keys)
      settle(*child, below, false);
  }
}

void TableFollower::tell(const Table& table, const std::string& key, const Content* before,
                         const Content* after) const {
  const Scope scope = scopeOf(table, &key);
  if (table.layout.chain.empty())
    return tellAttributes(table, scope, AddressText(table.path, true), before, after);
  const AddressText at = addressOf(table.path, table.layout, key);
  const FieldInfo& field = *table.layout.chain.back();
  const bool isValue = field.kind == FieldKind::valueMap && !isOnlyKey(*field.valueType);
  if (scope.isWhole) {
    if (after == nullptr) return say(at, RowChange::Kind::removed);
    if (isValue) return tellValue(at, *field.valueType, *after);
    if (before == nullptr) say(at, RowChange::Kind::added);
  }
  if (table.type != nullptr) tellAttributes(table, scope, at, before, after);
}

/// An attribute that holds its default is nothing to tell of an entity that came.
void TableFollower::tellAttributes(const Table& table, const Scope& scope, const AddressText& at,
                                   const Content* before, const Content* after) const {
  if (after != nullptr && after->isCorrupt) return;
  std::size_t offset = 0;
  for (const FieldInfo* field : table.layout.values) {
    const std::size_t size = field->valueType->byteSize();
    const std::string initial = initialValue(*table.type, *field);
    const auto bytesOf = [&](const Content* content) {
      return content == nullptr || content->isCorrupt ? initial
                                                      : content->bytes.substr(offset, size);
    };
    const std::string old = bytesOf(before);
    const std::string now = bytesOf(after);
    offset += size;
    const bool isNamed = std::find(scope.attributes.begin(), scope.attributes.end(), field) !=
                         scope.attributes.end();
    const bool isMeant = isNamed || (scope.isWhole && !(at.isPath() && isIdentity(*field)));
    if (!isMeant || old == now) continue;
    const AddressText own = at.child(*field, std::nullopt);
    if (after == nullptr && !at.isPath()) {
      say(own, RowChange::Kind::removed);
    } else {
      tellValue(own, *field->valueType, {now, false});
    }
  }
}

void TableFollower::tellValue(const AddressText& at, const Vesk::ValueType& type,
                              const Content& content) const {
  RowChange change{at.text(), RowChange::Kind::value, "(corrupt)", "(corrupt)"};
  if (!content.isCorrupt) {
    try {
      change.text = type.text(content.bytes, false);
      change.value = valueJson(type, content.bytes);
    } catch (const Ombra::RangeException&) {
      change.text = "(corrupt)";
    }
  }
  sink_(change);
}

void TableFollower::say(const AddressText& at, RowChange::Kind kind) const {
  sink_({at.text(), kind, {}, nullptr});
}

void TableFollower::wait(std::chrono::milliseconds timeout) {
  TableWaiter::Watched watched;
  for (const auto& table : tables_) {
    if (!table->touched.empty()) timeout = std::min(timeout, holdTime);
    watched.paths.push_back(directory_ + table->layout.file);
    if (table->follower)
      watched.tables.push_back({&table->follower->reader(), table->follower->cursor()});
  }
  if (waiter_.wait(watched, timeout) == TableWaiter::Woken::byFile) findFiles();
}

}  // namespace Host
