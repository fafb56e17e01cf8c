// Follows shared records in their files while another process writes them, or when none does any
// more.
// Owns: a reader for each file that is there, and the rows as they were told last. Writes: nothing,
// and claims nothing.
// Tells: first what is there, then every difference between what was told and what is, in order of
// the changes of each file. Caveats: a row that changed twice between two looks is told once; an
// entity comes before what it holds, and when it goes, it is one line, whatever it held.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/SharedAddresses.h"
#include "host/print/EntityJson.h"
#include "runtime/RowFile.h"
#include "runtime/shm/RowFollower.h"
#include "runtime/shm/TableWaiter.h"

namespace Host {

struct RowChange {
  enum class Kind { value, added, removed };
  std::string address;
  Kind kind;
  std::string text;  ///< of a value, as scenarios spell it
  Json value;
};

class TableFollower {
 public:
  using Sink = std::function<void(const RowChange&)>;
  TableFollower(std::string directory, std::vector<Address> addresses, Sink sink);

  /// Opens files that came, lets go of files that are gone, and goes on with those that took the
  /// place of others. Once before the first look, and then a file that is refused is a TableError;
  /// `wait` does it from then on, and such a file is told on standard error, once, and looked at
  /// again when it has changed.
  void findFiles();
  /// Tells what has changed. What lies within an entity that seems about to go is held back for a
  /// moment, unless this is the end.
  void tellChanges(bool isEnd);
  /// Returns early when there is something to tell, or something to hold back no longer.
  void wait(std::chrono::milliseconds timeout);

 private:
  using Clock = std::chrono::steady_clock;
  struct Content {
    std::string bytes;
    bool isCorrupt;
    bool operator==(const Content&) const = default;
  };
  struct Row {
    std::optional<Content> now;
    std::optional<Content> told;
    std::optional<Clock::time_point> heldSince;
  };
  /// One file: a collection of a record, or the record's own values.
  struct Table {
    std::string path;
    const Vesk::RecordType* type;  ///< whose attributes stand in the rows, null if they are values
    VeskSharedMem::RowFile layout;
    Table* parent = nullptr;
    std::vector<Table*> children;
    std::unique_ptr<VeskSharedMem::RowFollower> follower;
    bool isRefused = false;
    std::map<std::string, Row> rows;   ///< by key, so that what an entity holds stands together
    std::vector<std::string> touched;  ///< keys to look at, in order of change
  };
  /// What of a row was asked for.
  struct Scope {
    bool isOnWay = false;  ///< something of it or below it
    bool isWhole = false;
    std::vector<const Vesk::FieldInfo*> attributes;
  };

  void addTables(const Address& address);
  [[nodiscard]] Scope scopeOf(const Table& table, const std::string* key) const;
  void letGo(Table& table);
  void takeUp(Table& table);
  void enter(Table& table, std::string key, VeskSharedMem::RowState state, std::string_view bytes);
  void settle(Table& table, const std::string& key, bool isEnd);
  void forgetBelow(Table& table, const std::string& key);
  void settleBelow(Table& table, const std::string& key);

  void tell(const Table& table, const std::string& key, const Content* before,
            const Content* after) const;
  void tellAttributes(const Table& table, const Scope& scope, const AddressText& at,
                      const Content* before, const Content* after) const;
  void tellValue(const AddressText& at, const Vesk::ValueType& type, const Content& content) const;
  void say(const AddressText& at, RowChange::Kind kind) const;

  std::string directory_;
  std::vector<Address> addresses_;
  Sink sink_;
  std::vector<std::unique_ptr<Table>> tables_;  ///< parents before children
  VeskSharedMem::TableWaiter waiter_;
  bool hasLooked_ = false;
};

}  // namespace Host
