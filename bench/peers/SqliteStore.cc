// SQLite with a write-ahead log that is never synced, a row a transaction, every statement
// prepared.
#include <sqlite3.h>
#include <stdexcept>
#include <utility>

#include "bench/peers/Store.h"

namespace Peers {
namespace {

class SqliteStore final : public Store {
 public:
  SqliteStore(const std::string& file, Role role) {
    constexpr int mayCreate = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    require(sqlite3_open_v2(file.c_str(), &database_,
                            role == Role::reader ? SQLITE_OPEN_READONLY : mayCreate, nullptr));
    require(sqlite3_busy_timeout(database_, 1000));
    if (role == Role::writer) {
      run("PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF;"
          "CREATE TABLE IF NOT EXISTS rows(key BLOB PRIMARY KEY, value BLOB) WITHOUT ROWID;");
      put_ = prepare(
          "INSERT INTO rows VALUES(?,?) ON CONFLICT(key) DO UPDATE SET value=excluded.value");
      erase_ = prepare("DELETE FROM rows WHERE key=?");
    }
    get_ = prepare("SELECT value FROM rows WHERE key=?");
    scan_ = prepare("SELECT key, value FROM rows");
  }
  ~SqliteStore() override {
    for (sqlite3_stmt* statement : {put_, erase_, get_, scan_})
      sqlite3_finalize(statement);
    sqlite3_close(database_);
  }

  void put(const RowKey& key, std::uint64_t version) override {
    const ValueBytes value = valueBytes(routeValue(version));
    bind(put_, 1, key.bytes);
    bind(put_, 2, value);
    finish(put_);
  }
  void erase(const RowKey& key) override {
    bind(erase_, 1, key.bytes);
    finish(erase_);
  }
  bool get(const RowKey& key, ValueBytes& value) override {
    bind(get_, 1, key.bytes);
    const bool isThere = hasRow(get_);
    if (isThere) copyValue(get_, 0, value);
    require(sqlite3_reset(get_));
    return isThere;
  }
  ScanResult scan() override {
    ScanResult result;
    while (hasRow(scan_)) {
      ++result.rows;
      result.versions += versionOf(sqlite3_column_blob(scan_, 1));
    }
    require(sqlite3_reset(scan_));
    return result;
  }
  void verify() override {
    sqlite3_stmt* check = prepare("PRAGMA integrity_check");
    const bool isSound =
        hasRow(check) &&
        std::string(reinterpret_cast<const char*>(sqlite3_column_text(check, 0))) == "ok";
    sqlite3_finalize(check);
    if (!isSound) throw std::runtime_error("sqlite: the database is damaged");
  }
  std::size_t bytesUsed() override {
    run("PRAGMA wal_checkpoint(TRUNCATE)");
    return number("PRAGMA page_count") * number("PRAGMA page_size");
  }

 private:
  void require(int result) const {
    if (result != SQLITE_OK)
      throw std::runtime_error(std::string("sqlite: ") + sqlite3_errmsg(database_));
  }
  void run(const char* text) { require(sqlite3_exec(database_, text, nullptr, nullptr, nullptr)); }
  sqlite3_stmt* prepare(const char* text) {
    sqlite3_stmt* statement = nullptr;
    require(
        sqlite3_prepare_v3(database_, text, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr));
    return statement;
  }
  template <class Bytes>
  void bind(sqlite3_stmt* statement, int place, const Bytes& bytes) {
    require(sqlite3_bind_blob(statement, place, bytes.data(), static_cast<int>(bytes.size()),
                              SQLITE_STATIC));
  }
  bool hasRow(sqlite3_stmt* statement) {
    const int result = sqlite3_step(statement);
    if (result != SQLITE_ROW && result != SQLITE_DONE) require(result);
    return result == SQLITE_ROW;
  }
  void finish(sqlite3_stmt* statement) {
    hasRow(statement);
    require(sqlite3_reset(statement));
  }
  static void copyValue(sqlite3_stmt* statement, int column, ValueBytes& value) {
    if (sqlite3_column_bytes(statement, column) != static_cast<int>(value.size()))
      throw std::runtime_error("sqlite: a value of another size");
    std::memcpy(value.data(), sqlite3_column_blob(statement, column), value.size());
  }
  std::size_t number(const char* pragma) {
    sqlite3_stmt* statement = prepare(pragma);
    const std::size_t result =
        hasRow(statement) ? static_cast<std::size_t>(sqlite3_column_int64(statement, 0)) : 0;
    sqlite3_finalize(statement);
    return result;
  }

  sqlite3* database_ = nullptr;
  sqlite3_stmt* put_ = nullptr;
  sqlite3_stmt* erase_ = nullptr;
  sqlite3_stmt* get_ = nullptr;
  sqlite3_stmt* scan_ = nullptr;
};

}  // namespace

StoreKind sqlite() {
  return {"SQLite, a row a transaction", false, 1,
          [](const std::string& directory, Role role, std::size_t) -> std::unique_ptr<Store> {
            return std::make_unique<SqliteStore>(directory + "/rows.db", role);
          }};
}

}  // namespace Peers
