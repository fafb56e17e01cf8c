// Addresses: IPv4, IPv6, either of them, and Ethernet.
// IpGenAddr has three states that callers tell apart: no family, any address of a family, real.
// Reads and writes: nothing but the value. Order: family first, then the address as a number.
// Text: dotted quad, RFC 5952, `none` for no family.
// Bytes: network order, an IpGenAddr led by its family.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "runtime/ValueTraits.h"

namespace Pavlin {

enum class AddressFamily : std::uint8_t { none = 0, ipv4 = 1, ipv6 = 2 };

[[nodiscard]] constexpr AddressFamily ipv4() {
  return AddressFamily::ipv4;
}
[[nodiscard]] constexpr AddressFamily ipv6() {
  return AddressFamily::ipv6;
}
/// The order of every loop over families.
inline constexpr std::array families{AddressFamily::ipv4, AddressFamily::ipv6};

}  // namespace Pavlin

template <>
struct Vesk::EnumNames<Pavlin::AddressFamily> {
  static constexpr std::string_view name = "Pavlin::AddressFamily";
  static constexpr std::array<EnumName<Pavlin::AddressFamily>, 3> values{{
      {Pavlin::AddressFamily::none, "none"},
      {Pavlin::AddressFamily::ipv4, "ipv4"},
      {Pavlin::AddressFamily::ipv6, "ipv6"},
  }};
};

namespace Pavlin {

/// "ipv4", "ipv6".
[[nodiscard]] inline std::string stringValue(AddressFamily af) {
  return Vesk::enumText(af);
}
inline std::ostream& operator<<(std::ostream& out, AddressFamily af) {
  return out << stringValue(af);
}

class IpAddr {
 public:
  static constexpr std::string_view typeName = "Pavlin::IpAddr";
  static constexpr std::string_view form = "ipv4";
  static constexpr std::size_t byteSize = 4;

  constexpr IpAddr() = default;
  /// Host order: 0x0a000001 is 10.0.0.1.
  constexpr explicit IpAddr(std::uint32_t value) : value_(value) {}

  [[nodiscard]] constexpr std::uint32_t value() const { return value_; }
  [[nodiscard]] constexpr bool isAny() const { return value_ == 0; }
  /// 224.0.0.0/4.
  [[nodiscard]] constexpr bool isMulticast() const { return value_ >> 28 == 0xe; }
  [[nodiscard]] std::string stringValue() const;

  [[nodiscard]] std::string text() const { return stringValue(); }
  [[nodiscard]] static IpAddr fromText(std::string_view text);
  void toBytes(char* out) const;
  [[nodiscard]] static IpAddr fromBytes(const char* in);
  [[nodiscard]] constexpr std::uint64_t hash() const { return Vesk::mixHash(value_); }

  friend std::ostream& operator<<(std::ostream& out, IpAddr addr) { return out << addr.text(); }
  constexpr auto operator<=>(const IpAddr&) const = default;

 private:
  std::uint32_t value_ = 0;
};

class Ip6Addr {
 public:
  static constexpr std::string_view typeName = "Pavlin::Ip6Addr";
  static constexpr std::string_view form = "ipv6";
  static constexpr std::size_t byteSize = 16;
  using Bytes = std::array<std::uint8_t, 16>;

  constexpr Ip6Addr() = default;
  /// Network order.
  constexpr explicit Ip6Addr(const Bytes& bytes) : bytes_(bytes) {}

  [[nodiscard]] constexpr const Bytes& bytes() const { return bytes_; }
  [[nodiscard]] constexpr bool isAny() const { return bytes_ == Bytes{}; }
  /// ff00::/8.
  [[nodiscard]] constexpr bool isMulticast() const { return bytes_[0] == 0xff; }
  [[nodiscard]] std::string stringValue() const;

  [[nodiscard]] std::string text() const { return stringValue(); }
  [[nodiscard]] static Ip6Addr fromText(std::string_view text);
  void toBytes(char* out) const { std::memcpy(out, bytes_.data(), byteSize); }
  [[nodiscard]] static Ip6Addr fromBytes(const char* in);
  [[nodiscard]] std::uint64_t hash() const;

  friend std::ostream& operator<<(std::ostream& out, const Ip6Addr& addr) {
    return out << addr.text();
  }
  constexpr auto operator<=>(const Ip6Addr&) const = default;

 private:
  Bytes bytes_{};
};

/// An address of either family, or of none.
class IpGenAddr {
 public:
  static constexpr std::string_view typeName = "Pavlin::IpGenAddr";
  static constexpr std::string_view form = "address";
  static constexpr std::size_t byteSize = 17;

  constexpr IpGenAddr() = default;
  /// The any address of the family; no family if it is neither of the two.
  constexpr explicit IpGenAddr(AddressFamily af) : af_(known(af)) {}
  constexpr IpGenAddr(IpAddr addr)
      : af_(AddressFamily::ipv4),
        bytes_{static_cast<std::uint8_t>(addr.value() >> 24),
               static_cast<std::uint8_t>(addr.value() >> 16),
               static_cast<std::uint8_t>(addr.value() >> 8),
               static_cast<std::uint8_t>(addr.value())} {}
  constexpr IpGenAddr(const Ip6Addr& addr) : af_(AddressFamily::ipv6), bytes_(addr.bytes()) {}

  [[nodiscard]] constexpr AddressFamily af() const { return af_; }
  [[nodiscard]] constexpr bool hasFamily() const { return af_ != AddressFamily::none; }
  /// 0.0.0.0 or ::, not the address of no family.
  [[nodiscard]] constexpr bool isAny() const { return hasFamily() && isUnspecified(); }
  /// 0.0.0.0, :: or no family.
  [[nodiscard]] constexpr bool isUnspecified() const { return bytes_ == Ip6Addr::Bytes{}; }
  [[nodiscard]] constexpr bool isMulticast() const {
    return af_ == AddressFamily::ipv4 ? bytes_[0] >> 4 == 0xe : bytes_[0] == 0xff;
  }
  /// 0.0.0.0 if this is not an IPv4 address.
  [[nodiscard]] constexpr IpAddr v4Addr() const {
    if (af_ != AddressFamily::ipv4) return IpAddr();
    return IpAddr(std::uint32_t{bytes_[0]} << 24 | std::uint32_t{bytes_[1]} << 16 |
                  std::uint32_t{bytes_[2]} << 8 | std::uint32_t{bytes_[3]});
  }
  /// :: if this is not an IPv6 address.
  [[nodiscard]] constexpr Ip6Addr v6Addr() const {
    return af_ == AddressFamily::ipv6 ? Ip6Addr(bytes_) : Ip6Addr();
  }
  [[nodiscard]] std::string stringValue() const;

  [[nodiscard]] std::string text() const { return stringValue(); }
  [[nodiscard]] static IpGenAddr fromText(std::string_view text);
  void toBytes(char* out) const;
  [[nodiscard]] static IpGenAddr fromBytes(const char* in);
  [[nodiscard]] std::uint64_t hash(std::uint64_t seed = 0) const;

  friend std::ostream& operator<<(std::ostream& out, const IpGenAddr& addr) {
    return out << addr.text();
  }
  constexpr auto operator<=>(const IpGenAddr&) const = default;

 private:
  static constexpr AddressFamily known(AddressFamily af) {
    return af == AddressFamily::ipv4 || af == AddressFamily::ipv6 ? af : AddressFamily::none;
  }

  AddressFamily af_ = AddressFamily::none;
  Ip6Addr::Bytes bytes_{};  // an IPv4 address in the first four, zeros behind it
};

/// A MAC address.
class EthAddr {
 public:
  static constexpr std::string_view typeName = "Pavlin::EthAddr";
  static constexpr std::string_view form = "mac";
  static constexpr std::size_t byteSize = 6;
  using Bytes = std::array<std::uint8_t, 6>;

  constexpr EthAddr() = default;
  constexpr explicit EthAddr(const Bytes& bytes) : bytes_(bytes) {}

  [[nodiscard]] constexpr const Bytes& bytes() const { return bytes_; }
  [[nodiscard]] std::string stringValue() const;

  [[nodiscard]] std::string text() const { return stringValue(); }
  [[nodiscard]] static EthAddr fromText(std::string_view text);
  void toBytes(char* out) const { std::memcpy(out, bytes_.data(), byteSize); }
  [[nodiscard]] static EthAddr fromBytes(const char* in);
  [[nodiscard]] std::uint64_t hash() const;

  friend std::ostream& operator<<(std::ostream& out, const EthAddr& addr) {
    return out << addr.text();
  }
  constexpr auto operator<=>(const EthAddr&) const = default;

 private:
  Bytes bytes_{};
};

/// All PIM routers of a link (RFC 7761): 224.0.0.13 and ff02::d.
inline constexpr IpAddr ipAddrPimRouters{0xe000000d};
inline constexpr Ip6Addr ip6AddrPimRouters{
    Ip6Addr::Bytes{0xff, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x0d}};

}  // namespace Pavlin
