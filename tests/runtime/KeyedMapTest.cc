// The keyed map against a model: contents, cursors over any change, bookmarks.

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "runtime/KeyedMap.h"
#include "runtime/Record.h"

namespace keyedmaptest {

struct Colliding {
  std::uint32_t number = 0;
  auto operator<=>(const Colliding&) const = default;
};

}  // namespace keyedmaptest

/// All of one hash, which falls into the last bucket of any array.
template <>
struct Vesk::Leaf<keyedmaptest::Colliding> {
  static std::uint64_t hash(const keyedmaptest::Colliding&) {
    static const std::uint64_t last = [] {
      std::uint64_t seed = 1;
      while (mixHash(seed) >> 44 != 0xfffff)
        ++seed;
      return seed;
    }();
    return last;
  }
};

namespace keyedmaptest {

using Map = Vesk::KeyedMap<std::uint16_t, std::uint32_t>;

/// A cursor, and what it still has to visit: every key that was there when it set out and has been
/// there ever since.
struct Scan {
  explicit Scan(const Map& map, const std::map<std::uint16_t, std::uint32_t>& model)
      : cursor(map.begin()) {
    for (const auto& [key, value] : model)
      due.insert(key);
  }
  Map::Cursor cursor;
  std::set<std::uint16_t> due, seen;
};

TEST(KeyedMapTest, randomHistoriesAgreeWithAnOrderedMapAndNoCursorMissesAKey) {
  for (std::uint64_t seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    const auto below = [&](std::uint32_t n) { return static_cast<std::uint32_t>(random() % n); };
    // Few keys collide in a small table, many make it grow.
    const std::uint32_t keys = std::array{6U, 60U, 2000U}[seed % 3];
    Map map;
    std::map<std::uint16_t, std::uint32_t> model;
    std::vector<Scan> scans;
    const auto erase = [&](std::uint16_t key) {
      EXPECT_EQ(map.erase(key), model.erase(key) != 0);
      for (Scan& scan : scans)
        scan.due.erase(key);
    };
    for (int step = 0; step < 3000; ++step) {
      const auto key = static_cast<std::uint16_t>(below(keys));
      switch (below(9)) {
        case 0:
        case 1:
        case 2:
          if (model.emplace(key, step).second) map.insert(key, static_cast<std::uint32_t>(step));
          break;
        case 3:
          erase(key);
          break;
        case 4:  // what a cursor stands on
          if (!scans.empty() && !scans.back().cursor.atEnd()) erase(scans.back().cursor.key());
          break;
        case 5:
          if (step % 50 == 0)
            for (auto c = map.begin(); !c.atEnd(); c.advance())
              erase(c.key());
          break;
        case 6:
          if (scans.size() < 4) scans.emplace_back(map, model);
          break;
        default:
          if (scans.empty()) break;
          Scan& scan = scans[below(static_cast<std::uint32_t>(scans.size()))];
          if (scan.cursor.atEnd()) {
            EXPECT_TRUE(scan.due.empty()) << scan.due.size() << " keys were missed";
            std::swap(scan, scans.back());
            scans.pop_back();
            break;
          }
          const std::uint16_t at = scan.cursor.key();
          ASSERT_EQ(scan.cursor.stale(), model.count(at) == 0);
          ASSERT_EQ(scan.cursor.value(), model.count(at) == 0 ? 0 : model[at]);
          ASSERT_TRUE(scan.seen.insert(at).second) << "a key twice";
          scan.due.erase(at);
          scan.cursor.advance();
      }
      ASSERT_EQ(map.size(), model.size());
      const std::uint32_t* found = map.find(key);
      ASSERT_EQ(found != nullptr, model.count(key) != 0);
      if (found != nullptr) {
        ASSERT_EQ(*found, model[key]);
      }
    }
    std::map<std::uint16_t, std::uint32_t> content;
    for (auto c = map.begin(); !c.atEnd(); c.advance())
      content[c.key()] = c.value();
    EXPECT_EQ(content, model);
  }
}

TEST(KeyedMapTest, aBookmarkThatVanishedResumesAtTheFirstKeyNotSeen) {
  std::mt19937_64 random(3);
  for (const std::uint32_t count : {1U, 5U, 300U}) {
    Map map;
    std::set<std::uint16_t> rest;
    for (std::uint16_t k = 0; k < count; ++k)
      map.insert(k, k), rest.insert(k);
    std::vector<std::uint16_t> seen;
    for (auto c = map.begin(); !c.atEnd();) {
      for (int n = 0; n < 7 && !c.atEnd(); ++n, c.advance())
        seen.push_back(c.key());
      if (c.atEnd()) break;
      const std::uint16_t bookmark = c.key();
      map.erase(bookmark);
      rest.erase(bookmark);
      map.erase(seen.back());
      for (int n = 0; n < 20; ++n)
        map.insert(
            static_cast<std::uint16_t>(10000 + random() % 50000 / 50 * 50 + seen.size() % 50), 0);
      for (auto g = map.begin(); !g.atEnd(); g.advance())
        if (g.key() >= 10000) map.erase(g.key());  // grown and emptied again
      c = map.from(bookmark);
    }
    EXPECT_EQ(std::set<std::uint16_t>(seen.begin(), seen.end()), rest);
    EXPECT_EQ(seen.size(), rest.size()) << "no key twice";
    for (std::size_t i = 1; i < seen.size(); ++i)
      EXPECT_TRUE(Map::before(seen[i - 1], seen[i]));
  }
  const Map empty;
  EXPECT_TRUE(empty.from(1).atEnd());
}

/// A remote sender chooses its groups: the arrays must not double with each of them.
TEST(KeyedMapTest, keysWhoseHashesFallTogetherTakeRoomForThemselvesOnly) {
  Vesk::KeyedMap<Colliding, std::uint32_t> map;
  constexpr std::uint32_t count = 2000;
  for (std::uint32_t i = 0; i < count; ++i)
    map.insert(Colliding{(i * 7) % count}, i);
  std::uint32_t expected = 0;
  for (auto c = map.begin(); !c.atEnd(); c.advance())
    EXPECT_EQ(c.key().number, expected++);
  EXPECT_EQ(expected, count);
  for (std::uint32_t i = 0; i < count; i += 2)
    EXPECT_TRUE(map.erase(Colliding{i}));
  EXPECT_FALSE(map.has(Colliding{100}));
  EXPECT_TRUE(map.has(Colliding{101}));
}

TEST(KeyedMapTest, readingAtTheEndEndsTheProcess) {
  Map map;
  EXPECT_DEATH((void)map.begin().value(), "^assertion failed: iter_\n");
  EXPECT_DEATH((void)map.begin().key(), "^assertion failed: iter_\n");
  EXPECT_DEATH(map.begin().advance(), "^assertion failed: iter_\n");
}

/// Comes back to its map when it goes.
struct Revenant : Ombra::Node {
  using RevenantMap = Vesk::KeyedMap<std::uint16_t, Ombra::Ptr<Revenant>>;
  Revenant(RevenantMap* m, std::uint16_t k) : map(m), key(k) {}
  ~Revenant() override {
    EXPECT_FALSE(map->has(key));
    for (std::uint16_t other = 0; other < 64; ++other)
      map->erase(other);
    EXPECT_TRUE(map->empty());
    EXPECT_TRUE(map->begin().atEnd());
  }
  RevenantMap* map;
  std::uint16_t key;
};

TEST(KeyedMapTest, aValueThatGoesMayComeBackToTheMap) {
  for (const bool byErase : {true, false}) {
    auto map = std::make_optional<Revenant::RevenantMap>();
    for (std::uint16_t k = 0; k < 64; ++k)
      map->insert(k, Ombra::make<Revenant>(&*map, k));
    if (byErase) {
      EXPECT_TRUE(map->erase(20));
    }
  }
}

class Holder : public Vesk::Entity {
  VESK_LOCAL_RECORD(keyedmaptest::Holder)
  VESK_MAP(std::uint16_t, std::uint32_t, entry)
};

TEST(KeyedMapTest, anIterationHoldsTheOwnerOfItsMap) {
  auto holder = Ombra::make<Holder>();
  for (std::uint16_t k = 0; k < 10; ++k)
    holder->entryIs(k, k);
  int seen = 0;
  for (const auto& [key, value] : holder->entryIterator()) {
    holder.reset();
    EXPECT_EQ(key, value);
    ++seen;
  }
  EXPECT_EQ(seen, 10);
}

TEST(KeyedMapTest, whatAnEmptiedMapHeldCostsNothingAndIteratorsOverItEnd) {
  Vesk::KeyedMap<std::uint32_t, std::uint32_t> map;
  for (int round = 0; round < 2; ++round) {
    for (std::uint32_t k = 0; k < 5000; ++k)
      map.insert(k, k);
    auto cursor = map.begin();
    const auto bookmark = cursor.key();
    for (std::uint32_t k = 0; k < 5000; ++k)
      EXPECT_TRUE(map.erase(k));
    EXPECT_TRUE(cursor.stale());
    EXPECT_TRUE(map.begin().atEnd() && map.from(bookmark).atEnd());
    map.insert(7, 70);
    EXPECT_EQ(*map.find(7), 70U);
    cursor.advance();
    EXPECT_TRUE(cursor.atEnd() || cursor.key() == 7);
    EXPECT_TRUE(map.erase(7));
  }
}

}  // namespace keyedmaptest
