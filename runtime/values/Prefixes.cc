#include "runtime/values/Prefixes.h"

#include "runtime/Assert.h"

namespace Pavlin {
namespace {

/// The address with everything behind the first `length` bits cleared. `length` is in the range of
/// the family.
IpGenAddr withoutHostBits(const IpGenAddr& addr, unsigned length) {
  if (addr.af() == AddressFamily::ipv4)
    return IpAddr(length == 0 ? 0 : addr.v4Addr().value() & ~0U << (32 - length));
  if (addr.af() != AddressFamily::ipv6) return addr;
  Ip6Addr::Bytes bytes = addr.v6Addr().bytes();
  for (unsigned i = 0; i < bytes.size(); ++i) {
    const unsigned kept = length <= 8 * i ? 0 : length - 8 * i;
    if (kept < 8) bytes[i] = static_cast<std::uint8_t>(bytes[i] & 0xff00U >> kept);
  }
  return Ip6Addr(bytes);
}

unsigned checkedLength(AddressFamily af, unsigned length) {
  if (length <= IpGenPrefixBase::maxLength(af)) return length;
  if (af == AddressFamily::none) return 0;
  throw Ombra::RangeException(
      fmt::format("Pavlin::IpGenPrefix::length > {} not allowed", IpGenPrefixBase::maxLength(af)));
}

}  // namespace

std::string IpGenPrefixBase::stringValue() const {
  if (isEmpty()) return "none";
  return fmt::format("{}/{}", addr_.stringValue(), length_);
}

IpGenPrefix::IpGenPrefix(const IpGenAddr& addr, unsigned length)
    : IpGenPrefixBase(withoutHostBits(addr, checkedLength(addr.af(), length)),
                      static_cast<std::uint8_t>(checkedLength(addr.af(), length))) {}

IpPrefix IpGenPrefix::v4Prefix() const {
  return af() == AddressFamily::ipv4 ? IpPrefix(v4Addr(), length()) : IpPrefix();
}

Ip6Prefix IpGenPrefix::v6Prefix() const {
  return af() == AddressFamily::ipv6 ? Ip6Prefix(v6Addr(), length()) : Ip6Prefix();
}

bool IpGenPrefix::contains(const IpGenAddr& addr) const {
  return !isEmpty() && addr.af() == af() && withoutHostBits(addr, length()) == ipGenAddr();
}

IpGenPrefix IpGenPrefix::fromText(std::string_view text) {
  if (text == "none") return {};
  const std::size_t slash = text.find('/');
  if (slash == std::string_view::npos) Vesk::throwNotA(typeName, text);
  const auto addr = IpGenAddr::fromText(text.substr(0, slash));
  const std::string_view digits = text.substr(slash + 1);
  unsigned length = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), length);
  if (error != std::errc{} || end != digits.data() + digits.size() || !addr.hasFamily() ||
      length > maxLength(addr.af()))
    Vesk::throwNotA(typeName, text);
  return IpGenPrefix(addr, length);
}

void IpGenPrefix::toBytes(char* out) const {
  ipGenAddr().toBytes(out);
  out[IpGenAddr::byteSize] = static_cast<char>(length());
}

IpGenPrefix IpGenPrefix::fromBytes(const char* in) {
  return IpGenPrefix(IpGenAddr::fromBytes(in), static_cast<std::uint8_t>(in[IpGenAddr::byteSize]));
}

}  // namespace Pavlin
