// Names and numbers of VRFs.
// A name is a handle of an interned text: four bytes, equal by handle, ordered by text.
// Owns nothing; the texts belong to the process's table, and go with the last handle: what `str`
// returns lasts as long as the VrfName.
// Bytes: a length byte and 100 bytes, filled up with zeros.
// Caveat: the default is the empty name, which is no VRF; the default VRF is called "default".
#pragma once

#include "runtime/values/Interned.h"
#include "runtime/values/NumberValue.h"

namespace L3 {

class VrfName : public Vesk::Interned<VrfName> {
 public:
  static constexpr std::string_view typeName = "L3::VrfName";
  static constexpr std::size_t maxLength = 100;
  static constexpr std::string_view form = "name";
  static constexpr std::size_t byteSize = 1 + maxLength;

  constexpr VrfName() = default;
  /// Throws Ombra::RangeException over 100 bytes.
  explicit VrfName(std::string_view name);
  /// Of this process, the empty one included.
  [[nodiscard]] static std::size_t namesInUse();

  [[nodiscard]] const std::string& str() const;
  [[nodiscard]] const std::string& stringValue() const { return str(); }
  [[nodiscard]] std::string text() const { return Vesk::quoted(str()); }
  [[nodiscard]] static VrfName fromText(std::string_view text) { return VrfName(text); }
  void toBytes(char* out) const;
  [[nodiscard]] static VrfName fromBytes(const char* in);
  /// The same for the same text in every process.
  [[nodiscard]] std::uint64_t hash() const;

  friend std::ostream& operator<<(std::ostream& out, const VrfName& name) {
    return out << name.str();
  }
  constexpr bool operator==(const VrfName&) const = default;
  std::strong_ordering operator<=>(const VrfName& other) const {
    return handle() == other.handle() ? std::strong_ordering::equal : str() <=> other.str();
  }

 private:
  friend Vesk::Interned<VrfName>;
  static void release(std::uint32_t handle);
};

/// "default".
[[nodiscard]] VrfName defaultVrfName();

}  // namespace L3

namespace Vrf::VrfIdMap {

/// Number of a VRF in the switch's tables; 0 is no VRF.
class VrfId : public Vesk::NumberValue<VrfId, std::uint32_t> {
 public:
  static constexpr std::string_view typeName = "Vrf::VrfIdMap::VrfId";

  constexpr VrfId() : NumberValue(0) {}
  constexpr explicit VrfId(std::uint32_t value) : NumberValue(value) {}

  constexpr auto operator<=>(const VrfId&) const = default;
};

}  // namespace Vrf::VrfIdMap
