// Interfaces by name, and what the names of vlan, VXLAN, MPLS and multicast tunnel interfaces say.
// An IntfId is a handle of an interned name: four bytes, equal by handle.
// Order: by class, then by the numbers, so that Ethernet2 precedes Ethernet10.
// Owns nothing; names belong to the process's table, and go with the last handle: what a function
// here returns by reference lasts as long as the IntfId.
// Bytes: a length byte and 31 bytes, filled up with zeros.
#pragma once

#include "runtime/values/Interned.h"
#include "runtime/values/Vlan.h"

namespace Pavlin {

class IntfId : public Vesk::Interned<IntfId> {
 public:
  static constexpr std::string_view typeName = "Pavlin::IntfId";
  static constexpr std::size_t maxLength = 31;
  static constexpr std::string_view form = "name";
  static constexpr std::size_t byteSize = 1 + maxLength;

  /// No interface.
  constexpr IntfId() = default;
  /// Throws Ombra::RangeException over 31 bytes.
  explicit IntfId(std::string_view name);
  /// Of this process, the empty one included.
  [[nodiscard]] static std::size_t namesInUse();
  [[nodiscard]] static IntfId handleInitialized(std::string_view name) { return IntfId(name); }

  [[nodiscard]] const std::string& stringValue() const;
  /// The first two letters of the class and the number: "Vl10", "Et1".
  [[nodiscard]] std::string shortName() const;
  /// What stands before the first digit: "Vlan", "Ethernet".
  [[nodiscard]] std::string_view nameClass() const;
  /// True if the name is the class and one number, at most `maxNumber`, written without leading
  /// zeros.
  [[nodiscard]] bool isOfClass(std::string_view nameClass,
                               std::uint32_t maxNumber = 0xffffffff) const;
  /// The number of a name that is its class and one number; 0 for any other.
  [[nodiscard]] std::uint32_t number() const;

  [[nodiscard]] std::string text() const { return Vesk::quoted(stringValue()); }
  [[nodiscard]] static IntfId fromText(std::string_view text) { return IntfId(text); }
  void toBytes(char* out) const;
  [[nodiscard]] static IntfId fromBytes(const char* in);
  /// The same for the same name in every process.
  [[nodiscard]] std::uint64_t hash() const;

  friend std::ostream& operator<<(std::ostream& out, const IntfId& intf) {
    return out << intf.stringValue();
  }
  constexpr bool operator==(const IntfId&) const = default;
  std::strong_ordering operator<=>(const IntfId& other) const;

 private:
  friend Vesk::Interned<IntfId>;
  static void release(std::uint32_t handle);
};

/// The interface of a vlan: Vlan0 to Vlan65535.
struct VlanIntfId {
  [[nodiscard]] static bool isVlanIntfId(IntfId intf);
  /// Asserts that this is a vlan's interface.
  [[nodiscard]] static Bridging::ExtendedVlanId vlanId(IntfId intf);
  [[nodiscard]] static IntfId vlanIdToIntfId(std::uint16_t vlan);
  [[nodiscard]] static IntfId vlanIdToIntfId(Bridging::VlanId vlan) {
    return vlanIdToIntfId(vlan.value());
  }
};

/// A VXLAN tunnel interface: Vxlan0 to Vxlan65535.
struct VxlanTunnelIntfId {
  [[nodiscard]] static bool isVxlanTunnelIntfId(IntfId intf);
  /// Asserts that this is a VXLAN tunnel interface.
  [[nodiscard]] static std::uint16_t vxlanTunnelId(IntfId intf);
  [[nodiscard]] static IntfId vxlanTunnelToIntfId(std::uint16_t tunnel);
};

/// An MPLS trunk: MplsTrunk1.
struct MplsTrunkIntfId {
  [[nodiscard]] static bool isMplsTrunkIntfId(IntfId intf);
};

/// "Vxlan1", the one VXLAN interface that carries the overlay.
[[nodiscard]] IntfId vxlan1IntfId();

}  // namespace Pavlin

namespace Multicast::Tunnel {

/// A multicast tunnel: McastTunnel1.
struct McastTunnelIntfId {
  [[nodiscard]] static bool isMcastTunnelIntfId(Pavlin::IntfId intf);
};

}  // namespace Multicast::Tunnel
