// Numbers of vlans: one that exists, one that may be missing, and the range with internal vlans.
// Owns nothing. Reads and writes: nothing but the value.
// Caveat: only VlanId promises a number that can stand in a frame (IEEE 802.1Q, 1 to 4094); an
// ExtendedVlanId has to pass vlanId() first.
#pragma once

#include "runtime/Assert.h"
#include "runtime/values/NumberValue.h"

namespace Bridging {

/// 1 to 4094; any other number throws Ombra::RangeException.
class VlanId : public Vesk::NumberValue<VlanId, std::uint16_t> {
 public:
  static constexpr std::string_view typeName = "Bridging::VlanId";

  constexpr VlanId() : NumberValue(min()) {}
  constexpr explicit VlanId(std::uint32_t value) : NumberValue(checked(value)) {}

  [[nodiscard]] static constexpr std::uint16_t min() { return 1; }
  [[nodiscard]] static constexpr std::uint16_t max() { return 4094; }

  constexpr auto operator<=>(const VlanId&) const = default;

 private:
  static constexpr std::uint32_t checked(std::uint32_t value) {
    if (value < min() || value > max())
      throw Ombra::RangeException("Bridging::VlanId::value < 1 or > 4094 not allowed");
    return value;
  }
};

/// 0 to 4094, where 0 is no vlan; a greater number throws Ombra::RangeException.
class VlanIdOrNone : public Vesk::NumberValue<VlanIdOrNone, std::uint16_t> {
 public:
  static constexpr std::string_view typeName = "Bridging::VlanIdOrNone";

  constexpr VlanIdOrNone() : NumberValue(0) {}
  constexpr explicit VlanIdOrNone(std::uint32_t value) : NumberValue(checked(value)) {}
  constexpr VlanIdOrNone(VlanId vlan) : NumberValue(vlan.value()) {}

  [[nodiscard]] constexpr bool isNone() const { return value() == 0; }
  /// Throws Ombra::RangeException if there is none.
  [[nodiscard]] constexpr VlanId vlanId() const { return VlanId(value()); }

  constexpr auto operator<=>(const VlanIdOrNone&) const = default;

 private:
  static constexpr std::uint32_t checked(std::uint32_t value) {
    if (value > VlanId::max())
      throw Ombra::RangeException("Bridging::VlanIdOrNone::value > 4094 not allowed");
    return value;
  }
};

/// Any number; 4096 to 16383 are internal vlans that never stand in a frame.
class ExtendedVlanId : public Vesk::NumberValue<ExtendedVlanId, std::uint32_t> {
 public:
  static constexpr std::string_view typeName = "Bridging::ExtendedVlanId";

  constexpr ExtendedVlanId() : NumberValue(0) {}
  constexpr explicit ExtendedVlanId(std::uint32_t value) : NumberValue(value) {}
  constexpr ExtendedVlanId(VlanId vlan) : NumberValue(vlan.value()) {}

  [[nodiscard]] constexpr bool isInternal() const { return value() >= 4096 && value() <= 16383; }
  /// Asserts on 0; throws Ombra::RangeException above 4094.
  [[nodiscard]] VlanId vlanId() const {
    Ombra::assertThat(value() >= VlanId::min(), "value_ >= VlanId::min()");
    return VlanId(value());
  }

  constexpr auto operator<=>(const ExtendedVlanId&) const = default;
};

}  // namespace Bridging
