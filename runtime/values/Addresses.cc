#include "runtime/values/Addresses.h"

#include <arpa/inet.h>

namespace Pavlin {
namespace {

/// True if the text is an address of the family, whose bytes are then in `out`.
bool readAddress(int family, std::string_view text, void* out) {
  std::array<char, INET6_ADDRSTRLEN> copy{};
  if (text.size() >= copy.size()) return false;
  text.copy(copy.data(), text.size());
  return text.find('\0') == std::string_view::npos && inet_pton(family, copy.data(), out) == 1;
}

std::string dottedQuad(const std::uint8_t* bytes) {
  return fmt::format("{}.{}.{}.{}", bytes[0], bytes[1], bytes[2], bytes[3]);
}

/// The longest run of two or more zero groups, the first of equal ones; `length` 0 if there is
/// none.
struct ZeroRun {
  std::size_t start = 0;
  std::size_t length = 0;
};
ZeroRun longestZeroRun(const std::array<unsigned, 8>& groups) {
  ZeroRun best;
  for (std::size_t start = 0; start < groups.size(); ++start) {
    std::size_t end = start;
    while (end < groups.size() && groups[end] == 0)
      ++end;
    if (end - start > best.length) best = {start, end - start};
    start = end;
  }
  return best.length < 2 ? ZeroRun{} : best;
}

}  // namespace

std::string IpAddr::stringValue() const {
  std::array<char, byteSize> bytes;
  toBytes(bytes.data());
  return dottedQuad(reinterpret_cast<const std::uint8_t*>(bytes.data()));
}

IpAddr IpAddr::fromText(std::string_view text) {
  std::array<char, byteSize> bytes;
  if (!readAddress(AF_INET, text, bytes.data())) Vesk::throwNotA(typeName, text);
  return fromBytes(bytes.data());
}

void IpAddr::toBytes(char* out) const {
  const std::uint32_t network = htonl(value_);
  std::memcpy(out, &network, sizeof network);
}

IpAddr IpAddr::fromBytes(const char* in) {
  std::uint32_t network;
  std::memcpy(&network, in, sizeof network);
  return IpAddr(ntohl(network));
}

std::string Ip6Addr::stringValue() const {
  constexpr Bytes mapped{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
  if (std::memcmp(bytes_.data(), mapped.data(), 12) == 0)
    return "::ffff:" + dottedQuad(bytes_.data() + 12);

  std::array<unsigned, 8> groups;
  for (std::size_t i = 0; i < groups.size(); ++i)
    groups[i] = unsigned{bytes_[2 * i]} << 8 | bytes_[2 * i + 1];
  const ZeroRun zeros = longestZeroRun(groups);
  std::string text;
  for (std::size_t i = 0; i < groups.size(); ++i) {
    if (zeros.length != 0 && i == zeros.start) {
      text += "::";
      i += zeros.length - 1;
      continue;
    }
    if (!text.empty() && text.back() != ':') text += ':';
    text += fmt::format("{:x}", groups[i]);
  }
  return text;
}

Ip6Addr Ip6Addr::fromText(std::string_view text) {
  Bytes bytes;
  if (!readAddress(AF_INET6, text, bytes.data())) Vesk::throwNotA(typeName, text);
  return Ip6Addr(bytes);
}

Ip6Addr Ip6Addr::fromBytes(const char* in) {
  Bytes bytes;
  std::memcpy(bytes.data(), in, byteSize);
  return Ip6Addr(bytes);
}

std::uint64_t Ip6Addr::hash() const {
  return IpGenAddr(*this).hash();
}

std::string IpGenAddr::stringValue() const {
  switch (af_) {
    case AddressFamily::ipv4:
      return dottedQuad(bytes_.data());
    case AddressFamily::ipv6:
      return v6Addr().stringValue();
    case AddressFamily::none:
      break;
  }
  return "none";
}

IpGenAddr IpGenAddr::fromText(std::string_view text) {
  if (text == "none") return {};
  Ip6Addr::Bytes bytes;
  if (readAddress(AF_INET6, text, bytes.data())) return Ip6Addr(bytes);
  if (!readAddress(AF_INET, text, bytes.data())) Vesk::throwNotA(typeName, text);
  return IpAddr::fromBytes(reinterpret_cast<const char*>(bytes.data()));
}

void IpGenAddr::toBytes(char* out) const {
  *out = static_cast<char>(af_);
  std::memcpy(out + 1, bytes_.data(), bytes_.size());
}

IpGenAddr IpGenAddr::fromBytes(const char* in) {
  // Another process wrote this: only what belongs to the family is taken, so that equal addresses
  // have equal bytes.
  switch (static_cast<AddressFamily>(*in)) {
    case AddressFamily::ipv4:
      return IpAddr::fromBytes(in + 1);
    case AddressFamily::ipv6:
      return Ip6Addr::fromBytes(in + 1);
    case AddressFamily::none:
      break;
  }
  return {};
}

std::uint64_t IpGenAddr::hash(std::uint64_t seed) const {
  std::array<std::uint64_t, 2> words;
  std::memcpy(words.data(), bytes_.data(), sizeof words);
  const std::uint64_t hash = Vesk::foldHash(seed, static_cast<std::uint64_t>(af_));
  return Vesk::foldHash(Vesk::foldHash(hash, words[0]), words[1]);
}

std::string EthAddr::stringValue() const {
  return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", bytes_[0], bytes_[1], bytes_[2],
                     bytes_[3], bytes_[4], bytes_[5]);
}

EthAddr EthAddr::fromText(std::string_view text) {
  Bytes bytes{};
  bool ok = text.size() == 17;
  for (std::size_t i = 0; ok && i < bytes.size(); ++i) {
    const char* const at = text.data() + 3 * i;
    const auto [end, error] = std::from_chars(at, at + 2, bytes[i], 16);
    ok = error == std::errc{} && end == at + 2 && (i == 5 || *end == ':');
  }
  if (!ok) Vesk::throwNotA(typeName, text);
  return EthAddr(bytes);
}

EthAddr EthAddr::fromBytes(const char* in) {
  Bytes bytes;
  std::memcpy(bytes.data(), in, byteSize);
  return EthAddr(bytes);
}

std::uint64_t EthAddr::hash() const {
  return Vesk::hashBytes({reinterpret_cast<const char*>(bytes_.data()), byteSize});
}

}  // namespace Pavlin
