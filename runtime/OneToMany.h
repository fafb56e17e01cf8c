// A small index: for one key, the members that were noted under it, in the order of iteration of
// all maps. Owns: its own copies. Reads and writes nothing else. Runs: in the notifications that
// change what it mirrors, so that an event finds whom it concerns without a look at everybody else.
// Caveat: no counts; whoever notes a member twice takes it out once.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "runtime/KeyedMap.h"

namespace Vesk {

template <class Key, class Value>
class OneToMany {
 public:
  void add(const Key& key, const Value& value) {
    if (!map_.has(key)) map_.insert(key, std::make_unique<Values>());
    Values& values = **map_.find(key);
    if (!values.has(value)) values.insert(value, {});
  }
  void remove(const Key& key, const Value& value) {
    const auto* values = map_.find(key);
    if (values == nullptr || !(*values)->erase(value)) return;
    if ((*values)->empty()) map_.erase(key);
  }
  [[nodiscard]] bool has(const Key& key, const Value& value) const {
    const auto* values = map_.find(key);
    return values != nullptr && (*values)->has(value);
  }
  /// The first member, none if there is none.
  [[nodiscard]] std::optional<Value> first(const Key& key) const {
    const auto* values = map_.find(key);
    return values == nullptr ? std::nullopt : std::optional<Value>((*values)->begin().key());
  }
  /// True as soon as the test holds for a member. The test must not change the index.
  template <class Test>
  [[nodiscard]] bool any(const Key& key, Test test) const {
    const auto* values = map_.find(key);
    if (values == nullptr) return false;
    bool found = false;
    (*values)->visitUntil([&](const Value& value, NoValue) { return found = test(value); });
    return found;
  }
  /// A copy, so that whatever follows from it may change the index.
  [[nodiscard]] std::vector<Value> of(const Key& key) const {
    const auto* values = map_.find(key);
    return values == nullptr ? std::vector<Value>() : (*values)->keys();
  }

 private:
  using Values = KeyedMap<Value, NoValue>;
  KeyedMap<Key, std::unique_ptr<Values>> map_;
};

}  // namespace Vesk
