// VXLAN network identifiers (RFC 7348) as configuration and status carry them.
// Owns nothing. Reads and writes: nothing but the value.
// Caveat: no range is checked, since encodings wider than 24 bits are in use.
#pragma once

#include "runtime/values/NumberValue.h"

namespace Vxlan {

/// 0 is no VNI.
class VniExtOrNone : public Vesk::NumberValue<VniExtOrNone, std::uint32_t> {
 public:
  static constexpr std::string_view typeName = "Vxlan::VniExtOrNone";

  constexpr VniExtOrNone() : NumberValue(0) {}
  constexpr explicit VniExtOrNone(std::uint32_t value) : NumberValue(value) {}

  [[nodiscard]] constexpr bool isNone() const { return value() == 0; }

  constexpr auto operator<=>(const VniExtOrNone&) const = default;
};

/// A VNI and who configured it.
struct VniSourcePair {
  VESK_STRUCT(Vxlan::VniSourcePair)
  VESK_MEMBER(VniExtOrNone, vni)
  VESK_MEMBER(std::uint8_t, source)

  auto operator<=>(const VniSourcePair&) const = default;
};

}  // namespace Vxlan
