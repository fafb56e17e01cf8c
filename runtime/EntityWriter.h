// Writes a shared table through to its files, as the one process that may.
// Owns: the claim on each file, from the beginning on, rows or not.
// Reads: every change of the entity, at any depth, before any machine hears of it.
// Writes: the rows; a write to the entity is in its file when the write returns. A file that is
// full grows. A row for which there is no room, since the file has grown to its limit or the file
// system is full, waits here; the first one is reported, and all are written when there is room
// again. Caveat: readers that sleep are woken by wakeReaders only, so that a batch costs one
// wake-up.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/RowFile.h"
#include "runtime/TreeObserver.h"
#include "runtime/shm/TableWaiter.h"
#include "runtime/shm/TableWriter.h"

namespace VeskSharedMem {

class EntityWriter final : public Vesk::TreeObserver {
 public:
  /// Claims all files, and makes those that are not there. Throws TableError for a file of another
  /// layout or one that a living process has claimed; nothing is claimed then.
  EntityWriter(std::string path, const std::vector<RowFile>& files);

  /// Enters the rows of the files into the entity. A row without its parent, left by a process that
  /// died, goes, and so does one that cannot be read.
  void load(Vesk::Entity& entity);
  /// Writes through from here on.
  void begin(const Ombra::Ptr<Vesk::Entity>& entity) { rootIs(entity); }
  /// Marks one row of a collection damaged in its file, or writes it anew.
  void markRow(const Vesk::Entity& holder, const Vesk::FieldInfo& field, std::string_view key,
               bool corrupt);
  /// Files that others have removed, replaced or cut short are told, made anew and filled.
  void mendFiles();
  /// Adds the files whose loss has to be noticed.
  void addTo(TableWaiter::Watched& watched) const;
  /// The end of a batch. Rows that wait are tried again.
  void wakeReaders();
  /// The writer's name comes off the files.
  void signOff();

 private:
  struct OwnFile {
    const RowFile* layout;
    std::unique_ptr<TableWriter> writer;
    bool isDirty = false;    ///< readers have not been woken since its last change
    bool isRefused = false;  ///< it was lost, and what lies in its place cannot be used
    std::map<std::string, std::string> waiting;  ///< rows that the file has no room for
  };

  void valueChanged(const Node& node, const Vesk::FieldInfo& field, std::string_view key) override;
  void entityCame(const Node& node) override;
  void entityWent(const Node& node) override;

  /// The file of a node's attribute, or of the node itself if `field` is null.
  [[nodiscard]] OwnFile* findFile(const Node& node, const Vesk::FieldInfo* field);
  [[nodiscard]] OwnFile& fileOf(const Node& node, const Vesk::FieldInfo* field);
  void put(OwnFile& file, const std::string& key, const std::string& value);
  /// False, and a reason, if there is no room.
  bool tryPut(OwnFile& file, const std::string& key, const std::string& value, bool mayGrow,
              std::string& reason);
  void writeWaiting(OwnFile& file);
  void erase(OwnFile& file, const std::string& key);
  void changed(OwnFile& file);
  void putValues(const Node& node);
  void putContent(const Node& node);
  void eraseContent(const Node& node);

  std::string path_;
  std::vector<OwnFile> files_;
  bool isDirty_ = false;
  bool hasWaiting_ = false;
  // Of the row that is being written; kept for their memory.
  std::string key_;
  std::string value_;
};

}  // namespace VeskSharedMem
