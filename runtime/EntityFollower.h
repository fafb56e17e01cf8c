// Keeps an entity as the files of a shared table have it, which another process writes.
// Owns: a follower for each file that is there, and the changes that are read and not yet applied.
// Reads: the files. Writes: the entity, one key at a time, so that reactors run per changed key; an
// entity before what it holds, and when it goes, it goes with what it holds.
// Runs: when asked to, in portions. Caveat: a table that changes faster than it is taken up shows
// its latest state, not each one in between.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "runtime/RowFile.h"
#include "runtime/shm/RowFollower.h"
#include "runtime/shm/TableWaiter.h"

namespace VeskSharedMem {

class EntityFollower {
 public:
  /// A file that is refused: its error, once until it is another file. The table goes without it.
  using Refusal = std::function<void(const TableError&)>;

  EntityFollower(Ombra::Ptr<Vesk::Entity> entity, const std::vector<RowFile>& files);

  /// Opens files that came, lets go of those that are gone, and goes on with those that took the
  /// place of others: a row that is in both has neither gone nor come.
  void findFiles(const Refusal& refused);
  /// For an entity that is as the files have it: what is there now is no news.
  void skipPresent();
  /// Applies what has changed until nothing is left (true) or `mustStop` says so (false).
  bool takeUp(const std::function<bool()>& mustStop);
  /// Adds what a wait for changes has to look at.
  void addTo(TableWaiter::Watched& watched) const;
  [[nodiscard]] bool hasChanges() const;

 private:
  struct OtherFile {
    const RowFile* layout;
    std::unique_ptr<RowFollower> follower;  ///< null while there is no such file
    bool isRefused = false;
    bool hasOrphans = false;  ///< rows whose parent was not there
  };
  struct Change {
    std::size_t file;
    RowState state;
    std::string key;
    std::string value;
  };

  /// Null if there is no such file. Throws TableError if there is another one.
  [[nodiscard]] static std::unique_ptr<TableReader> readerOf(const OtherFile& file);
  void letGo(std::size_t number);
  void readChanges();
  void apply(const Change& change);
  template <class F>
  void forEachBelow(const OtherFile& parent, F f);
  void takeInOrphans(const OtherFile& parent);

  Ombra::Ptr<Vesk::Entity> entity_;
  std::vector<OtherFile> files_;  ///< parents before children
  std::deque<Change> due_;
};

}  // namespace VeskSharedMem
