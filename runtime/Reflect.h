// Records without their C++ types: names and kinds of attributes, and reading and writing them by
// text or bytes. Everything that treats all records alike stands on this: printing, scenarios,
// recording, shared tables, machine trees. A key or value without its type is its bytes
// (runtime/ValueTraits.h); ValueType tells how they read and compare.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/Entity.h"
#include "runtime/ValueTraits.h"

namespace Vesk {

/// A value type at run time.
class ValueType {
 public:
  struct Field {
    std::string name;
    const ValueType* type;
    bool isKey;
  };
  struct Enumerator {
    std::string_view name;
    std::uint64_t number;
  };
  virtual ~ValueType() = default;
  [[nodiscard]] const std::string& name() const { return name_; }
  /// "composite", or the form of a scalar's bytes and text.
  [[nodiscard]] std::string_view form() const { return form_; }
  /// Bytes of every value, 0 if they differ in size.
  [[nodiscard]] std::size_t byteSize() const { return byteSize_; }
  /// Members of a composite; empty for a scalar.
  [[nodiscard]] const std::vector<Field>& fields() const { return fields_; }
  /// Known values of an enumeration; empty for any other type.
  [[nodiscard]] const std::vector<Enumerator>& enumerators() const { return enumerators_; }
  /// True for the rows of a collection, which hold their own key.
  [[nodiscard]] bool hasKey() const;
  [[nodiscard]] virtual std::string text(std::string_view bytes, bool withKey = true) const = 0;
  /// Throws ParseError or Ombra::RangeException.
  [[nodiscard]] virtual std::string bytes(std::string_view text) const = 0;
  [[nodiscard]] virtual std::string defaultBytes() const = 0;
  /// Negative, zero or positive, in the type's own order.
  [[nodiscard]] virtual int compare(std::string_view a, std::string_view b) const = 0;
  /// The bytes of each member, in order.
  [[nodiscard]] virtual std::vector<std::string> split(std::string_view bytes) const = 0;

 protected:
  ValueType(std::string name, std::string_view form, std::size_t byteSize)
      : name_(std::move(name)), form_(form), byteSize_(byteSize) {}
  std::vector<Field> fields_;
  std::vector<Enumerator> enumerators_;

 private:
  std::string name_;
  std::string_view form_;
  std::size_t byteSize_;
};

/// The run-time description of T.
template <class T>
const ValueType& valueType();

enum class FieldKind { value, reference, instance, valueMap, valueSet, instanceMap };
[[nodiscard]] std::string_view kindText(FieldKind kind);

/// One attribute of a record type. Operations that do not fit the kind end the process: callers ask
/// `kind` first. Keys and values are bytes.
class FieldInfo {
 public:
  virtual ~FieldInfo() = default;

  std::string_view name;
  Ombra::FieldId id = 0;
  FieldKind kind = FieldKind::value;
  bool isKey = false;                           ///< the entity's own key: fixed, never published
  bool isConst = false;                         ///< a reference for read access
  std::uint32_t capacity = 0;                   ///< rows of a shared table, 0 if not stated
  const ValueType* keyType = nullptr;           ///< of a collection
  const ValueType* valueType = nullptr;         ///< of a value or of a value map
  const RecordType& (*targetType)() = nullptr;  ///< of a reference, instance or instance map

  [[nodiscard]] bool isCollection() const {
    return kind == FieldKind::valueMap || kind == FieldKind::valueSet ||
           kind == FieldKind::instanceMap;
  }
  [[nodiscard]] bool holdsEntities() const {
    return kind == FieldKind::reference || kind == FieldKind::instance ||
           kind == FieldKind::instanceMap;
  }
  /// True if the attribute owns the entities that it holds.
  [[nodiscard]] bool owns() const {
    return kind == FieldKind::instance || kind == FieldKind::instanceMap;
  }

  // value
  [[nodiscard]] virtual std::string get(const Entity&) const;
  virtual void set(Entity&, std::string_view value) const;
  // collections
  [[nodiscard]] virtual std::size_t count(const Entity&) const;
  [[nodiscard]] virtual std::vector<std::string> keys(const Entity&) const;  ///< in key order
  [[nodiscard]] virtual bool has(const Entity&, std::string_view key) const;
  virtual void del(Entity&, std::string_view key) const;
  /// Default value, null reference or empty collection.
  virtual void reset(Entity&) const;
  // value map: reads as a look-up (a corrupt entry is reported), writes one entry
  [[nodiscard]] virtual std::string get(const Entity&, std::string_view key) const;
  /// The value of a map at a key; false if it is not there. Asks no mark of damage.
  virtual bool find(const Entity&, std::string_view key, std::string& value) const;
  virtual void set(Entity&, std::string_view key, std::string_view value) const;
  // value set, and instance map of entities that need only their key
  virtual void add(Entity&, std::string_view key) const;
  // reference, instance, instance map
  [[nodiscard]] virtual Ombra::Ptr<Entity> child(const Entity&) const;
  [[nodiscard]] virtual Ombra::Ptr<Entity> child(const Entity&, std::string_view key) const;
  /// Stores an entity that was made elsewhere; false if the attribute cannot take it.
  virtual bool adopt(Entity&, std::string_view key, const Ombra::Ptr<Entity>&) const;
  /// Every entity that is held, in no order.
  virtual void forEachChild(const Entity&,
                            const std::function<void(std::string_view key, Entity&)>&) const;
  /// Bytes of the key that a listener is handed.
  [[nodiscard]] virtual std::string keyBytes(const void* key) const;
  /// The mark of a damaged row, for tests; false if the attribute is not of a shared table.
  virtual bool corruptIs(Entity&, std::string_view key, bool corrupt) const;
  [[nodiscard]] virtual bool corrupt(const Entity&, std::string_view key) const;
};

/// A record type: its name and its attributes in order of declaration.
class RecordType {
 public:
  RecordType(std::string_view name, bool isMachine) : name_(name), isMachine_(isMachine) {}
  RecordType(const RecordType&) = delete;
  RecordType& operator=(const RecordType&) = delete;
  virtual ~RecordType() = default;

  [[nodiscard]] std::string_view name() const { return name_; }
  [[nodiscard]] bool isMachine() const { return isMachine_; }
  [[nodiscard]] const std::vector<const FieldInfo*>& fields() const { return fields_; }
  [[nodiscard]] const FieldInfo* field(std::string_view name) const;
  /// The attribute that is the entity's own key, or null.
  [[nodiscard]] const FieldInfo* keyField() const;
  /// True if an entity can be made from its key alone.
  [[nodiscard]] virtual bool canMake() const = 0;
  /// A fresh entity; `key` is not looked at if the type has none.
  [[nodiscard]] virtual Ombra::Ptr<Entity> make(std::string_view key) const = 0;

  static const RecordType* find(std::string_view name);
  /// All record types by name.
  static std::vector<const RecordType*> all();

 protected:
  std::vector<const FieldInfo*> fields_;

 private:
  std::string_view name_;
  bool isMachine_;
};

/// Enters a record type into the list at load; the type itself is built on first use.
struct RecordRegistration {
  RecordRegistration(std::string_view name, const RecordType& (*type)());
};

/// One registration per record type.
template <class R>
extern const RecordRegistration registrationOf;

// --- the one implementation of ValueType
// ---------------------------------------------------------------------------

template <class T>
class ValueTypeOf final : public ValueType {
 public:
  ValueTypeOf() : ValueType(typeNameOf<T>(), formOf(), byteSizeOf<T>()) {
    if constexpr (Composite<T>)
      forEachMember<T>([&]<class M>(Member<T, M> member) {
        fields_.push_back({std::string(member.name), &Vesk::valueType<M>(), member.isKey});
      });
    if constexpr (std::is_enum_v<T>)
      for (const auto& known : EnumNames<T>::values)
        enumerators_.push_back({known.text, static_cast<std::uint64_t>(known.value)});
  }
  std::string text(std::string_view bytes, bool withKey) const override {
    return textOf(fromBytes<T>(bytes), withKey);
  }
  std::string bytes(std::string_view text) const override { return made(valueOf<T>(text)); }
  std::string defaultBytes() const override { return made(T{}); }
  int compare(std::string_view a, std::string_view b) const override {
    const T x = fromBytes<T>(a);
    const T y = fromBytes<T>(b);
    return x == y ? 0 : (x < y ? -1 : 1);
  }
  std::vector<std::string> split(std::string_view bytes) const override {
    std::vector<std::string> parts;
    if constexpr (Composite<T>) {
      const T value = fromBytes<T>(bytes);
      forEachMember<T>([&](auto member) {
        std::string part;
        toBytes(value.*member.pointer, part);
        parts.push_back(std::move(part));
      });
    }
    return parts;
  }

 private:
  static constexpr std::string_view formOf() {
    if constexpr (Composite<T>) {
      return "composite";
    } else {
      return Leaf<T>::form;
    }
  }
  static std::string made(const T& value) {
    std::string out;
    toBytes(value, out);
    return out;
  }
};

template <class T>
const ValueType& valueType() {
  if constexpr (requires { typename Leaf<T>::Value; }) {
    return valueType<typename Leaf<T>::Value>();  // stands for a value of another type
  } else {
    static const ValueTypeOf<T> type;
    return type;
  }
}

}  // namespace Vesk
