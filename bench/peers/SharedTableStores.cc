// Our own tables: by their file, and through an attribute.
#include <filesystem>
#include <stdexcept>

#include "bench/peers/Store.h"
#include "runtime/Record.h"
#include "runtime/SharedMem.h"
#include "runtime/shm/TableReader.h"
#include "runtime/shm/TableWriter.h"

namespace Peers {

class RouteTable : public Vesk::Entity {
  VESK_LOCAL_RECORD(Peers::RouteTable)
  VESK_SHARED_MAP(RouteKey, RouteValue, route, 131072)
};

namespace {

using VeskSharedMem::EntityManager;
using VeskSharedMem::RowState;
using VeskSharedMem::TableReader;
using VeskSharedMem::TableWriter;

VeskSharedMem::TableShape shapeFor(std::size_t capacity) {
  return {.keySize = sizeof(KeyBytes),
          .valueSize = sizeof(ValueBytes),
          .capacity = static_cast<std::uint32_t>(capacity)};
}

class WrittenTable final : public Store {
 public:
  WrittenTable(const std::string& file, std::size_t capacity)
      : writer_(TableWriter::open(file, shapeFor(capacity))) {}
  void put(const RowKey& key, std::uint64_t version) override {
    const ValueBytes value = valueBytes(routeValue(version));
    if (writer_->put(key.bytes.data(), value.data()) == TableWriter::Put::full)
      throw std::runtime_error(writer_->path() + ": full");
  }
  void erase(const RowKey& key) override { writer_->erase(key.bytes.data()); }
  bool get(const RowKey& key, ValueBytes& value) override {
    return writer_->find(key.bytes.data(), value.data()) == RowState::live;
  }
  ScanResult scan() override {
    ScanResult result;
    writer_->forEach([&](const std::byte*, const std::byte* value, bool corrupt) {
      if (corrupt) throw std::runtime_error(writer_->path() + ": a corrupt row");
      ++result.rows;
      result.versions += versionOf(value);
    });
    return result;
  }
  std::size_t bytesUsed() override { return std::filesystem::file_size(writer_->path()); }

 private:
  std::unique_ptr<TableWriter> writer_;
};

class ReadTable final : public Store {
 public:
  explicit ReadTable(const std::string& file) : reader_(TableReader::openAny(file)) {}
  void put(const RowKey&, std::uint64_t) override { refuse(); }
  void erase(const RowKey&) override { refuse(); }
  bool get(const RowKey& key, ValueBytes& value) override {
    return reader_->find(key.bytes.data(), value.data()) == RowState::live;
  }
  ScanResult scan() override {
    ScanResult result;
    reader_->forEach([&](std::uint32_t, const std::byte*, const std::byte* value, bool) {
      ++result.rows;
      result.versions += versionOf(value);
    });
    return result;
  }
  std::size_t bytesUsed() override { return std::filesystem::file_size(reader_->path()); }

 private:
  [[noreturn]] void refuse() const { throw std::runtime_error(reader_->path() + ": read only"); }
  std::unique_ptr<TableReader> reader_;
};

/// The process has one entity manager, so there is at most one of these at a time.
class WrittenAttribute final : public Store {
 public:
  explicit WrittenAttribute(const std::string& directory) {
    EntityManager::directoryIs(directory);
    table_ = boost::static_pointer_cast<RouteTable>(
        EntityManager::getEntityManager()->open("routes", RouteTable::veskName));
  }
  ~WrittenAttribute() override {
    table_ = nullptr;
    EntityManager::forgetProcess();
  }
  static std::string file(const std::string& directory) {
    return directory + "/routes.route.table";
  }
  void put(const RowKey& key, std::uint64_t version) override {
    table_->routeIs(key.route, routeValue(version));
  }
  void erase(const RowKey& key) override { table_->routeDel(key.route); }
  bool get(const RowKey& key, ValueBytes& value) override {
    if (!table_->routeHas(key.route)) return false;
    value = valueBytes(table_->route(key.route));
    return true;
  }
  ScanResult scan() override {
    ScanResult result;
    for (const auto& entry : table_->routeIterator()) {
      ++result.rows;
      result.versions += entry.value.version;
    }
    return result;
  }
  std::size_t bytesUsed() override {
    return std::filesystem::file_size(file(EntityManager::directory()));
  }

 private:
  Ombra::Ptr<RouteTable> table_;
};

}  // namespace

StoreKind sharedTable() {
  return {
      "shared table", true, 1,
      [](const std::string& directory, Role role, std::size_t capacity) -> std::unique_ptr<Store> {
        const std::string file = directory + "/rows.table";
        if (role == Role::reader) return std::make_unique<ReadTable>(file);
        return std::make_unique<WrittenTable>(file, capacity);
      }};
}

StoreKind sharedAttribute() {
  return {"shared table, by attribute", true, 1,
          [](const std::string& directory, Role role, std::size_t) -> std::unique_ptr<Store> {
            if (role == Role::reader)
              return std::make_unique<ReadTable>(WrittenAttribute::file(directory));
            return std::make_unique<WrittenAttribute>(directory);
          }};
}

}  // namespace Peers
