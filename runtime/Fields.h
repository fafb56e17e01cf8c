// Reflection of the attributes that runtime/Record.h declares: one FieldInfo class per kind, and
// the record type that gathers them. Nothing here is named by hand-written code.
#pragma once

#include <algorithm>
#include <utility>

#include "runtime/Attributes.h"
#include "runtime/Reflect.h"

namespace Vesk {

template <class R>
const RecordType& recordTypeOf();

/// The key member of a row.
template <Composite Row>
[[nodiscard]] decltype(auto) keyOf(const Row& row) {
  constexpr int index = [] {
    int i = 0, found = 0;
    forEachMember<Row>([&](auto member) {
      if (member.isKey) found = i;
      ++i;
    });
    return found;
  }();
  return (row.*(Row::veskMember(Count<index>{}).pointer));
}
template <class T>
constexpr bool hasKeyMember() {
  bool has = false;
  if constexpr (Composite<T>) forEachMember<T>([&](auto member) { has = has || member.isKey; });
  return has;
}

template <class T>
[[nodiscard]] std::string bytesOf(const T& value) {
  std::string out;
  out.reserve(sizeof value);
  toBytes(value, out);
  return out;
}

template <class Tag>
class TypedField : public FieldInfo {
 protected:
  using Record = typename Tag::Record;
  TypedField(FieldKind fieldKind) {
    name = Tag::name;
    id = Tag::id;
    kind = fieldKind;
    capacity = Tag::capacity;
  }
  static const auto& attr(const Entity& entity) {
    return Tag::attr(static_cast<const Record&>(entity));
  }
  static auto& attr(Entity& entity) { return Tag::attr(static_cast<Record&>(entity)); }
  template <class T>
  static T read(std::string_view bytes) {
    return fromBytes<T>(bytes);
  }
  template <class Target>
  static const RecordType& typeOf() {
    return std::remove_const_t<Target>::veskType();
  }
  /// The type-erased view of an entity that this process may change only through its owner.
  template <class Target>
  static Ombra::Ptr<Entity> erased(const Ombra::Ptr<Target>& target) {
    return Ombra::Ptr<Entity>(const_cast<std::remove_const_t<Target>*>(target.get()));
  }
};

template <class Tag>
class ValueField final : public TypedField<Tag> {
  using T = typename Tag::Attr::Value;
  using Base = TypedField<Tag>;

 public:
  using Base::get;
  using Base::set;
  ValueField() : Base(FieldKind::value) { this->valueType = &Vesk::valueType<T>(); }
  std::string get(const Entity& e) const override { return bytesOf(Base::attr(e).get()); }
  void set(Entity& e, std::string_view v) const override {
    Base::attr(e).is(e, Tag::id, Base::template read<T>(v));
  }
  void reset(Entity& e) const override { Base::attr(e).is(e, Tag::id, Base::attr(e).initial()); }
};

/// The key that a Keyed entity was made with.
template <class R>
class KeyField final : public FieldInfo {
 public:
  using FieldInfo::get;
  using FieldInfo::set;
  KeyField(std::string_view fieldName, int index) {
    name = fieldName;
    id = static_cast<Ombra::FieldId>(index);
    isKey = true;
    valueType = &Vesk::valueType<typename R::KeyType>();
  }
  std::string get(const Entity& e) const override {
    return bytesOf(static_cast<const R&>(e).*KeyReader::member());
  }
  void set(Entity&, std::string_view) const override {}
  void reset(Entity&) const override {}

 private:
  struct KeyReader : R {
    static auto member() { return &KeyReader::key_; }
  };
};

template <class Tag>
class ReferenceField final : public TypedField<Tag> {
  using Target = typename Tag::Attr::Target;
  using Base = TypedField<Tag>;

 public:
  using Base::child;
  ReferenceField() : Base(FieldKind::reference) {
    this->isConst = std::is_const_v<Target>;
    this->targetType = &Base::template typeOf<Target>;
  }
  Ombra::Ptr<Entity> child(const Entity& e) const override {
    return Base::erased(Base::attr(e).get());
  }
  bool adopt(Entity& e, std::string_view, const Ombra::Ptr<Entity>& target) const override {
    Base::attr(e).is(e, Tag::id, Ombra::Ptr<Target>(static_cast<Target*>(target.get())));
    return true;
  }
  void reset(Entity& e) const override { Base::attr(e).is(e, Tag::id, nullptr); }
};

template <class Tag>
class InstanceField final : public TypedField<Tag> {
  using Target = typename Tag::Attr::Target;
  using Base = TypedField<Tag>;

 public:
  using Base::child;
  InstanceField() : Base(FieldKind::instance) { this->targetType = &Base::template typeOf<Target>; }
  Ombra::Ptr<Entity> child(const Entity& e) const override {
    return Base::erased(Base::attr(e).get());
  }
  bool adopt(Entity& e, std::string_view, const Ombra::Ptr<Entity>& target) const override {
    Base::attr(e).adopt(e, Tag::id, Ombra::Ptr<Target>(static_cast<Target*>(target.get())));
    return true;
  }
  void reset(Entity& e) const override { Base::attr(e).del(e, Tag::id); }
  void forEachChild(const Entity& e,
                    const std::function<void(std::string_view, Entity&)>& f) const override {
    if (const auto held = child(e)) f({}, *held);
  }
};

/// What the three kinds of collection share.
template <class Tag>
class CollectionField : public TypedField<Tag> {
 protected:
  using K = typename Tag::Attr::Key;
  using Base = TypedField<Tag>;
  explicit CollectionField(FieldKind collectionKind) : Base(collectionKind) {
    this->keyType = &Vesk::valueType<K>();
  }
  static K readKey(std::string_view key) { return Base::template read<K>(key); }

 public:
  std::size_t count(const Entity& e) const override { return Base::attr(e).count(); }
  std::vector<std::string> keys(const Entity& e) const override {
    std::vector<K> sorted;
    sorted.reserve(count(e));
    for (auto c = Base::attr(e).map().begin(); !c.atEnd(); c.advance())
      sorted.push_back(c.key());
    std::sort(sorted.begin(), sorted.end());
    std::vector<std::string> bytes;
    bytes.reserve(sorted.size());
    for (const K& key : sorted)
      bytes.push_back(bytesOf(key));
    return bytes;
  }
  bool has(const Entity& e, std::string_view key) const override {
    return Base::attr(e).has(readKey(key));
  }
  void del(Entity& e, std::string_view key) const override {
    Base::attr(e).del(e, Tag::id, readKey(key));
  }
  void reset(Entity& e) const override { Base::attr(e).delAll(e, Tag::id); }
  std::string keyBytes(const void* key) const override {
    return bytesOf(*static_cast<const K*>(key));
  }
  bool corruptIs(Entity& e, std::string_view key, bool corrupt) const override {
    if constexpr (Tag::Attr::isShared) Base::attr(e).corruptIs(readKey(key), corrupt);
    return Tag::Attr::isShared;
  }
  bool corrupt(const Entity& e, std::string_view key) const override {
    return Base::attr(e).corrupt(readKey(key));
  }
};

template <class Tag>
class MapField final : public CollectionField<Tag> {
  using V = typename Tag::Attr::Value;
  using Base = CollectionField<Tag>;

 public:
  using Base::get;
  using Base::set;
  MapField() : Base(FieldKind::valueMap) { this->valueType = &Vesk::valueType<V>(); }
  std::string get(const Entity& e, std::string_view key) const override {
    return bytesOf(Base::attr(e).get(e, Base::readKey(key)));
  }
  bool find(const Entity& e, std::string_view key, std::string& value) const override {
    const V* const found = Base::attr(e).map().find(Base::readKey(key));
    if (found == nullptr) return false;
    value.clear();
    toBytes(*found, value);
    return true;
  }
  void set(Entity& e, std::string_view key, std::string_view value) const override {
    const auto k = Base::readKey(key);
    V v = Base::template read<V>(value);
    if constexpr (hasKeyMember<V>())
      const_cast<std::remove_cvref_t<decltype(keyOf(v))>&>(keyOf(v)) = k;
    Base::attr(e).is(e, Tag::id, k, std::move(v));
  }
};

template <class Tag>
class SetField final : public CollectionField<Tag> {
  using Base = CollectionField<Tag>;

 public:
  SetField() : Base(FieldKind::valueSet) {}
  void add(Entity& e, std::string_view key) const override {
    Base::attr(e).is(e, Tag::id, Base::readKey(key));
  }
};

template <class Tag>
class InstanceMapField final : public CollectionField<Tag> {
  using Target = typename Tag::Attr::Target;
  using Base = CollectionField<Tag>;

 public:
  using Base::child;
  InstanceMapField() : Base(FieldKind::instanceMap) {
    this->targetType = &Base::template typeOf<Target>;
  }
  void add(Entity& e, std::string_view key) const override {
    if (Base::has(e, key)) return;
    if (const auto made = this->targetType().make(key)) adopt(e, key, made);
  }
  Ombra::Ptr<Entity> child(const Entity& e, std::string_view key) const override {
    return Base::erased(Base::attr(e).get(Base::readKey(key)));
  }
  bool adopt(Entity& e, std::string_view key, const Ombra::Ptr<Entity>& target) const override {
    Base::attr(e).adopt(e, Tag::id, Base::readKey(key),
                        Ombra::Ptr<Target>(static_cast<Target*>(target.get())));
    return true;
  }
  void forEachChild(const Entity& e,
                    const std::function<void(std::string_view, Entity&)>& f) const override {
    for (auto c = Base::attr(e).map().begin(); !c.atEnd(); c.advance())
      if (const auto child = c.value()) f(bytesOf(c.key()), *child);
  }
};

template <class R>
class RecordTypeOf final : public RecordType {
 public:
  RecordTypeOf() : RecordType(R::veskName, std::is_base_of_v<Machine, R>) {
    constexpr int count = decltype(R::veskCount(Rank<maxMembers>{}))::value;
    [&]<int... I>(std::integer_sequence<int, I...>) {
      (fields_.push_back(&R::veskField(Count<I>{})), ...);
    }
    (std::make_integer_sequence<int, count>{});
  }
  bool canMake() const override { return keyed || std::is_default_constructible_v<R>; }
  Ombra::Ptr<Entity> make([[maybe_unused]] std::string_view key) const override {
    if constexpr (keyed) {
      return Ombra::make<R>(fromBytes<typename R::KeyType>(key));
    } else if constexpr (std::is_default_constructible_v<R>) {
      return Ombra::make<R>();
    } else {
      return nullptr;
    }
  }

 private:
  static constexpr bool keyed = [] {
    if constexpr (requires { typename R::KeyType; }) {
      return std::is_constructible_v<R, typename R::KeyType> && !std::is_abstract_v<R>;
    } else {
      return false;
    }
  }();
};

template <class R>
const RecordType& recordTypeOf() {
  static const RecordTypeOf<R> type;
  return type;
}

}  // namespace Vesk
