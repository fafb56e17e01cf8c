// The rows that all tables and maps are measured with: a key of 42 bytes as a multicast route has
// it, and a value of 14. Keys are made once, in the form of every candidate.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

#include "runtime/values/Prefixes.h"
#include "runtime/values/Vlan.h"

namespace Peers {

struct RouteKey {
  VESK_STRUCT(Peers::RouteKey)
  VESK_MEMBER(Bridging::VlanId, vlan)
  VESK_MEMBER(std::uint16_t, vrf)
  VESK_MEMBER(std::uint16_t, tunnel)
  VESK_MEMBER(Pavlin::IpGenPrefix, source)
  VESK_MEMBER(Pavlin::IpGenPrefix, group)
  auto operator<=>(const RouteKey&) const = default;
};

/// All members follow from the version, so that a torn value shows.
struct RouteValue {
  VESK_STRUCT(Peers::RouteValue)
  VESK_MEMBER(std::uint64_t, version)
  VESK_MEMBER(std::uint32_t, underlay)
  VESK_MEMBER(std::uint16_t, vlan)
  auto operator<=>(const RouteValue&) const = default;
};

using KeyBytes = std::array<char, 42>;
using ValueBytes = std::array<char, 14>;
static_assert(Vesk::byteSizeOf<RouteKey>() == sizeof(KeyBytes));
static_assert(Vesk::byteSizeOf<RouteValue>() == sizeof(ValueBytes));
inline constexpr std::size_t payloadBytes = sizeof(KeyBytes) + sizeof(ValueBytes);

struct RowKey {
  RouteKey route;
  KeyBytes bytes;
};

inline RouteValue routeValue(std::uint64_t version) {
  return {.version = version,
          .underlay = static_cast<std::uint32_t>(version * 0x9e3779b9U),
          .vlan = static_cast<std::uint16_t>(version * 40503U)};
}

inline ValueBytes valueBytes(const RouteValue& value) {
  ValueBytes bytes;
  std::memcpy(bytes.data(), &value.version, 8);
  std::memcpy(bytes.data() + 8, &value.underlay, 4);
  std::memcpy(bytes.data() + 12, &value.vlan, 2);
  return bytes;
}

inline std::uint64_t versionOf(const void* bytes) {
  std::uint64_t version = 0;
  std::memcpy(&version, bytes, sizeof version);
  return version;
}

/// Empty if the value is not of one piece.
inline std::optional<std::uint64_t> wholeVersion(const ValueBytes& bytes) {
  const std::uint64_t version = versionOf(bytes.data());
  if (valueBytes(routeValue(version)) != bytes) return std::nullopt;
  return version;
}

/// Different keys in no order; another `series` shares none of them.
[[nodiscard]] std::vector<RouteKey> routeKeys(std::size_t count, unsigned series);
[[nodiscard]] std::vector<RowKey> rowKeys(std::size_t count);
/// The numbers below `count`, shuffled; the same ones for the same seed.
[[nodiscard]] std::vector<std::uint32_t> shuffled(std::size_t count, unsigned seed);
/// The same keys in another order. Copies, so that whoever goes through them waits for the memory
/// of what is measured and not for that of the keys.
template <class K>
[[nodiscard]] std::vector<K> reordered(const std::vector<K>& keys, unsigned seed) {
  std::vector<K> result;
  result.reserve(keys.size());
  for (const std::uint32_t i : shuffled(keys.size(), seed))
    result.push_back(keys[i]);
  return result;
}

}  // namespace Peers
