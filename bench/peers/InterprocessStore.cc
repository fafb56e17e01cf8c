// Boost.Interprocess: a hash map of Boost.Unordered in a mapped file, of its final size from the
// start, with the one lock that such a map needs taken for every row.
#include <chrono>
#include <stdexcept>
#include <thread>

#include <boost/interprocess/allocators/allocator.hpp>
#include <boost/interprocess/managed_mapped_file.hpp>
#include <boost/interprocess/sync/interprocess_mutex.hpp>
#include <boost/interprocess/sync/scoped_lock.hpp>
#include <boost/unordered_map.hpp>

#include "bench/peers/Store.h"
#include "runtime/shm/TableLayout.h"

namespace Peers {
namespace {

namespace bip = boost::interprocess;

/// The hash of our own tables, so that this does not make the difference.
struct BytesHash {
  std::size_t operator()(const KeyBytes& key) const {
    return VeskSharedMem::hashBytes(key.data(), key.size());
  }
};

using Mutex = bip::interprocess_mutex;
using Entry = std::pair<const KeyBytes, ValueBytes>;
using Allocator = bip::allocator<Entry, bip::managed_mapped_file::segment_manager>;
using Map =
    boost::unordered_map<KeyBytes, ValueBytes, BytesHash, std::equal_to<KeyBytes>, Allocator>;

class InterprocessStore final : public Store {
 public:
  InterprocessStore(const std::string& file, Role role, std::size_t capacity)
      : segment_(role == Role::reader
                     ? bip::managed_mapped_file(bip::open_only, file.c_str())
                     : bip::managed_mapped_file(bip::open_or_create, file.c_str(),
                                                leastBytes + capacity * bytesPerRow)),
        mutex_(segment_.find_or_construct<Mutex>("mutex")()),
        map_(segment_.find_or_construct<Map>("map")(capacity, BytesHash(),
                                                    std::equal_to<KeyBytes>(),
                                                    Allocator(segment_.get_segment_manager()))) {}

  void put(const RowKey& key, std::uint64_t version) override {
    const bip::scoped_lock<Mutex> lock(*mutex_);
    map_->insert_or_assign(key.bytes, valueBytes(routeValue(version)));
  }
  void erase(const RowKey& key) override {
    const bip::scoped_lock<Mutex> lock(*mutex_);
    map_->erase(key.bytes);
  }
  bool get(const RowKey& key, ValueBytes& value) override {
    const bip::scoped_lock<Mutex> lock(*mutex_);
    const auto found = map_->find(key.bytes);
    if (found == map_->end()) return false;
    value = found->second;
    return true;
  }
  ScanResult scan() override {
    const bip::scoped_lock<Mutex> lock(*mutex_);
    ScanResult result;
    for (const Entry& entry : *map_) {
      ++result.rows;
      result.versions += versionOf(entry.second.data());
    }
    return result;
  }
  void verify() override {
    if (!segment_.check_sanity()) throw std::runtime_error("interprocess: the segment is damaged");
    if (scan().rows != map_->size()) throw std::runtime_error("interprocess: rows are lost");
  }
  std::size_t bytesUsed() override { return segment_.get_size() - segment_.get_free_memory(); }
  bool seizeLock() override {
    using namespace std::chrono_literals;
    for (int attempt = 0; attempt < 20; ++attempt) {
      if (mutex_->try_lock()) {
        mutex_->unlock();
        return false;
      }
      std::this_thread::sleep_for(1ms);
    }
    new (mutex_) Mutex;
    return true;
  }

 private:
  static constexpr std::size_t leastBytes = std::size_t{1} << 20;
  static constexpr std::size_t bytesPerRow = 160;

  bip::managed_mapped_file segment_;
  Mutex* mutex_;
  Map* map_;
};

}  // namespace

StoreKind interprocessMap() {
  return {
      "Boost.Interprocess, lock a row", false, 1,
      [](const std::string& directory, Role role, std::size_t capacity) -> std::unique_ptr<Store> {
        return std::make_unique<InterprocessStore>(directory + "/segment", role, capacity);
      }};
}

}  // namespace Peers
