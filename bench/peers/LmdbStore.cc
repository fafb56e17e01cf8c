// LMDB, without any sync to disk and writing to its map directly: its quickest way that keeps a
// killed process harmless. Reads take part in a transaction like writes do: a new one each `batch`
// rows, so that a reader sees what was committed meanwhile.
#include <cstring>
#include <lmdb.h>
#include <stdexcept>
#include <utility>

#include "bench/peers/Store.h"

namespace Peers {
namespace {

void require(int result) {
  if (result != MDB_SUCCESS) throw std::runtime_error(std::string("lmdb: ") + mdb_strerror(result));
}

MDB_val bytesAt(const void* at, std::size_t size) {
  return {size, const_cast<void*>(at)};
}

class LmdbStore final : public Store {
 public:
  LmdbStore(const std::string& directory, Role role, std::size_t capacity, std::size_t batch)
      : batch_(batch), role_(role) {
    constexpr std::size_t leastMap = std::size_t{16} << 20;
    constexpr std::size_t mapBytesPerRow = 1024;
    require(mdb_env_create(&env_));
    require(mdb_env_set_mapsize(env_, leastMap + capacity * mapBytesPerRow));
    const unsigned flags = role == Role::reader ? MDB_RDONLY : MDB_NOSYNC | MDB_WRITEMAP;
    require(mdb_env_open(env_, directory.c_str(), flags, 0644));
    begin();
    require(mdb_dbi_open(txn_, nullptr, 0, &table_));
    if (role == Role::writer) commit();
  }
  ~LmdbStore() override {
    if (txn_ != nullptr) mdb_txn_abort(txn_);
    mdb_env_close(env_);
  }

  void put(const RowKey& key, std::uint64_t version) override {
    if (txn_ == nullptr) begin();
    const ValueBytes value = valueBytes(routeValue(version));
    MDB_val mdbKey = bytesAt(key.bytes.data(), key.bytes.size());
    MDB_val mdbValue = bytesAt(value.data(), value.size());
    require(mdb_put(txn_, table_, &mdbKey, &mdbValue, 0));
    step();
  }
  void erase(const RowKey& key) override {
    if (txn_ == nullptr) begin();
    MDB_val mdbKey = bytesAt(key.bytes.data(), key.bytes.size());
    const int result = mdb_del(txn_, table_, &mdbKey, nullptr);
    if (result != MDB_NOTFOUND) require(result);
    step();
  }
  void commit() override {
    if (txn_ == nullptr || role_ == Role::reader) return;
    require(mdb_txn_commit(std::exchange(txn_, nullptr)));
    used_ = 0;
  }
  bool get(const RowKey& key, ValueBytes& value) override {
    if (txn_ == nullptr) begin();
    if (role_ == Role::reader && used_++ == batch_) {
      renew();
      used_ = 1;
    }
    MDB_val mdbKey = bytesAt(key.bytes.data(), key.bytes.size());
    MDB_val found{};
    const int result = mdb_get(txn_, table_, &mdbKey, &found);
    if (result == MDB_NOTFOUND) return false;
    require(result);
    if (found.mv_size != value.size()) throw std::runtime_error("lmdb: a value of another size");
    std::memcpy(value.data(), found.mv_data, value.size());
    return true;
  }
  ScanResult scan() override {
    if (role_ == Role::reader) renew();
    if (txn_ == nullptr) begin();
    MDB_cursor* cursor = nullptr;
    require(mdb_cursor_open(txn_, table_, &cursor));
    ScanResult result;
    MDB_val key{};
    MDB_val value{};
    while (mdb_cursor_get(cursor, &key, &value, MDB_NEXT) == MDB_SUCCESS) {
      ++result.rows;
      result.versions += versionOf(value.mv_data);
    }
    mdb_cursor_close(cursor);
    commit();
    return result;
  }
  /// There are no checksums; all that can be done is to walk the tree.
  void verify() override { scan(); }
  std::size_t bytesUsed() override {
    MDB_envinfo info{};
    MDB_stat stat{};
    require(mdb_env_info(env_, &info));
    require(mdb_env_stat(env_, &stat));
    return (info.me_last_pgno + 1) * stat.ms_psize;
  }

 private:
  void begin() {
    require(mdb_txn_begin(env_, nullptr, role_ == Role::reader ? MDB_RDONLY : 0, &txn_));
    used_ = 0;
  }
  void renew() {
    mdb_txn_reset(txn_);
    require(mdb_txn_renew(txn_));
  }
  void step() {
    if (++used_ == batch_) commit();
  }

  std::size_t batch_;
  Role role_;
  MDB_env* env_ = nullptr;
  MDB_txn* txn_ = nullptr;
  MDB_dbi table_ = 0;
  std::size_t used_ = 0;
};

}  // namespace

StoreKind lmdb(std::size_t batch) {
  return {batch == 1 ? "LMDB, a row a transaction"
                     : "LMDB, " + std::to_string(batch) + " rows a transaction",
          false, batch,
          [batch](const std::string& directory, Role role,
                  std::size_t capacity) -> std::unique_ptr<Store> {
            return std::make_unique<LmdbStore>(directory, role, capacity, batch);
          }};
}

}  // namespace Peers
