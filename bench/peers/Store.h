// A keyed table that outlives its process and that several processes open, as each candidate has
// it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bench/peers/Rows.h"

namespace Peers {

struct ScanResult {
  std::size_t rows = 0;
  std::uint64_t versions = 0;  ///< the sum over all rows
};

/// One process's view of a store. Failures throw std::runtime_error.
class Store {
 public:
  Store() = default;
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;
  virtual ~Store() = default;

  virtual void put(const RowKey& key, std::uint64_t version) = 0;
  virtual void erase(const RowKey& key) = 0;
  /// Ends a transaction that is open; a transaction is full by itself after StoreKind::batch rows.
  virtual void commit() {}
  /// The bytes of the value. False if the key is missing.
  virtual bool get(const RowKey& key, ValueBytes& value) = 0;
  virtual ScanResult scan() = 0;
  /// Verifies as much as this kind of store can, beyond what opening it has done; throws if it is
  /// damaged.
  virtual void verify() {}
  /// What the rows take of the file, with all that finding them needs.
  [[nodiscard]] virtual std::size_t bytesUsed() = 0;
  /// True if a dead process still holds the lock, which is then taken from it by force.
  virtual bool seizeLock() { return false; }
};

enum class Role { writer, reader };

struct StoreKind {
  std::string name;
  bool isOurs;
  std::size_t batch;  ///< rows of one transaction
  /// Opens the store of a directory. A writer makes it if it is not there, for `capacity` rows.
  std::function<std::unique_ptr<Store>(const std::string& directory, Role, std::size_t capacity)>
      open;
};

/// A row of a shared table, written to the file directly.
StoreKind sharedTable();
/// The same table through an attribute of a mounted entity, which keeps a map of its own.
StoreKind sharedAttribute();
StoreKind lmdb(std::size_t batch);
StoreKind interprocessMap();
StoreKind sqlite();

/// All of the above.
[[nodiscard]] std::vector<StoreKind> storeKinds();

}  // namespace Peers
