// Sleeps until one of many tables changes, or a file comes to one of many paths or goes.
// Owns: threads that wait on the tables' wake words, up to 127 tables each, and do nothing else; an
// inotify instance for the directories. The logic stays in the thread that calls `wait`.
// Reads: journal heads, through the readers that it is given. Writes: the two words about sleeping.
// Caveat: a writer that is killed between a change and its wake-up wakes nobody: sleep with a
// timeout. Tables whose wake word this process may not write are looked at every few milliseconds.
#pragma once

#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "runtime/shm/TableFile.h"
#include "runtime/shm/TableReader.h"

namespace VeskSharedMem {

class TableWaiter {
 public:
  struct Table {
    const TableReader* reader;
    TableCursor cursor;
  };
  struct Watched {
    std::vector<Table> tables;
    std::vector<std::string> paths;  ///< of files, there or not
  };
  enum class Woken { byTable, byFile, byTimeout, bySignal };

  TableWaiter();
  ~TableWaiter();
  TableWaiter(const TableWaiter&) = delete;
  TableWaiter& operator=(const TableWaiter&) = delete;

  /// Returns at once if a table has moved on from its cursor, and `byFile` if a directory has not
  /// been watched until now: what came to it before, nobody has told.
  Woken wait(const Watched& watched, std::chrono::milliseconds timeout);

 private:
  class Sleeper;

  /// True if one of the directories was not watched yet.
  bool watchDirectories(const std::vector<std::string>& paths);
  /// True if files came or went.
  bool drainArrivals();
  void arm(const std::vector<TableReader::Bell>& bells);

  FileDescriptor rung_;                ///< an eventfd that the sleepers write to
  FileDescriptor arrivals_;            ///< inotify
  std::vector<std::string> paths_;     ///< whose directories are watched
  std::set<std::string> directories_;  ///< empty if they have to be looked at anew
  std::vector<std::unique_ptr<Sleeper>> sleepers_;
};

}  // namespace VeskSharedMem
