// The two address spaces of an overlay, kept apart in signatures.
// OverlayAddr is a multicast group of a tenant network, UnderlayAddr one of the transport network.
// Owns nothing. Text, bytes, hash and order are those of the address inside.
// Caveat: the default stands for no address; logic that wants to know tests isUnspecified().
#pragma once

#include "runtime/values/Addresses.h"

namespace Routing::Multicast {

template <class Self>
class WrappedAddr {
 public:
  static constexpr std::string_view form = "address";
  static constexpr std::size_t byteSize = Pavlin::IpGenAddr::byteSize;

  [[nodiscard]] constexpr const Pavlin::IpGenAddr& genAddr() const { return addr_; }
  [[nodiscard]] constexpr Pavlin::AddressFamily af() const { return addr_.af(); }
  /// No family, or the any address of one.
  [[nodiscard]] constexpr bool isUnspecified() const { return addr_.isUnspecified(); }
  [[nodiscard]] std::string stringValue() const { return addr_.stringValue(); }

  [[nodiscard]] std::string text() const { return addr_.text(); }
  [[nodiscard]] static Self fromText(std::string_view text) {
    return Self(Pavlin::IpGenAddr::fromText(text));
  }
  void toBytes(char* out) const { addr_.toBytes(out); }
  [[nodiscard]] static Self fromBytes(const char* in) {
    return Self(Pavlin::IpGenAddr::fromBytes(in));
  }
  [[nodiscard]] std::uint64_t hash() const { return addr_.hash(); }

  friend std::ostream& operator<<(std::ostream& out, const Self& self) { return out << self.addr_; }
  constexpr auto operator<=>(const WrappedAddr&) const = default;

 protected:
  constexpr WrappedAddr() = default;
  constexpr explicit WrappedAddr(const Pavlin::IpGenAddr& addr) : addr_(addr) {}

 private:
  Pavlin::IpGenAddr addr_;
};

class OverlayAddr : public WrappedAddr<OverlayAddr> {
 public:
  static constexpr std::string_view typeName = "Routing::Multicast::OverlayAddr";
  constexpr OverlayAddr() = default;
  constexpr explicit OverlayAddr(const Pavlin::IpGenAddr& addr) : WrappedAddr(addr) {}
  constexpr auto operator<=>(const OverlayAddr&) const = default;
};

class UnderlayAddr : public WrappedAddr<UnderlayAddr> {
 public:
  static constexpr std::string_view typeName = "Routing::Multicast::UnderlayAddr";
  constexpr UnderlayAddr() = default;
  constexpr explicit UnderlayAddr(const Pavlin::IpGenAddr& addr) : WrappedAddr(addr) {}
  constexpr auto operator<=>(const UnderlayAddr&) const = default;
};

}  // namespace Routing::Multicast
