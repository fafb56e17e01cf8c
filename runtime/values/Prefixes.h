// Prefixes of IPv4, IPv6 and of either family.
// The host bits of a prefix are always clear: they are cut off, not refused, when one is made.
// Reads and writes: nothing but the value. Order: address, then length.
// Text: `239.1.1.0/28`; the empty prefix, which has no family and holds no address, is `none`.
#pragma once

#include "runtime/values/Addresses.h"

namespace Pavlin {

template <class Addr>
class AddrPrefix;
/// An IPv4 prefix; the default is 0.0.0.0/0.
using IpPrefix = AddrPrefix<IpAddr>;
/// An IPv6 prefix; the default is ::/0.
using Ip6Prefix = AddrPrefix<Ip6Addr>;

/// What there is to read of a prefix of either family.
class IpGenPrefixBase {
 public:
  [[nodiscard]] constexpr const IpGenAddr& ipGenAddr() const { return addr_; }
  [[nodiscard]] constexpr std::uint8_t length() const { return length_; }
  [[nodiscard]] constexpr AddressFamily af() const { return addr_.af(); }
  [[nodiscard]] constexpr IpAddr v4Addr() const { return addr_.v4Addr(); }
  [[nodiscard]] constexpr Ip6Addr v6Addr() const { return addr_.v6Addr(); }
  /// No family.
  [[nodiscard]] constexpr bool isEmpty() const { return !addr_.hasFamily(); }
  /// One address, not a range.
  [[nodiscard]] constexpr bool isHost() const { return !isEmpty() && length_ == maxLength(af()); }
  /// Every address of the prefix is a multicast address.
  [[nodiscard]] constexpr bool isMulticast() const {
    return addr_.isMulticast() && length_ >= (af() == AddressFamily::ipv4 ? 4 : 8);
  }
  [[nodiscard]] std::string stringValue() const;

  /// 32 or 128; 0 for no family.
  [[nodiscard]] static constexpr std::uint8_t maxLength(AddressFamily af) {
    return af == AddressFamily::ipv4 ? 32 : af == AddressFamily::ipv6 ? 128 : 0;
  }

  constexpr auto operator<=>(const IpGenPrefixBase&) const = default;

 protected:
  constexpr IpGenPrefixBase() = default;
  constexpr IpGenPrefixBase(const IpGenAddr& addr, std::uint8_t length)
      : addr_(addr), length_(length) {}

 private:
  IpGenAddr addr_;
  std::uint8_t length_ = 0;
};

/// A prefix of either family, or the empty one.
class IpGenPrefix : public IpGenPrefixBase {
 public:
  static constexpr std::string_view typeName = "Pavlin::IpGenPrefix";
  static constexpr std::string_view form = "prefix";
  static constexpr std::size_t byteSize = IpGenAddr::byteSize + 1;

  constexpr IpGenPrefix() = default;
  /// The prefix of this one address; the empty prefix if it has no family.
  constexpr explicit IpGenPrefix(const IpGenAddr& addr)
      : IpGenPrefixBase(addr, maxLength(addr.af())) {}
  /// Throws Ombra::RangeException if the address has fewer bits than `length`.
  IpGenPrefix(const IpGenAddr& addr, unsigned length);

  /// 0.0.0.0/0 resp. ::/0 if this is of another family.
  [[nodiscard]] IpPrefix v4Prefix() const;
  [[nodiscard]] Ip6Prefix v6Prefix() const;
  [[nodiscard]] bool contains(const IpGenAddr& addr) const;

  [[nodiscard]] std::string text() const { return stringValue(); }
  [[nodiscard]] static IpGenPrefix fromText(std::string_view text);
  void toBytes(char* out) const;
  [[nodiscard]] static IpGenPrefix fromBytes(const char* in);
  [[nodiscard]] std::uint64_t hash() const { return ipGenAddr().hash(length()); }

  friend std::ostream& operator<<(std::ostream& out, const IpGenPrefix& prefix) {
    return out << prefix.text();
  }
  constexpr auto operator<=>(const IpGenPrefix&) const = default;
};

/// A prefix whose family is fixed.
template <class Addr>
class AddrPrefix {
 public:
  static constexpr bool isV4 = std::is_same_v<Addr, IpAddr>;
  static constexpr std::string_view typeName = isV4 ? "Pavlin::IpPrefix" : "Pavlin::Ip6Prefix";
  static constexpr std::string_view form = isV4 ? "ipv4Prefix" : "ipv6Prefix";
  static constexpr std::size_t byteSize = Addr::byteSize + 1;

  constexpr AddrPrefix() = default;
  /// Throws Ombra::RangeException if the address has fewer bits than `length`.
  AddrPrefix(const Addr& addr, unsigned length) : AddrPrefix(IpGenPrefix(addr, length)) {}

  [[nodiscard]] constexpr const Addr& addr() const { return addr_; }
  [[nodiscard]] constexpr std::uint8_t length() const { return length_; }
  [[nodiscard]] bool contains(const Addr& addr) const { return generic().contains(addr); }
  [[nodiscard]] IpGenPrefix generic() const { return IpGenPrefix(addr_, length_); }
  [[nodiscard]] std::string stringValue() const { return generic().stringValue(); }

  [[nodiscard]] std::string text() const { return stringValue(); }
  [[nodiscard]] static AddrPrefix fromText(std::string_view text) {
    const IpGenPrefix prefix = IpGenPrefix::fromText(text);
    if (prefix.af() != IpGenAddr(Addr()).af()) Vesk::throwNotA(typeName, text);
    return AddrPrefix(prefix);
  }
  void toBytes(char* out) const {
    addr_.toBytes(out);
    out[Addr::byteSize] = static_cast<char>(length_);
  }
  [[nodiscard]] static AddrPrefix fromBytes(const char* in) {
    return AddrPrefix(Addr::fromBytes(in), static_cast<std::uint8_t>(in[Addr::byteSize]));
  }
  [[nodiscard]] std::uint64_t hash() const { return IpGenAddr(addr_).hash(length_); }

  friend std::ostream& operator<<(std::ostream& out, const AddrPrefix& prefix) {
    return out << prefix.text();
  }
  constexpr auto operator<=>(const AddrPrefix&) const = default;

 private:
  explicit AddrPrefix(const IpGenPrefix& prefix) : length_(prefix.length()) {
    if constexpr (isV4)
      addr_ = prefix.v4Addr();
    else
      addr_ = prefix.v6Addr();
  }

  Addr addr_{};
  std::uint8_t length_ = 0;
};

}  // namespace Pavlin
