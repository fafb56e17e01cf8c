#include "bench/peers/Rows.h"

#include <algorithm>
#include <numeric>
#include <random>

namespace Peers {
namespace {

Pavlin::IpGenPrefix host(std::uint32_t address) {
  return Pavlin::IpGenPrefix(Pavlin::IpGenAddr(Pavlin::IpAddr(address)));
}

}  // namespace

std::vector<std::uint32_t> shuffled(std::size_t count, unsigned seed) {
  std::vector<std::uint32_t> order(count);
  std::iota(order.begin(), order.end(), 0U);
  std::shuffle(order.begin(), order.end(), std::mt19937(seed));
  return order;
}

std::vector<RouteKey> routeKeys(std::size_t count, unsigned series) {
  constexpr std::uint32_t seriesStep = 1U << 24;
  std::vector<RouteKey> keys;
  keys.reserve(count);
  for (const std::uint32_t number : shuffled(count, series))
    keys.push_back({.vlan = Bridging::VlanId(number % 4094 + 1),
                    .vrf = static_cast<std::uint16_t>(number % 100),
                    .tunnel = 1,
                    .source = host(0x0a000000U + number / 8),
                    .group = host(0xe8000000U + series * seriesStep + number)});
  return keys;
}

std::vector<RowKey> rowKeys(std::size_t count) {
  std::vector<RowKey> rows;
  rows.reserve(count);
  for (const RouteKey& route : routeKeys(count, 0)) {
    RowKey& row = rows.emplace_back(route, KeyBytes{});
    std::string bytes;
    Vesk::toBytes(route, bytes);
    std::copy(bytes.begin(), bytes.end(), row.bytes.begin());
  }
  return rows;
}

}  // namespace Peers
