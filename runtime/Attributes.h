// The storage of attributes, one class per kind. Each holds the data and does the writes; the
// record passes itself and the attribute's id, under which every effective change is published. A
// write of the present value publishes nothing. Records declare attributes with the macros of
// runtime/Record.h.
#pragma once

#include <concepts>
#include <memory>
#include <optional>
#include <stdexcept>
#include <type_traits>

#include "runtime/Corruption.h"
#include "runtime/KeyedMap.h"
#include "runtime/Machine.h"

namespace Vesk {

/// A plain value.
template <class T>
class ValueAttr {
 public:
  using Key = void;
  using Value = T;
  ValueAttr() = default;
  explicit ValueAttr(T initial) : value_(std::move(initial)), initial_(value_) {}
  [[nodiscard]] const T& get() const { return value_; }
  [[nodiscard]] const T& initial() const { return initial_; }
  void is(Entity& owner, Ombra::FieldId field, T value) {
    if (value_ == value) return;
    value_ = std::move(value);
    owner.publish(field);
  }

 private:
  T value_{};
  T initial_{};
};

/// A counted reference to an entity that somebody else owns; compared by identity.
template <class T>
class RefAttr {
 public:
  using Key = void;
  using Target = T;
  static constexpr bool isReference = true;
  [[nodiscard]] const Ombra::Ptr<T>& get() const { return target_; }
  void is(Entity& owner, Ombra::FieldId field, Ombra::Ptr<T> target) {
    if (target_ == target) return;
    std::swap(target_, target);
    owner.publish(field);
  }

 private:
  Ombra::Ptr<T> target_;
};

/// A machine that an attribute takes in knows who holds it.
template <class T>
void takeIn(const Ombra::Ptr<T>& instance, [[maybe_unused]] Entity& holder) {
  if constexpr (std::is_base_of_v<Machine, T>) {
    if (instance) instance->holderIs(&holder);
  }
}

/// Silences a machine that is about to be dropped; anything else needs no word.
template <class T>
void silence(const Ombra::Ptr<T>& instance) {
  if constexpr (std::is_base_of_v<Machine, T>) {
    if (!instance) return;
    instance->hasNotificationActiveIs(false);
    instance->holderIs(nullptr);
  }
}

/// The arguments of an instance can be compared with others: it has none, or keeps them in `in`.
template <class T>
concept KeepsInputs = std::is_same_v<typename T::Inputs, NoInputs> ||
    requires(const T& instance, const typename T::Inputs& in) {
  { instance.in == in } -> std::convertible_to<bool>;
};

template <class T>
[[nodiscard]] bool sameInputs([[maybe_unused]] const T& instance,
                              [[maybe_unused]] const typename T::Inputs& in) {
  if constexpr (std::is_same_v<typename T::Inputs, NoInputs>) {
    return true;
  } else {
    return instance.in == in;
  }
}

template <class T>
constexpr bool goesFirst() {
  if constexpr (requires { T::succession; }) {
    return T::succession == Succession::goesFirst;
  } else {
    return std::is_base_of_v<Machine, T>;
  }
}

/// Makes an instance from its key, if its constructor takes one, and its inputs.
template <class T, class... K>
[[nodiscard]] Ombra::Ptr<T> makeInstance(typename T::Inputs in, const K&... key) {
  if constexpr (std::is_constructible_v<T, K..., typename T::Inputs>) {
    return Ombra::make<T>(key..., std::move(in));
  } else if constexpr (std::is_constructible_v<T, typename T::Inputs>) {
    return Ombra::make<T>(std::move(in));
  } else {
    return Ombra::make<T>(key...);
  }
}

/// Machines that are being made. One that is asked for again from inside its own constructor is not
/// made twice: who asks gets null, and what was wanted last stands in the end.
template <class Key, class T>
class Making : private MakingTurns {
 public:
  using Inputs = typename T::Inputs;
  /// True if the key's machine is being made; then these are its wanted arguments, none to drop it.
  bool wants(const Key& key, std::optional<Inputs> in) {
    for (Link* link = innermost(); link != nullptr; link = link->outer) {
      auto& turn = static_cast<Turn&>(*link);
      if (turn.key != key) continue;
      turn.wanted = std::move(in);
      return true;
    }
    return false;
  }
  /// `make` is called with the arguments until these are still the wanted ones.
  template <class Make>
  [[nodiscard]] Ombra::Ptr<T> make(const Key& key, Inputs in, Make make) {
    Turn turn(key, std::move(in));
    const Begun begun(*this, turn);
    Ombra::Ptr<T> made;
    while (turn.wanted && !(made && sameInputs(*made, *turn.wanted))) {
      if (goesFirst<T>()) silence(std::exchange(made, nullptr));
      const Acting atWork(&T::veskType);
      const Ombra::Ptr<T> overtaken = std::exchange(made, make(Inputs(*turn.wanted)));
      silence(overtaken);
    }
    if (!turn.wanted) silence(std::exchange(made, nullptr));
    return made;
  }

 private:
  struct Turn : Link {
    Turn(const Key& k, Inputs in) : key(k), wanted(std::move(in)) {}
    const Key key;
    std::optional<Inputs> wanted;
  };
};
/// A record is made without a word to anybody.
struct MakesAtOnce {};
template <class Key, class T>
using MakingOf = std::conditional_t<std::is_base_of_v<Machine, T>, Making<Key, T>, MakesAtOnce>;

/// One owned instance. Equal arguments keep it; of a machine with other arguments the old one and
/// the new one go and come as its `succession` says.
template <class T>
class InstanceAttr {
 public:
  using Key = void;
  using Target = T;
  static constexpr bool isReference = true;
  [[nodiscard]] const Ombra::Ptr<T>& get() const { return instance_; }
  Ombra::Ptr<T> is(Entity& owner, Ombra::FieldId field, typename T::Inputs in) {
    static_assert(KeepsInputs<T>, "a type with Inputs keeps them in a public member `in`");
    if (instance_ && sameInputs(*instance_, in)) {
      if constexpr (isMachine) instance_->hasNotificationActiveIs(true);
      return instance_;
    }
    if constexpr (isMachine) {
      if (making_.wants({}, in)) return nullptr;
      const Ombra::Ptr<T> made = making_.make({}, std::move(in), [&](typename T::Inputs now) {
        if (goesFirst<T>() && instance_) adopt(owner, field, nullptr);
        return makeInstance<T>(std::move(now));
      });
      if (made) adopt(owner, field, made);
      return made;
    } else {
      const Ombra::Ptr<T> made = makeInstance<T>(std::move(in));
      adopt(owner, field, made);
      return made;
    }
  }
  void del(Entity& owner, Ombra::FieldId field) {
    if constexpr (isMachine) making_.wants({}, std::nullopt);
    if (instance_) adopt(owner, field, nullptr);
  }
  void adopt(Entity& owner, Ombra::FieldId field, Ombra::Ptr<T> instance) {
    takeIn(instance, owner);
    std::swap(instance_, instance);
    silence(instance);
    owner.publish(field);
  }

 private:
  static constexpr bool isMachine = std::is_base_of_v<Machine, T>;
  Ombra::Ptr<T> instance_;
  [[no_unique_address]] MakingOf<NoValue, T> making_;
};

/// What a reference of a record reads as when the record is const.
template <class T>
using ConstTarget =
    std::conditional_t<std::is_const_v<T>, const Ombra::Ptr<T>&, Ombra::Ptr<T const>>;

/// Keeps the owner of a collection alive while somebody iterates over it, and ends at a damaged
/// row. The entities of a const owner are const.
template <class Attr, bool isConst>
class Iteration {
 public:
  using Cursor = typename Attr::Map::Cursor;
  Iteration(Ombra::Ptr<const Entity> owner, const Attr& attr, Cursor start)
      : owner_(std::move(owner)), attr_(&attr), start_(std::move(start)) {}

  struct End {};
  class Iterator {
   public:
    Iterator(const Iteration* iteration, Cursor cursor)
        : iteration_(iteration), cursor_(std::move(cursor)) {
      check();
    }
    auto operator*() const { return Attr::template entry<isConst>(cursor_); }
    Iterator& operator++() {
      cursor_.advance();
      check();
      return *this;
    }
    bool operator!=(End) const { return !ended_ && !cursor_.atEnd(); }

   private:
    void check() {
      if (!cursor_.atEnd()) ended_ = iteration_->attr_->damaged(*iteration_->owner_, cursor_.key());
    }
    const Iteration* iteration_;
    Cursor cursor_;
    bool ended_ = false;
  };
  [[nodiscard]] Iterator begin() const { return Iterator(this, start_); }
  [[nodiscard]] End end() const { return {}; }

 private:
  Ombra::Ptr<const Entity> owner_;
  const Attr* attr_;
  Cursor start_;
};

template <class Owner, class Attr, class Cursor>
[[nodiscard]] auto iterationOf(Owner& owner, const Attr& attr, Cursor start) {
  return Iteration<Attr, std::is_const_v<Owner>>(Ombra::Ptr<const Entity>(&owner), attr,
                                                 std::move(start));
}

/// What the three collections share: the map, and for shared tables the marks of damaged rows.
template <class K, class V, bool Shared = false>
class CollectionAttr {
 public:
  using Key = K;
  using Map = KeyedMap<K, V>;
  static constexpr bool isShared = Shared;
  [[nodiscard]] const Map& map() const { return map_; }
  [[nodiscard]] bool has(const K& key) const { return map_.has(key); }
  [[nodiscard]] std::uint32_t count() const { return map_.size(); }

  /// True, after a report, if the row is damaged.
  [[nodiscard]] bool damaged([[maybe_unused]] const Entity& owner,
                             [[maybe_unused]] const K& key) const {
    if constexpr (Shared) {
      if (corrupt_ && corrupt_->has(key)) return VeskSharedMem::damagedRow(owner, textOf(key));
    }
    return false;
  }
  void corruptIs(const K& key, bool corrupt) {
    if (corrupt && !map_.has(key)) return;
    if (corrupt && !corrupt_) corrupt_ = std::make_unique<KeyedMap<K, NoValue>>();
    if (!corrupt_ || corrupt_->has(key) == corrupt) return;
    if (corrupt) {
      corrupt_->insert(key, {});
    } else {
      corrupt_->erase(key);
    }
  }
  [[nodiscard]] bool corrupt(const K& key) const { return corrupt_ && corrupt_->has(key); }

 protected:
  /// Erases and publishes; false if the key is not there.
  bool erase(Entity& owner, Ombra::FieldId field, const K& key) {
    if (corrupt_) corruptIs(key, false);
    if (!map_.erase(key)) return false;
    owner.publish(field, &key);
    return true;
  }
  Map map_;

 private:
  struct NoMarks {
    explicit operator bool() const { return false; }
    KeyedMap<K, NoValue>* operator->() const { return nullptr; }
    NoMarks& operator=(std::unique_ptr<KeyedMap<K, NoValue>>) { return *this; }
  };
  [[no_unique_address]] std::conditional_t<Shared, std::unique_ptr<KeyedMap<K, NoValue>>, NoMarks>
      corrupt_;
};

/// Key to value. A missing key reads as the default value.
template <class K, class V, bool Shared = false>
class MapAttr : public CollectionAttr<K, V, Shared> {
 public:
  using Value = V;
  struct Entry {
    K key;
    V value;
  };
  template <bool isConst>
  static Entry entry(const typename KeyedMap<K, V>::Cursor& cursor) {
    return {cursor.key(), cursor.value()};
  }

  [[nodiscard]] V get(const Entity& owner, const K& key) const {
    if (this->damaged(owner, key)) return V{};
    const V* value = this->map_.find(key);
    return value == nullptr ? V{} : *value;
  }
  void is(Entity& owner, Ombra::FieldId field, const K& key, V value) {
    const bool wasCorrupt = Shared && this->corrupt(key);
    if (wasCorrupt) this->corruptIs(key, false);
    if (V* present = this->map_.find(key)) {
      if (*present == value && !wasCorrupt) return;
      std::swap(*present, value);
    } else {
      this->map_.insert(key, std::move(value));
    }
    owner.publish(field, &key);
  }
  void del(Entity& owner, Ombra::FieldId field, const K& key) { this->erase(owner, field, key); }
  void delAll(Entity& owner, Ombra::FieldId field) {
    const Ombra::Ptr<Entity> alive(&owner);
    for (auto c = this->map_.begin(); !c.atEnd(); c.advance()) {
      const K key = c.key();
      del(owner, field, key);
    }
  }
};

/// A set of values.
template <class K, bool Shared = false>
class SetAttr : public CollectionAttr<K, NoValue, Shared> {
 public:
  template <bool isConst>
  static K entry(const typename KeyedMap<K, NoValue>::Cursor& cursor) {
    return cursor.key();
  }
  [[nodiscard]] bool get(const Entity& owner, const K& key) const {
    return !this->damaged(owner, key) && this->map_.has(key);
  }
  void is(Entity& owner, Ombra::FieldId field, const K& key) {
    const bool wasCorrupt = Shared && this->corrupt(key);
    if (wasCorrupt) this->corruptIs(key, false);
    if (this->map_.has(key)) {
      if (!wasCorrupt) return;
    } else {
      this->map_.insert(key, {});
    }
    owner.publish(field, &key);
  }
  void del(Entity& owner, Ombra::FieldId field, const K& key) { this->erase(owner, field, key); }
  void delAll(Entity& owner, Ombra::FieldId field) {
    delWhile(owner, field, [](const K&) { return true; });
  }
  /// Deletes every member that comes before `key` in the order of iteration.
  void delBefore(Entity& owner, Ombra::FieldId field, const K& key) {
    delWhile(owner, field,
             [&](const K& member) { return KeyedMap<K, NoValue>::before(member, key); });
  }

 private:
  template <class Test>
  void delWhile(Entity& owner, Ombra::FieldId field, Test test) {
    const Ombra::Ptr<Entity> alive(&owner);
    for (auto c = this->map_.begin(); !c.atEnd() && test(c.key()); c.advance()) {
      const K key = c.key();
      del(owner, field, key);
    }
  }
};

/// Key to owned entity or machine.
template <class K, class T>
class InstanceMapAttr : public CollectionAttr<K, Ombra::Ptr<T>> {
 public:
  using Target = T;
  template <class Entity>
  struct Entry {
    K key;
    Ombra::Ptr<Entity> value;
  };
  template <bool isConst>
  static auto entry(const typename KeyedMap<K, Ombra::Ptr<T>>::Cursor& cursor) {
    return Entry<std::conditional_t<isConst, T const, T>>{cursor.key(), cursor.value()};
  }

  [[nodiscard]] Ombra::Ptr<T> get(const K& key) const {
    const Ombra::Ptr<T>* instance = this->map_.find(key);
    return instance == nullptr ? nullptr : *instance;
  }
  /// The present entry, or a new one. Other arguments for a present key are a programming error and
  /// throw.
  Ombra::Ptr<T> is(Entity& owner, Ombra::FieldId field, const K& key, typename T::Inputs in) {
    static_assert(KeepsInputs<T>, "a type with Inputs keeps them in a public member `in`");
    if (const Ombra::Ptr<T> present = get(key)) {
      if (!sameInputs(*present, in))
        throw std::logic_error("entry is present with other arguments: " + textOf(key));
      return present;
    }
    if constexpr (isMachine) {
      if (making_.wants(key, in)) return nullptr;
      const Ombra::Ptr<T> made = making_.make(key, std::move(in), [&](typename T::Inputs now) {
        return makeInstance<T>(std::move(now), key);
      });
      if (made) adopt(owner, field, key, made);
      return made;
    } else {
      const Ombra::Ptr<T> made = makeInstance<T>(std::move(in), key);
      adopt(owner, field, key, made);
      return made;
    }
  }
  void del(Entity& owner, Ombra::FieldId field, const K& key) {
    if constexpr (isMachine) making_.wants(key, std::nullopt);
    const Ombra::Ptr<T> old = get(key);
    if (!old) return;
    this->map_.erase(key);
    silence(old);
    owner.publish(field, &key);
  }
  void delAll(Entity& owner, Ombra::FieldId field) {
    const Ombra::Ptr<Entity> alive(&owner);
    for (auto c = this->map_.begin(); !c.atEnd(); c.advance()) {
      const K key = c.key();
      del(owner, field, key);
    }
  }
  /// Stores an instance that was made elsewhere, in place of a present one.
  void adopt(Entity& owner, Ombra::FieldId field, const K& key, const Ombra::Ptr<T>& instance) {
    takeIn(instance, owner);
    Ombra::Ptr<T> old;
    if (Ombra::Ptr<T>* present = this->map_.find(key)) {
      old = std::exchange(*present, instance);
      silence(old);
    } else {
      this->map_.insert(key, instance);
    }
    owner.publish(field, &key);
  }

 private:
  static constexpr bool isMachine = std::is_base_of_v<Machine, T>;
  [[no_unique_address]] MakingOf<K, T> making_;
};

}  // namespace Vesk
