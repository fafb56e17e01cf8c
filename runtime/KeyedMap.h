// The one keyed map of the system: O(1) look-up, and an order of iteration that survives removal
// and growth. Entries stand in an open-addressed array sorted by (hash, key), so the position of an
// entry is a pure function of its key: a cursor finds its place again after any change, and a scan
// resumes at a bookmark key that has vanished. Caveat: values move when the map changes; read them
// by value. Entries added during an iteration may or may not be seen.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "runtime/Assert.h"
#include "runtime/ValueTraits.h"

namespace Vesk {

/// The value of a set's entry: nothing.
struct NoValue {
  bool operator==(const NoValue&) const = default;
};

template <class K, class V>
class KeyedMap {
 public:
  struct Slot {
    K key;
    [[no_unique_address]] V value;
  };

  KeyedMap() = default;
  KeyedMap(const KeyedMap&) = delete;
  KeyedMap& operator=(const KeyedMap&) = delete;
  /// Values that come back to this map as they go find it empty.
  ~KeyedMap() {
    const auto hashes = std::move(hashes_);
    size_ = bits_ = 0;
    ++version_;
    destroy(hashes.get(), std::exchange(slots_, nullptr), std::exchange(total_, 0));
  }

  [[nodiscard]] std::uint32_t size() const { return size_; }
  [[nodiscard]] bool empty() const { return size_ == 0; }

  /// The value under the key, or null. The pointer holds until the map changes.
  [[nodiscard]] const V* find(const K& key) const {
    const std::uint32_t index = locate(hashOf(key), key);
    return index == none ? nullptr : &slots_[index].value;
  }
  [[nodiscard]] V* find(const K& key) { return const_cast<V*>(std::as_const(*this).find(key)); }
  [[nodiscard]] bool has(const K& key) const { return find(key) != nullptr; }

  /// Stores the value under a key that is not there yet.
  void insert(const K& key, V value) {
    const std::uint32_t hash = hashOf(key);
    if (size_ + 1 > limit()) grow();
    std::uint32_t at = lowerBound(hash, key);
    std::uint32_t gap = at;
    while (gap < total_ && hashes_[gap] != 0)
      ++gap;
    if (gap == total_ || isCrowded(gap - home(hash))) {
      gap == total_ ? lengthen() : grow();
      insert(key, std::move(value));
      return;
    }
    if (gap == at) {
      new (&slots_[at]) Slot{key, std::move(value)};
    } else {
      new (&slots_[gap]) Slot{std::move(slots_[gap - 1])};
      for (std::uint32_t i = gap - 1; i > at; --i)
        slots_[i] = std::move(slots_[i - 1]);
      std::copy_backward(&hashes_[at], &hashes_[gap], &hashes_[gap + 1]);
      slots_[at] = Slot{key, std::move(value)};
    }
    hashes_[at] = hash;
    ++size_;
    ++version_;
  }

  /// Removes the entry; false if there was none. The value dies after the map is whole again, since
  /// its end may come back to this map.
  bool erase(const K& key) {
    std::uint32_t at = locate(hashOf(key), key);
    if (at == none) return false;
    [[maybe_unused]] const V last = std::move(slots_[at].value);
    while (at + 1 < total_ && hashes_[at + 1] != 0 && home(hashes_[at + 1]) <= at) {
      slots_[at] = std::move(slots_[at + 1]);
      hashes_[at] = hashes_[at + 1];
      ++at;
    }
    slots_[at].~Slot();
    hashes_[at] = 0;
    --size_;
    ++version_;
    if (size_ == 0 && bits_ > keptBits) release();
    return true;
  }

  /// Visits the entries in place until `done(key, value)` is true. The map must not change
  /// meanwhile.
  template <class Done>
  void visitUntil(Done done) const {
    for (std::uint32_t i = 0; i < total_; ++i)
      if (hashes_[i] != 0 && done(slots_[i].key, slots_[i].value)) return;
  }

  /// All keys, in order: for who changes the map as he goes.
  [[nodiscard]] std::vector<K> keys() const {
    std::vector<K> all;
    all.reserve(size_);
    visitUntil([&](const K& key, const V&) {
      all.push_back(key);
      return false;
    });
    return all;
  }

  /// A position in the map. It stays good over any change: if its own entry goes it is stale, and
  /// `advance` moves to the next live entry.
  class Cursor {
   public:
    [[nodiscard]] bool atEnd() const { return atEnd_; }
    /// True if the entry that the cursor stands on has been removed.
    [[nodiscard]] bool stale() const { return !atEnd_ && resolve() == none; }
    [[nodiscard]] const K& key() const {
      Ombra::assertThat(!atEnd_, "iter_");
      return key_;
    }
    /// The value of the entry; a default one if the cursor is stale.
    [[nodiscard]] V value() const {
      Ombra::assertThat(!atEnd_, "iter_");
      const std::uint32_t index = resolve();
      return index == none ? V{} : map_->slots_[index].value;
    }
    void advance() {
      Ombra::assertThat(!atEnd_, "iter_");
      standAt(version_ == map_->version_ ? index_ + 1 : map_->upperBound(hash_, key_));
    }

   private:
    friend class KeyedMap;
    Cursor(const KeyedMap* map, std::uint32_t from) : map_(map) { standAt(from); }
    void standAt(std::uint32_t index) {
      while (index < map_->total_ && map_->hashes_[index] == 0)
        ++index;
      atEnd_ = index >= map_->total_;
      version_ = map_->version_;
      index_ = index;
      if (atEnd_) return;
      hash_ = map_->hashes_[index];
      key_ = map_->slots_[index].key;
    }
    [[nodiscard]] std::uint32_t resolve() const {
      return version_ == map_->version_ ? index_ : map_->locate(hash_, key_);
    }

    const KeyedMap* map_;
    K key_{};
    std::uint32_t hash_ = 0;
    std::uint32_t index_ = 0;
    std::uint32_t version_ = 0;
    bool atEnd_ = false;
  };

  [[nodiscard]] Cursor begin() const { return Cursor(this, 0); }
  /// Stands on the key, or if it has vanished on the first entry after where it would be.
  [[nodiscard]] Cursor from(const K& key) const {
    return total_ == 0 ? begin() : Cursor(this, lowerBound(hashOf(key), key));
  }
  /// The same, at the beginning without a key.
  [[nodiscard]] Cursor from(const std::optional<K>& key) const {
    return key ? from(*key) : begin();
  }
  /// True if `a` comes before `b` in the order of iteration.
  [[nodiscard]] static bool before(const K& a, const K& b) {
    const std::uint32_t ha = hashOf(a);
    const std::uint32_t hb = hashOf(b);
    return ha != hb ? ha < hb : a < b;
  }

 private:
  static constexpr std::uint32_t none = ~0U;
  /// An emptied map keeps arrays of this size. Bigger ones go: to look for the first entry of a map
  /// must not cost what the map once held.
  static constexpr std::uint32_t keptBits = 6;

  static std::uint32_t hashOf(const K& key) {
    const auto hash = static_cast<std::uint32_t>(mixHash(hashValue(key)) >> 32);
    return hash == 0 ? 1 : hash;  // 0 marks an empty slot
  }
  [[nodiscard]] std::uint32_t home(std::uint32_t hash) const { return hash >> (32 - bits_); }
  [[nodiscard]] std::uint32_t limit() const { return bits_ < 2 ? bits_ : (1U << bits_) / 4 * 3; }

  [[nodiscard]] std::uint32_t lowerBound(std::uint32_t hash, const K& key) const {
    std::uint32_t i = home(hash);
    while (i < total_ && hashes_[i] != 0 &&
           (hashes_[i] < hash || (hashes_[i] == hash && slots_[i].key < key)))
      ++i;
    return i;
  }
  [[nodiscard]] std::uint32_t upperBound(std::uint32_t hash, const K& key) const {
    if (total_ == 0) return 0;
    const std::uint32_t i = lowerBound(hash, key);
    return i < total_ && hashes_[i] == hash && slots_[i].key == key ? i + 1 : i;
  }
  [[nodiscard]] std::uint32_t locate(std::uint32_t hash, const K& key) const {
    if (size_ == 0) return none;
    for (std::uint32_t i = home(hash); i < total_ && hashes_[i] != 0 && hashes_[i] <= hash; ++i)
      if (hashes_[i] == hash && slots_[i].key == key) return i;
    return none;
  }

  /// Keys that come in the order of iteration, copied from a bigger map, all fall to the beginning
  /// of a smaller one: arrays that are big early keep the way to their places short. By chance no
  /// key comes so far from its home.
  [[nodiscard]] bool isCrowded(std::uint32_t distance) const {
    return distance > 512 && total_ / 16 < size_;
  }

  /// Arrays for twice as many entries.
  void grow() {
    const std::uint32_t bits = bits_ + 1;
    if (bits > 30) Ombra::fatal("KeyedMap: more entries than it can hold");
    rebuild(bits, std::max(totalOf(bits), endOf(bits)));
  }
  /// A longer tail. However many hashes fall together, the arrays grow with the entries only.
  void lengthen() { rebuild(bits_, total_ + std::max(4U, total_ - (1U << bits_))); }

  /// Other arrays, in the same order.
  void rebuild(std::uint32_t bits, std::uint32_t total) {
    auto hashes = std::make_unique<std::uint32_t[]>(total);
    auto* slots = allocate(total);
    std::uint32_t next = 0;
    for (std::uint32_t i = 0; i < total_; ++i) {
      if (hashes_[i] == 0) continue;
      next = std::max(next, hashes_[i] >> (32 - bits));
      hashes[next] = hashes_[i];
      new (&slots[next++]) Slot{std::move(slots_[i])};
    }
    destroy(hashes_.get(), slots_, total_);
    hashes_ = std::move(hashes);
    slots_ = slots;
    total_ = total;
    bits_ = bits;
    ++version_;
  }
  /// Behind the last entry in arrays with so many bits.
  [[nodiscard]] std::uint32_t endOf(std::uint32_t bits) const {
    std::uint32_t next = 0;
    for (std::uint32_t i = 0; i < total_; ++i)
      if (hashes_[i] != 0) next = std::max(next, hashes_[i] >> (32 - bits)) + 1;
    return next;
  }

  /// The tail takes what runs over the last bucket; more than this only if hashes fall together.
  /// Most sets hold one entry or a few: theirs is no
  /// longer than the worst case needs.
  static std::uint32_t totalOf(std::uint32_t bits) {
    if (bits <= 2) return (1U << bits) + 2 * (bits - 1);
    return (1U << bits) + 4 + 2 * bits;
  }

  void release() {
    destroy(hashes_.get(), std::exchange(slots_, nullptr), std::exchange(total_, 0));
    hashes_.reset();
    bits_ = 0;
  }

  static Slot* allocate(std::uint32_t total) {
    return static_cast<Slot*>(
        ::operator new (total * sizeof(Slot), std::align_val_t{alignof(Slot)}));
  }
  static void destroy(const std::uint32_t* hashes, Slot* slots, std::uint32_t total) {
    if (slots == nullptr) return;
    for (std::uint32_t i = 0; i < total; ++i)
      if (hashes[i] != 0) slots[i].~Slot();
    ::operator delete (slots, std::align_val_t{alignof(Slot)});
  }

  std::unique_ptr<std::uint32_t[]> hashes_;
  Slot* slots_ = nullptr;
  std::uint32_t size_ = 0;
  std::uint32_t total_ = 0;
  std::uint32_t bits_ = 0;
  std::uint32_t version_ = 0;
};

}  // namespace Vesk
