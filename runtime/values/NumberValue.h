// A whole number with a type of its own: its text, bytes, hash and order.
// A derived class gives `typeName` and a constructor that checks the range.
// Reads and writes: nothing but the value; the number never changes in place.
// Text: decimal. Bytes: the number as the processor keeps it.
#pragma once

#include <charconv>
#include <compare>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

#include "runtime/Hash.h"
#include "runtime/ValueTraits.h"

namespace Vesk {

template <class Self, class Rep>
class NumberValue {
 public:
  /// What a constructor takes: wide enough that a number too great arrives whole at the check.
  using Wide = std::conditional_t<(sizeof(Rep) < sizeof(std::uint32_t)), std::uint32_t, Rep>;
  static constexpr std::string_view form = "unsigned";
  static constexpr std::size_t byteSize = sizeof(Rep);

  [[nodiscard]] constexpr Rep value() const { return value_; }

  [[nodiscard]] std::string text() const { return fmt::format("{}", value_); }
  /// Throws ParseError, or Ombra::RangeException if the type refuses the number.
  [[nodiscard]] static Self fromText(std::string_view text) {
    Wide value{};
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, value);
    if (error != std::errc{} || end != last) throwNotA(Self::typeName, text);
    return Self(value);
  }
  void toBytes(char* out) const { std::memcpy(out, &value_, sizeof value_); }
  [[nodiscard]] static Self fromBytes(const char* in) {
    Rep value;
    std::memcpy(&value, in, sizeof value);
    return Self(value);
  }
  [[nodiscard]] constexpr std::uint64_t hash() const { return mixHash(value_); }

  friend std::ostream& operator<<(std::ostream& out, const Self& self) {
    return out << +self.value_;
  }
  constexpr auto operator<=>(const NumberValue&) const = default;

 protected:
  constexpr explicit NumberValue(Wide value) : value_(static_cast<Rep>(value)) {}

 private:
  Rep value_;
};

}  // namespace Vesk
