// What the system knows of a value type: its text, its bytes and its hash.
// A scalar type says these itself (member functions, or a specialisation of Leaf); a composite
// declares its members once (VESK_STRUCT, VESK_MEMBER) and everything follows from the list. Text
// of a composite: its members in order, joined by commas, nested ones flattened. Bytes: the members
// in order, each of fixed size unless it holds free text.
#pragma once

#include <array>
#include <bit>
#include <charconv>
#include <compare>
#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

#include <fmt/format.h>

#include "runtime/Hash.h"

namespace Vesk {

/// A text that does not read as a value of the wanted type.
class ParseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads the comma-separated leaves of a value's text one by one; a leaf may stand in double
/// quotes.
class LeafReader {
 public:
  explicit LeafReader(std::string_view text) : rest_(text) {}
  /// The next leaf without its quotes; throws ParseError if there is none.
  std::string next();
  /// Throws ParseError if anything is left.
  void expectEnd() const;

 private:
  std::string_view rest_;
  bool done_ = false;
};

/// Quotes a free text if it is empty or holds one of , [ ] = " or a blank, or what is no printable
/// UTF-8: whoever reads a name sees \x1b, and gives it back as that.
std::string quoted(std::string_view text);
/// A number of seconds with a dot: "15.0", "inf".
std::string secondsText(double seconds);
[[noreturn]] void throwNotA(std::string_view typeName, std::string_view text);

/// Names of an enumeration's values. Specialise with `name` and `values`, an array of {value,
/// text}.
template <class E>
struct EnumNames;
template <class E>
struct EnumName {
  E value;
  std::string_view text;
};

/// The value of a name or a number, which need not be that of a known value. Throws ParseError,
/// which lists the names.
template <class E>
[[nodiscard]] E enumOf(std::string_view text) {
  std::string names;
  for (const auto& known : EnumNames<E>::values) {
    if (known.text == text) return known.value;
    names += fmt::format("{}{}", names.empty() ? "" : ", ", known.text);
  }
  std::underlying_type_t<E> number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || text.empty())
    throw ParseError(
        fmt::format("'{}' is not a {}: {}, or a number", text, EnumNames<E>::name, names));
  return static_cast<E>(number);
}

template <class E>
[[nodiscard]] std::string enumText(E value) {
  for (const auto& known : EnumNames<E>::values)
    if (known.value == value) return std::string(known.text);
  return fmt::format("{}", static_cast<unsigned>(value));
}

// --- members of composites
// ---------------------------------------------------------------------------------------

template <int N>
struct Rank : Rank<N - 1> {};
template <>
struct Rank<0> {};
/// Carries how many members a type has declared so far; read at each declaration by overload
/// resolution.
template <int N>
using Count = std::integral_constant<int, N>;
inline constexpr int maxMembers = 64;

template <class Owner, class T>
struct Member {
  std::string_view name;
  T Owner::*pointer;
  bool isKey;
};

template <class T>
concept Composite = requires {
  T::veskStructName;
};

template <Composite T>
inline constexpr int memberCount = decltype(T::veskCount(Rank<maxMembers>{}))::value;

/// Calls f(member) for each member in order.
template <Composite T, class F>
constexpr void forEachMember(F&& f) {
  [&]<std::size_t... I>(std::index_sequence<I...>) {
    (f(T::veskMember(Count<static_cast<int>(I)>{})), ...);
  }
  (std::make_index_sequence<memberCount<T>>{});
}

// --- leaves
// ------------------------------------------------------------------------------------------------------

/// A class that knows its own text and bytes.
template <class T>
concept SelfDescribed = requires(const T& value, char* out, const char* in) {
  { T::typeName } -> std::convertible_to<std::string_view>;
  { T::form } -> std::convertible_to<std::string_view>;
  { T::byteSize } -> std::convertible_to<std::size_t>;
  { value.text() } -> std::convertible_to<std::string>;
  { T::fromText(std::string_view{}) } -> std::same_as<T>;
  value.toBytes(out);
  { T::fromBytes(in) } -> std::same_as<T>;
  { value.hash() } -> std::convertible_to<std::uint64_t>;
};

/// What every leaf says of its type: name, size, and the form of its bytes and its text, by which
/// programs in other languages read it (docs/shared-tables.md lists the forms).
template <class T>
struct Leaf;

template <SelfDescribed T>
struct Leaf<T> {
  static std::string typeName() { return std::string(T::typeName); }
  static constexpr std::string_view form = T::form;
  static constexpr std::size_t byteSize = T::byteSize;
  static std::string text(const T& value) { return value.text(); }
  static T fromText(const std::string& text) { return T::fromText(text); }
  static void toBytes(const T& value, std::string& out) {
    const std::size_t at = out.size();
    out.resize(at + byteSize);
    value.toBytes(out.data() + at);
  }
  static T fromBytes(std::string_view& in) {
    const T value = T::fromBytes(in.data());
    in.remove_prefix(byteSize);
    return value;
  }
  static std::uint64_t hash(const T& value) { return value.hash(); }
};

/// Fixed-width numbers, bools and enumerations: native bytes.
template <class T>
struct PlainLeaf {
  static constexpr std::size_t byteSize = sizeof(T);
  static void toBytes(const T& value, std::string& out) {
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  static T fromBytes(std::string_view& in) {
    T value;
    std::memcpy(&value, in.data(), sizeof value);
    in.remove_prefix(sizeof value);
    return value;
  }
};

template <class T>
requires std::is_unsigned_v<T> &&(!std::is_same_v<T, bool>)struct Leaf<T> : PlainLeaf<T> {
  static std::string typeName() { return fmt::format("u{}", 8 * sizeof(T)); }
  static constexpr std::string_view form = "unsigned";
  static std::string text(T value) { return fmt::format("{}", value); }
  static T fromText(const std::string& text) {
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) throwNotA(typeName(), text);
    return value;
  }
  static std::uint64_t hash(T value) { return mixHash(value); }
};

template <>
struct Leaf<bool> : PlainLeaf<bool> {
  static std::string typeName() { return "bool"; }
  static constexpr std::string_view form = "bool";
  static std::string text(bool value) { return value ? "true" : "false"; }
  static bool fromText(const std::string& text) {
    if (text != "true" && text != "false") throwNotA("bool", text);
    return text == "true";
  }
  static std::uint64_t hash(bool value) { return mixHash(value); }
};

template <>
struct Leaf<double> : PlainLeaf<double> {
  static std::string typeName() { return "seconds"; }
  static constexpr std::string_view form = "seconds";
  static std::string text(double value) { return secondsText(value); }
  static double fromText(const std::string& text);
  static std::uint64_t hash(double value) { return mixHash(std::bit_cast<std::uint64_t>(value)); }
};

/// Free text without a maximum; only in-process and state-database records hold it.
template <>
struct Leaf<std::string> {
  static constexpr std::size_t byteSize = 0;
  static std::string typeName() { return "string"; }
  static constexpr std::string_view form = "text";
  static std::string text(const std::string& value) { return Vesk::quoted(value); }
  static std::string fromText(const std::string& text) { return text; }
  static void toBytes(const std::string& value, std::string& out) {
    const auto size = static_cast<std::uint32_t>(value.size());
    out.append(reinterpret_cast<const char*>(&size), sizeof size).append(value);
  }
  static std::string fromBytes(std::string_view& in) {
    std::uint32_t size;
    std::memcpy(&size, in.data(), sizeof size);
    std::string value(in.substr(sizeof size, size));
    in.remove_prefix(sizeof size + size);
    return value;
  }
  static std::uint64_t hash(const std::string& value) { return hashBytes(value); }
};

template <class E>
requires std::is_enum_v<E>
struct Leaf<E> : PlainLeaf<E> {
  static std::string typeName() { return std::string(EnumNames<E>::name); }
  static constexpr std::string_view form = "enumeration";
  static std::string text(E value) { return enumText(value); }
  static E fromText(const std::string& text) { return enumOf<E>(text); }
  static std::uint64_t hash(E value) { return mixHash(static_cast<std::uint64_t>(value)); }
};

/// A value that may be absent, which reads as `none`. One leaf, whatever the value is.
template <class T>
struct Leaf<std::optional<T>> {
  using Absent = std::optional<T>;
  static constexpr std::size_t byteSize = 0;
  static constexpr std::string_view form = "optional";
  static std::string typeName();
  static std::string text(const Absent& value);
  static void toBytes(const Absent& value, std::string& out);
  static Absent fromBytes(std::string_view& in);
  static Absent fromText(const std::string& text);
};

// --- any value type
// -----------------------------------------------------------------------------------------------

/// Bytes of a value if every value takes the same number, else 0.
template <class T>
constexpr std::size_t byteSizeOf() {
  if constexpr (Composite<T>) {
    std::size_t sum = 0;
    bool fixed = true;
    forEachMember<T>([&]<class M>(Member<T, M>) {
      constexpr std::size_t size = byteSizeOf<M>();
      sum += size;
      fixed = fixed && size != 0;
    });
    return fixed ? sum : 0;
  } else {
    return Leaf<T>::byteSize;
  }
}

template <class T>
void toBytes(const T& value, std::string& out) {
  if constexpr (Composite<T>) {
    forEachMember<T>([&](auto member) { toBytes(value.*member.pointer, out); });
  } else {
    Leaf<T>::toBytes(value, out);
  }
}

/// Reads a value off the front of `in`; the bytes were made by toBytes of the same type.
template <class T>
T fromBytes(std::string_view& in) {
  if constexpr (Composite<T>) {
    T value{};
    forEachMember<T>(
        [&]<class M>(Member<T, M> member) { value.*member.pointer = fromBytes<M>(in); });
    return value;
  } else {
    return Leaf<T>::fromBytes(in);
  }
}

template <class T>
std::uint64_t hashValue(const T& value) {
  if constexpr (Composite<T>) {
    std::uint64_t hash = 0;
    forEachMember<T>([&](auto member) { hash = foldHash(hash, hashValue(value.*member.pointer)); });
    return hash;
  } else {
    return Leaf<T>::hash(value);
  }
}

/// The text of a value; `withKey` false leaves out the key members of a row.
template <class T>
std::string textOf(const T& value, bool withKey = true) {
  if constexpr (Composite<T>) {
    std::string text;
    bool first = true;
    forEachMember<T>([&](auto member) {
      if (member.isKey && !withKey) return;
      if (!first) text += ',';
      first = false;
      text += textOf(value.*member.pointer);
    });
    return text;
  } else {
    return Leaf<T>::text(value);
  }
}

template <class T>
T readValue(LeafReader& reader) {
  if constexpr (Composite<T>) {
    T value{};
    forEachMember<T>(
        [&]<class M>(Member<T, M> member) { value.*member.pointer = readValue<M>(reader); });
    return value;
  } else {
    return Leaf<T>::fromText(reader.next());
  }
}

/// Throws ParseError, or Ombra::RangeException if a checked type refuses the value.
template <class T>
T valueOf(std::string_view text) {
  LeafReader reader(text);
  T value = readValue<T>(reader);
  reader.expectEnd();
  return value;
}

template <class T>
std::string typeNameOf() {
  if constexpr (Composite<T>) {
    return std::string(T::veskStructName);
  } else {
    return Leaf<T>::typeName();
  }
}

template <class T>
std::string Leaf<std::optional<T>>::typeName() {
  return typeNameOf<T>() + " or none";
}
template <class T>
std::string Leaf<std::optional<T>>::text(const Absent& value) {
  return value ? textOf(*value) : "none";
}
template <class T>
void Leaf<std::optional<T>>::toBytes(const Absent& value, std::string& out) {
  Vesk::toBytes(value.has_value(), out);
  if (value) Vesk::toBytes(*value, out);
}
template <class T>
std::optional<T> Leaf<std::optional<T>>::fromBytes(std::string_view& in) {
  if (!Vesk::fromBytes<bool>(in)) return std::nullopt;
  return Vesk::fromBytes<T>(in);
}
template <class T>
std::optional<T> Leaf<std::optional<T>>::fromText(const std::string& text) {
  return text == "none" ? std::nullopt : std::optional<T>(valueOf<T>(text));
}

}  // namespace Vesk

/// Opens a composite value type; the argument is its qualified name.
#define VESK_STRUCT(...)                                           \
  using VeskSelf = __VA_ARGS__;                                    \
  static constexpr std::string_view veskStructName = #__VA_ARGS__; \
  static Vesk::Count<0> veskCount(Vesk::Rank<0>);

#define VESK_MEMBER_(TYPE, NAME, TEXT, IS_KEY)                                                   \
  TYPE NAME{};                                                                                   \
  static constexpr int NAME##Index = decltype(veskCount(Vesk::Rank<Vesk::maxMembers>{}))::value; \
  static Vesk::Count<NAME##Index + 1> veskCount(Vesk::Rank<NAME##Index + 1>);                    \
  static constexpr Vesk::Member<VeskSelf, TYPE> veskMember(Vesk::Count<NAME##Index>) {           \
    return {TEXT, &VeskSelf::NAME, IS_KEY};                                                      \
  }

/// One member of a composite value: VESK_MEMBER(Bridging::VlanId, vlan).
#define VESK_MEMBER(TYPE, NAME) VESK_MEMBER_(TYPE, NAME, #NAME, false)
/// A member whose published name differs, since a function of the type has that name.
#define VESK_MEMBER_AS(TYPE, NAME, TEXT) VESK_MEMBER_(TYPE, NAME, TEXT, false)
/// A member that is the row's key in its collection.
#define VESK_KEY_MEMBER(TYPE, NAME) VESK_MEMBER_(TYPE, NAME, #NAME, true)
