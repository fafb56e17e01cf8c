// Declaring records: one line per attribute gives its accessors, its change notice, its identity
// and its reflection.
//
//   class VlanToMulticastGroup : public Vesk::Keyed<OverlayVlanGroup> {
//     VESK_RECORD(Routing::Multicast::VlanToMulticastGroup)
//     VESK_KEY(overlayVlanGroup)  // the entity's own key, given to its constructor
//     VESK_SET(UnderlayRoute, multicastGroup)
//   };
//   VESK_REGISTER(Routing::Multicast::VlanToMulticastGroup)  // once, in a source file
//
//   VESK_VALUE(T, x), VESK_VALUE(T, x, initial)
//       x(), xIs(v)
//   VESK_REF(Target, x), VESK_REF(Target const, x) for read access
//       x(), xIs(ptr)
//   VESK_INSTANCE(Target, x)
//       x(), xIs(inputs), xDel()
//   VESK_SET(K, x)
//       xHas(k), xIs(k), xDel(k), xDelAll(), xDelBefore(k), xCount(), xIterator(), xIteratorFrom(k)
//       (none: from the beginning), xKeys() (a copy; those of damaged rows too, at which an
//       iteration ends)
//   VESK_MAP(K, V, x), VESK_ROWS(K, Row, x) for rows that hold their own key
//       x(k), xHas(k), xIs(k, v) or xIs(row), the others as for a set
//   VESK_INSTANCES(K, Target, x)
//       x(k), xHas(k), xIs(k, inputs), xAdopt(k, ptr), the others as for a set
//   VESK_SHARED_SET(K, x, capacity), VESK_SHARED_MAP(K, V, x, capacity),
//   VESK_SHARED_ROWS(K, Row, x, capacity): the same, of a table in shared memory
//
// `xAttr` names the attribute for a subscription: watch<&Sm::handleReady>(in.table,
// VlanGroupTable::readyAttr). VESK_LOCAL_RECORD needs no VESK_REGISTER.
//
// What is read through a record that is const is const too: its entities, at any depth. Accessors
// and reflection are templates, so that whoever includes a record compiles only what it uses of it.
#pragma once

#include "runtime/Attributes.h"
#include "runtime/Fields.h"
#include "runtime/Follow.h"
#include "runtime/PathWatch.h"
#include "runtime/Reflect.h"

#define VESK_RECORD_(...)                                   \
 public:                                                    \
  using VeskSelf = __VA_ARGS__;                             \
  static Vesk::Count<0> veskCount(Vesk::Rank<0>);           \
  static const Vesk::FieldInfo& veskField(Vesk::Count<-1>); \
  static constexpr std::string_view veskName = #__VA_ARGS__;

/// Opens a record or machine; the argument is its qualified name. One source file says
/// VESK_REGISTER of the same name, so that the reflection of a record is compiled once and not by
/// everyone who includes it.
#define VESK_RECORD(...)                               \
  VESK_RECORD_(__VA_ARGS__)                            \
  const Vesk::RecordType& recordType() const override; \
  static const Vesk::RecordType& veskType();

/// At global scope of one source file: the reflection of a record, and its entry in the list of all
/// records.
#define VESK_REGISTER(...)                                                       \
  const Vesk::RecordType& __VA_ARGS__::veskType() {                              \
    return Vesk::recordTypeOf<__VA_ARGS__>();                                    \
  }                                                                              \
  const Vesk::RecordType& __VA_ARGS__::recordType() const {                      \
    return veskType();                                                           \
  }                                                                              \
  template <>                                                                    \
  const Vesk::RecordRegistration Vesk::registrationOf<__VA_ARGS__>{#__VA_ARGS__, \
                                                                   &__VA_ARGS__::veskType};

/// The same in one line, for a record that only one source file knows.
#define VESK_LOCAL_RECORD(...)                                                \
  VESK_RECORD_(__VA_ARGS__)                                                   \
  static const Vesk::RecordType& veskType() {                                 \
    return Vesk::recordTypeOf<VeskSelf>();                                    \
  }                                                                           \
  const Vesk::RecordType& recordType() const override {                       \
    return veskType();                                                        \
  }                                                                           \
  inline static const Vesk::RecordRegistration veskRegistration{#__VA_ARGS__, \
                                                                &Vesk::recordTypeOf<VeskSelf>};

#define VESK_FIELD_(NAME, FIELD, CAPACITY, ...)                                                  \
 public:                                                                                         \
  static constexpr int NAME##Index = decltype(veskCount(Vesk::Rank<Vesk::maxMembers>{}))::value; \
  static Vesk::Count<NAME##Index + 1> veskCount(Vesk::Rank<NAME##Index + 1>);                    \
  struct NAME##Tag {                                                                             \
    using Record = VeskSelf;                                                                     \
    using Attr = __VA_ARGS__;                                                                    \
    static constexpr Ombra::FieldId id = NAME##Index;                                            \
    static constexpr std::string_view name = #NAME;                                              \
    static constexpr std::uint32_t capacity = CAPACITY;                                          \
    static const Attr& attr(const VeskSelf& record) { return record.NAME##_; }                   \
    static Attr& attr(VeskSelf& record) { return record.NAME##_; }                               \
  };                                                                                             \
  static constexpr NAME##Tag NAME##Attr{};                                                       \
  template <class = void>                                                                        \
  static const Vesk::FieldInfo& veskField(Vesk::Count<NAME##Index>) {                            \
    static const Vesk::FIELD<NAME##Tag> field;                                                   \
    return field;                                                                                \
  }

#define VESK_STORAGE_(NAME, ...) \
 private:                        \
  __VA_ARGS__;                   \
                                 \
 public:

/// The key of a Vesk::Keyed entity, under its own name.
#define VESK_KEY(NAME)                                                                           \
  using VeskKeyed = Vesk::Keyed<KeyType>;                                                        \
  using VeskKeyed::VeskKeyed;                                                                    \
  [[nodiscard]] const KeyType& NAME() const {                                                    \
    return key_;                                                                                 \
  }                                                                                              \
  static constexpr int NAME##Index = decltype(veskCount(Vesk::Rank<Vesk::maxMembers>{}))::value; \
  static Vesk::Count<NAME##Index + 1> veskCount(Vesk::Rank<NAME##Index + 1>);                    \
  template <class = void>                                                                        \
  static const Vesk::FieldInfo& veskField(Vesk::Count<NAME##Index>) {                            \
    static const Vesk::KeyField<VeskSelf> field{#NAME, NAME##Index};                             \
    return field;                                                                                \
  }

#define VESK_VALUE(TYPE, NAME, ...)                       \
  VESK_FIELD_(NAME, ValueField, 0, Vesk::ValueAttr<TYPE>) \
  template <class = void>                                 \
  [[nodiscard]] const TYPE& NAME() const {                \
    return NAME##_.get();                                 \
  }                                                       \
  template <class = void>                                 \
  void NAME##Is(TYPE value) {                             \
    NAME##_.is(*this, NAME##Index, std::move(value));     \
  }                                                       \
  VESK_STORAGE_(NAME, Vesk::ValueAttr<TYPE> NAME##_{__VA_ARGS__})

#define VESK_TARGET_(TARGET, NAME)                       \
  template <class = void>                                \
  [[nodiscard]] const Ombra::Ptr<TARGET>& NAME() {       \
    return NAME##_.get();                                \
  }                                                      \
  template <class = void>                                \
  [[nodiscard]] Vesk::ConstTarget<TARGET> NAME() const { \
    return NAME##_.get();                                \
  }

#define VESK_REF(TARGET, NAME)                                \
  VESK_FIELD_(NAME, ReferenceField, 0, Vesk::RefAttr<TARGET>) \
  VESK_TARGET_(TARGET, NAME)                                  \
  template <class = void>                                     \
  void NAME##Is(Ombra::Ptr<TARGET> target) {                  \
    NAME##_.is(*this, NAME##Index, std::move(target));        \
  }                                                           \
  VESK_STORAGE_(NAME, Vesk::RefAttr<TARGET> NAME##_)

#define VESK_INSTANCE(TARGET, NAME)                               \
  VESK_FIELD_(NAME, InstanceField, 0, Vesk::InstanceAttr<TARGET>) \
  VESK_TARGET_(TARGET, NAME)                                      \
  template <class = void>                                         \
  Ombra::Ptr<TARGET> NAME##Is(TARGET::Inputs in = {}) {           \
    return NAME##_.is(*this, NAME##Index, std::move(in));         \
  }                                                               \
  template <class = void>                                         \
  void NAME##Del() {                                              \
    NAME##_.del(*this, NAME##Index);                              \
  }                                                               \
  VESK_STORAGE_(NAME, Vesk::InstanceAttr<TARGET> NAME##_)

#define VESK_COLLECTION_(NAME, KEY)                          \
  template <class = void>                                    \
  [[nodiscard]] bool NAME##Has(const KEY& key) const {       \
    return NAME##_.has(key) && !NAME##_.damaged(*this, key); \
  }                                                          \
  template <class = void>                                    \
  [[nodiscard]] std::uint32_t NAME##Count() const {          \
    return NAME##_.count();                                  \
  }                                                          \
  template <class = void>                                    \
  [[nodiscard]] std::vector<KEY> NAME##Keys() const {        \
    return NAME##_.map().keys();                             \
  }                                                          \
  template <class = void>                                    \
  void NAME##Del(KEY key) {                                  \
    NAME##_.del(*this, NAME##Index, key);                    \
  }                                                          \
  template <class = void>                                    \
  void NAME##DelAll() {                                      \
    NAME##_.delAll(*this, NAME##Index);                      \
  }                                                          \
  VESK_ITERATORS_(NAME, KEY, const)

#define VESK_ITERATORS_(NAME, KEY, CONST)                                      \
  template <class = void>                                                      \
  [[nodiscard]] auto NAME##Iterator() CONST {                                  \
    return Vesk::iterationOf(*this, NAME##_, NAME##_.map().begin());           \
  }                                                                            \
  template <class = void>                                                      \
  [[nodiscard]] auto NAME##IteratorFrom(const std::optional<KEY>& key) CONST { \
    return Vesk::iterationOf(*this, NAME##_, NAME##_.map().from(key));         \
  }

#define VESK_MAP_(KEY, VALUE, NAME, CAPACITY, SHARED)                      \
  VESK_FIELD_(NAME, MapField, CAPACITY, Vesk::MapAttr<KEY, VALUE, SHARED>) \
  template <class = void>                                                  \
  [[nodiscard]] VALUE NAME(const KEY& key) const {                         \
    return NAME##_.get(*this, key);                                        \
  }                                                                        \
  VESK_COLLECTION_(NAME, KEY)

#define VESK_MAP_STORAGE_(KEY, VALUE, NAME, SHARED) \
  VESK_STORAGE_(NAME, Vesk::MapAttr<KEY, VALUE, SHARED> NAME##_)
#define VESK_MAP_IS_(KEY, VALUE, NAME)                     \
  template <class = void>                                  \
  void NAME##Is(KEY key, VALUE value) {                    \
    NAME##_.is(*this, NAME##Index, key, std::move(value)); \
  }
/// Rows that hold their own key are stored under it.
#define VESK_ROW_IS_(ROW, NAME)                            \
  template <class = void>                                  \
  void NAME##Is(const ROW& row) {                          \
    NAME##_.is(*this, NAME##Index, Vesk::keyOf(row), row); \
  }

#define VESK_MAP(KEY, VALUE, NAME)      \
  VESK_MAP_(KEY, VALUE, NAME, 0, false) \
  VESK_MAP_IS_(KEY, VALUE, NAME)        \
  VESK_MAP_STORAGE_(KEY, VALUE, NAME, false)
#define VESK_ROWS(KEY, ROW, NAME)     \
  VESK_MAP_(KEY, ROW, NAME, 0, false) \
  VESK_ROW_IS_(ROW, NAME)             \
  VESK_MAP_STORAGE_(KEY, ROW, NAME, false)
#define VESK_SHARED_MAP(KEY, VALUE, NAME, CAPACITY) \
  VESK_MAP_(KEY, VALUE, NAME, CAPACITY, true)       \
  VESK_MAP_IS_(KEY, VALUE, NAME)                    \
  VESK_MAP_STORAGE_(KEY, VALUE, NAME, true)
#define VESK_SHARED_ROWS(KEY, ROW, NAME, CAPACITY) \
  VESK_MAP_(KEY, ROW, NAME, CAPACITY, true)        \
  VESK_ROW_IS_(ROW, NAME)                          \
  VESK_MAP_STORAGE_(KEY, ROW, NAME, true)

#define VESK_SET_(KEY, NAME, CAPACITY, SHARED)                      \
  VESK_FIELD_(NAME, SetField, CAPACITY, Vesk::SetAttr<KEY, SHARED>) \
  template <class = void>                                           \
  void NAME##Is(KEY key) {                                          \
    NAME##_.is(*this, NAME##Index, key);                            \
  }                                                                 \
  template <class = void>                                           \
  void NAME##DelBefore(const KEY& key) {                            \
    NAME##_.delBefore(*this, NAME##Index, key);                     \
  }                                                                 \
  VESK_COLLECTION_(NAME, KEY)                                       \
  VESK_STORAGE_(NAME, Vesk::SetAttr<KEY, SHARED> NAME##_)

#define VESK_SET(KEY, NAME) VESK_SET_(KEY, NAME, 0, false)
#define VESK_SHARED_SET(KEY, NAME, CAPACITY) VESK_SET_(KEY, NAME, CAPACITY, true)

#define VESK_INSTANCES(KEY, TARGET, NAME)                                    \
  VESK_FIELD_(NAME, InstanceMapField, 0, Vesk::InstanceMapAttr<KEY, TARGET>) \
  template <class = void>                                                    \
  [[nodiscard]] Ombra::Ptr<TARGET> NAME(const KEY& key) {                    \
    return NAME##_.get(key);                                                 \
  }                                                                          \
  template <class = void>                                                    \
  [[nodiscard]] Ombra::Ptr<TARGET const> NAME(const KEY& key) const {        \
    return NAME##_.get(key);                                                 \
  }                                                                          \
  VESK_ITERATORS_(NAME, KEY, )                                               \
  template <class = void>                                                    \
  Ombra::Ptr<TARGET> NAME##Is(KEY key, TARGET::Inputs in = {}) {             \
    return NAME##_.is(*this, NAME##Index, key, std::move(in));               \
  }                                                                          \
  template <class = void>                                                    \
  void NAME##Adopt(KEY key, const Ombra::Ptr<TARGET>& instance) {            \
    NAME##_.adopt(*this, NAME##Index, key, instance);                        \
  }                                                                          \
  VESK_COLLECTION_(NAME, KEY)                                                \
  VESK_STORAGE_(NAME, Vesk::InstanceMapAttr<KEY, TARGET> NAME##_)
