// What the runtime's own steps cost: a write with its notices, the map's operations, a row of a
// shared table.

#include <array>
#include <compare>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "runtime/Record.h"
#include "runtime/SharedMem.h"

namespace runtimebench {

/// About the size and the number of members of a route's key: family, two addresses, vlan.
struct RouteKey {
  VESK_STRUCT(runtimebench::RouteKey)
  VESK_MEMBER(std::uint16_t, vlan)
  VESK_MEMBER(std::uint64_t, group)
  VESK_MEMBER(std::uint64_t, groupLow)
  VESK_MEMBER(std::uint64_t, source)
  VESK_MEMBER(std::uint64_t, sourceLow)
  VESK_MEMBER(std::uint64_t, tunnel)
  auto operator<=>(const RouteKey&) const = default;
};

class Row : public Vesk::Entity {
  VESK_LOCAL_RECORD(runtimebench::Row)
  VESK_VALUE(std::uint32_t, value)
};
class CountSm : public Vesk::Machine {
  VESK_LOCAL_RECORD(runtimebench::CountSm)
  CountSm(Ombra::Ptr<Row const> row, std::uint64_t* count)
      : count_(count), value_(watch<&CountSm::handleValue>(row, Row::valueAttr)) {}

 private:
  void handleValue() { ++*count_; }
  std::uint64_t* count_;
  Vesk::Watch value_;
};
class Table : public Vesk::Entity {
  VESK_LOCAL_RECORD(runtimebench::Table)
  VESK_SHARED_MAP(RouteKey, std::uint64_t, row, 131072)
};

RouteKey keyOf(std::uint32_t i, RouteKey*) {
  return {.vlan = static_cast<std::uint16_t>(i % 4094),
          .group = 0xe0000000ULL + i,
          .groupLow = 0,
          .source = i / 7,
          .sourceLow = 1,
          .tunnel = 3};
}
std::uint16_t keyOf(std::uint32_t i, std::uint16_t*) {
  return static_cast<std::uint16_t>(i);
}

/// Keys in an order that is not the map's. At most 65,536 differ if the key has 16 bits.
template <class K>
std::vector<K> keysOf(std::int64_t n) {
  std::vector<K> keys;
  for (std::uint32_t i = 0; i < n && (sizeof(K) > 2 || i < 65536); ++i)
    keys.push_back(keyOf(i * 40503U, static_cast<K*>(nullptr)));
  return keys;
}
template <class K>
void fill(Vesk::KeyedMap<K, std::uint64_t>& map, const std::vector<K>& keys) {
  for (const K& key : keys)
    map.insert(key, 1);
}

void attributeWrite(benchmark::State& state) {
  const auto row = Ombra::make<Row>();
  std::uint64_t events = 0;
  std::vector<Ombra::Ptr<CountSm>> machines;
  for (std::int64_t i = 0; i < state.range(0); ++i)
    machines.push_back(Ombra::make<CountSm>(row, &events));
  std::uint32_t value = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(row.get());
    row->valueIs(++value);
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(events);
}

template <class K>
void mapInsert(benchmark::State& state) {
  const auto keys = keysOf<K>(state.range(0));
  for (auto _ : state) {
    Vesk::KeyedMap<K, std::uint64_t> map;
    fill(map, keys);
    benchmark::DoNotOptimize(map.size());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.size()));
}

template <class K>
void mapFind(benchmark::State& state) {
  const auto keys = keysOf<K>(state.range(0));
  Vesk::KeyedMap<K, std::uint64_t> map;
  fill(map, keys);
  for (auto _ : state)
    for (const K& key : keys)
      benchmark::DoNotOptimize(map.find(key));
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.size()));
}

template <class K>
void mapIterate(benchmark::State& state) {
  const auto keys = keysOf<K>(state.range(0));
  Vesk::KeyedMap<K, std::uint64_t> map;
  fill(map, keys);
  for (auto _ : state) {
    std::uint64_t sum = 0;
    for (auto c = map.begin(); !c.atEnd(); c.advance())
      sum += c.value();
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.size()));
}

void sharedRowWrite(benchmark::State& state) {
  std::string pattern = (std::filesystem::temp_directory_path() / "RuntimeBench.XXXXXX").string();
  const std::string directory = mkdtemp(pattern.data());
  VeskSharedMem::EntityManager::directoryIs(directory);
  const auto entity =
      VeskSharedMem::EntityManager::getEntityManager()->open("table", "runtimebench::Table");
  auto& table = static_cast<Table&>(*entity);
  const auto keys = keysOf<RouteKey>(state.range(0));
  for (const RouteKey& key : keys)
    table.rowIs(key, 0);
  std::uint64_t version = 0;
  for (auto _ : state) {
    ++version;
    for (const RouteKey& key : keys)
      table.rowIs(key, version);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.size()));
  VeskSharedMem::EntityManager::forgetProcess();
  std::filesystem::remove_all(directory);
}

BENCHMARK(attributeWrite)->Arg(0)->Arg(1)->Arg(4);
BENCHMARK(mapInsert<RouteKey>)->Arg(1000)->Arg(100000);
BENCHMARK(mapInsert<std::uint16_t>)->Arg(1000)->Arg(100000);
BENCHMARK(mapFind<RouteKey>)->Arg(1000)->Arg(100000);
BENCHMARK(mapFind<std::uint16_t>)->Arg(1000)->Arg(100000);
BENCHMARK(mapIterate<RouteKey>)->Arg(1000)->Arg(100000);
BENCHMARK(mapIterate<std::uint16_t>)->Arg(1000)->Arg(100000);
BENCHMARK(sharedRowWrite)->Arg(1000)->Arg(100000);

}  // namespace runtimebench
