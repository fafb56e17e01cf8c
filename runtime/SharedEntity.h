// One shared table: an entity, and the files that hold its rows.
// Every collection of the record, at any depth, has a file of fixed-size rows. A row's key is the
// keys on the way to it, one after the other; its value is the map's value, for a collection of
// entities the entity's plain attributes, for a set nothing. Plain attributes of the record itself
// are the one row of the file "<path>.values". Files are named
// <directory>/<path>.<attribute>[.<attribute>...].table and made at the first row. A parent's row
// comes before those of its children and goes after them, so a row without its parent is a leftover
// of a process that died.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/SharedMem.h"
#include "runtime/TreeObserver.h"
#include "runtime/shm/TableWriter.h"

namespace VeskSharedMem {

/// The rows of one collection: where its file is and how its rows look.
struct RowFile {
  std::string file;
  std::vector<const Vesk::FieldInfo*>
      chain;  ///< from the root record to this collection; empty for the root's values
  std::vector<const Vesk::FieldInfo*> values;  ///< plain attributes in the row, of an entity
  TableShape shape;
  std::unique_ptr<TableWriter> writer;  ///< null until the first row
};

/// The files of a record type below a path, parents before children; what a reader in another
/// process needs to know.
[[nodiscard]] std::vector<RowFile> rowFilesOf(
    const std::string& directory, const std::string& path, const Vesk::RecordType& type,
    const std::vector<VeskBriskel::CollectionInfo>& sizes = {});
/// Enters one row of a file into an entity of the type that the file belongs to; false if its
/// parent is not there, or if it is damaged so far that its key does not read. A damaged value that
/// does not read is entered as the default one, under its mark.
bool applyRow(Vesk::Entity& root, const RowFile& file, std::string_view key, std::string_view value,
              bool corrupt);

class SharedEntity final : public Vesk::TreeObserver {
 public:
  /// Opens what is there. Throws TableError for an unknown type or a file of another layout.
  SharedEntity(const std::string& directory, const std::string& path, std::string_view typeName,
               const std::vector<VeskBriskel::CollectionInfo>& sizes);
  static bool hasFiles(const std::string& directory, const std::string& path,
                       std::string_view typeName);

  [[nodiscard]] const Ombra::Ptr<Vesk::Entity>& entity() const { return entity_; }
  [[nodiscard]] bool mounted() const { return mounted_; }
  void mountedIs(bool mounted) { mounted_ = mounted; }
  /// True if the entity is this table's or one below it.
  [[nodiscard]] bool holds(const Vesk::Entity& entity) const;
  /// Marks one row of a collection damaged in its file, or writes it anew.
  void markRow(const Vesk::Entity& holder, const Vesk::FieldInfo& field, std::string_view key,
               bool corrupt = true);

 private:
  void valueChanged(const Node& node, const Vesk::FieldInfo& field, std::string_view key) override;
  void entityCame(const Node& node) override;
  void entityWent(const Node& node) override;

  void load();
  /// The file of a node's attribute, or of the node itself if `field` is null.
  [[nodiscard]] RowFile* findFile(const Node& node, const Vesk::FieldInfo* field);
  [[nodiscard]] RowFile& fileOf(const Node& node, const Vesk::FieldInfo* field);
  void put(RowFile& file, const std::string& key, const std::string& value);
  void erase(RowFile& file, const std::string& key);
  void putValues(const Node& node);
  void putContent(const Node& node);
  void eraseContent(const Node& node);

  std::string path_;
  Ombra::Ptr<Vesk::Entity> entity_;
  std::vector<RowFile> files_;
  bool mounted_ = false;
};

}  // namespace VeskSharedMem
