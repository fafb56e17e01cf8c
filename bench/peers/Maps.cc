// The keyed map beside those of Abseil, all with the same keys, values and hash. None is sized in
// advance.
#include <malloc.h>
#include <memory>

#include <absl/container/btree_map.h>
#include <absl/container/flat_hash_map.h>
#include <absl/container/node_hash_map.h>
#include <fmt/format.h>

#include "bench/peers/Recorder.h"
#include "bench/peers/Rows.h"
#include "bench/peers/Timing.h"
#include "runtime/KeyedMap.h"

namespace Peers {
namespace {

template <class K>
struct Hash {
  std::size_t operator()(const K& key) const { return Vesk::mixHash(Vesk::hashValue(key)); }
};

template <class K>
class Keyed {
 public:
  void insert(const K& key, const RouteValue& value) { map_.insert(key, value); }
  [[nodiscard]] const RouteValue* find(const K& key) const { return map_.find(key); }
  bool erase(const K& key) { return map_.erase(key); }
  [[nodiscard]] std::uint64_t sum() const {
    std::uint64_t sum = 0;
    for (auto c = map_.begin(); !c.atEnd(); c.advance())
      sum += c.value().version;
    return sum;
  }
  /// The first entry from where the key would be.
  [[nodiscard]] std::uint64_t resume(const K& key) const {
    const auto cursor = map_.from(key);
    return cursor.atEnd() ? 0 : cursor.value().version;
  }

 private:
  Vesk::KeyedMap<K, RouteValue> map_;
};

template <class K, class Map>
class Other {
 public:
  void insert(const K& key, const RouteValue& value) { map_.emplace(key, value); }
  [[nodiscard]] const RouteValue* find(const K& key) const {
    const auto found = map_.find(key);
    return found == map_.end() ? nullptr : &found->second;
  }
  bool erase(const K& key) { return map_.erase(key) != 0; }
  [[nodiscard]] std::uint64_t sum() const {
    std::uint64_t sum = 0;
    for (const auto& [key, value] : map_)
      sum += value.version;
    return sum;
  }
  /// Hash maps have no place for a key that is gone.
  [[nodiscard]] std::uint64_t resume(const K& key) const requires requires(const Map& map) {
    map.lower_bound(key);
  }
  {
    const auto found = map_.lower_bound(key);
    return found == map_.end() ? 0 : found->second.version;
  }

 private:
  Map map_;
};

template <class K>
using NodeMap = Other<K, absl::node_hash_map<K, RouteValue, Hash<K>>>;
template <class K>
using FlatMap = Other<K, absl::flat_hash_map<K, RouteValue, Hash<K>>>;
template <class K>
using TreeMap = Other<K, absl::btree_map<K, RouteValue>>;

template <class K>
struct Workload {
  std::vector<K> present;
  std::vector<K> missing;
  std::vector<K> hits;  ///< those present, in another order
  std::vector<K> erasures;
  std::size_t rounds;  ///< so that a small map is measured as long as a big one
};

std::size_t heapBytes() {
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

void require(bool isTrue) {
  if (!isTrue) throw std::runtime_error("a map lost an entry, or made one up");
}

template <class Map, class K>
void fill(Map& map, const std::vector<K>& keys) {
  for (std::size_t i = 0; i < keys.size(); ++i)
    map.insert(keys[i], routeValue(i));
}

template <class Map, class K>
double lookUpNs(const Map& map, const Workload<K>& work, const std::vector<K>& keys, bool isThere) {
  std::size_t found = 0;
  const double time = nsPer(work.rounds * keys.size(), [&] {
    for (std::size_t round = 0; round < work.rounds; ++round)
      for (const K& key : keys)
        if (const RouteValue* value = map.find(key)) {
          DoNotOptimize(value->version);
          ++found;
        }
  });
  require(found == (isThere ? work.rounds * keys.size() : 0));
  return time;
}

template <class Map, class K>
void measureFilled(const Workload<K>& work, Recorder& recorder) {
  const std::size_t entries = work.present.size();
  malloc_trim(0);
  const std::size_t before = heapBytes();
  Map map;
  fill(map, work.present);
  const std::size_t bytes = heapBytes() - before;

  recorder.add("hit", "ns", lookUpNs(map, work, work.hits, true));
  recorder.add("miss", "ns", lookUpNs(map, work, work.missing, false));
  recorder.add("iterate", "ns", nsPer(work.rounds * entries, [&] {
                 for (std::size_t round = 0; round < work.rounds; ++round)
                   require(map.sum() == entries * (entries - 1) / 2);
               }));
  if constexpr (requires { map.resume(work.present[0]); }) {
    std::vector<K> vanished;
    for (std::size_t i = 0; i < entries; i += 2)
      vanished.push_back(work.hits[i]);
    for (const K& key : vanished)
      require(map.erase(key));
    recorder.add("resume", "ns", nsPer(work.rounds * vanished.size(), [&] {
                   for (std::size_t round = 0; round < work.rounds; ++round)
                     for (const K& key : vanished)
                       DoNotOptimize(map.resume(key));
                 }));
  }
  recorder.add("size", "bytes", static_cast<double>(bytes) / static_cast<double>(entries));
}

template <class Map, class K>
void measureChanges(const Workload<K>& work, Recorder& recorder) {
  double inserting = 0;
  double erasing = 0;
  for (std::size_t round = 0; round < work.rounds; ++round) {
    Map map;
    inserting += nsPer(work.present.size(), [&] { fill(map, work.present); });
    erasing += nsPer(work.present.size(), [&] {
      for (const K& key : work.erasures)
        require(map.erase(key));
    });
  }
  recorder.add("insert", "ns", inserting / static_cast<double>(work.rounds));
  recorder.add("erase", "ns", erasing / static_cast<double>(work.rounds));
}

template <class Map, class K>
Candidate candidate(std::string name, bool isOurs, std::shared_ptr<const Workload<K>> work) {
  return {std::move(name), isOurs, [work](Recorder& recorder) {
            measureFilled<Map>(*work, recorder);
            measureChanges<Map>(*work, recorder);
          }};
}

template <class K>
Topic topicOf(std::string name, const Options& options, const std::vector<K>& present,
              std::vector<K> missing) {
  const std::size_t entries = present.size();
  const std::size_t rounds = std::max<std::size_t>(1, options.sized(200000, 4000) / entries);
  auto work = std::make_shared<const Workload<K>>(Workload<K>{
      present, std::move(missing), reordered(present, 5), reordered(present, 6), rounds});
  return {std::move(name),
          options.sized(5, 2),
          {candidate<Keyed<K>>("keyed map", true, work),
           candidate<NodeMap<K>>("absl::node_hash_map", false, work),
           candidate<TreeMap<K>>("absl::btree_map", false, work),
           candidate<FlatMap<K>>("absl::flat_hash_map", false, work)}};
}

std::vector<Bridging::VlanId> vlans(unsigned first, unsigned last) {
  std::vector<Bridging::VlanId> result;
  for (const std::uint32_t i : shuffled(last - first + 1, 6))
    result.emplace_back(first + i);
  return result;
}

}  // namespace

std::vector<Topic> maps(const Options& options) {
  std::vector<Topic> topics;
  for (const std::size_t entries :
       {std::size_t{1000}, options.sized(100000, 2000), options.sized(1000000, 4000)})
    topics.push_back(topicOf(fmt::format("map of {} routes", entries), options,
                             routeKeys(entries, 0), routeKeys(entries, 1)));
  topics.push_back(topicOf("map of 2047 vlans", options, vlans(1, 2047), vlans(2048, 4094)));
  return topics;
}

}  // namespace Peers
