// How the entities of a shared table lie in files of fixed-size rows.
// Every collection of the record, at any depth, has a file. A row's key is the keys on the way to
// it, one after the other; its value is the map's value, for a collection of entities the entity's
// plain attributes, for a set nothing. Plain attributes of the record itself are the one row of the
// file "<path>.values". Files are named <directory>/<path>.<attribute>[.<attribute>...].table and
// made by the first writer. A parent's row comes before those of its children and goes after them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/Reflect.h"
#include "runtime/shm/TableReader.h"

namespace VeskSharedMem {

/// Sizes one collection of a table.
struct CollectionSize {
  std::string name;
  std::uint32_t maxEntries;
};

/// The rows of one collection: where its file is and how its rows look.
struct RowFile {
  std::string file;
  std::vector<const Vesk::FieldInfo*>
      chain;  ///< from the root record to this collection; empty for the root's values
  std::vector<const Vesk::FieldInfo*> values;  ///< plain attributes in the row, of an entity
  TableShape shape;                            ///< its capacity is where a new file begins
  std::uint32_t limit = 1;                     ///< of rows, to which the file may grow

  /// The layout in words, of which the signature in a file's header is the hash.
  [[nodiscard]] std::string layoutText() const;
  /// Of its rows, from the root: ".vlan.group", or ".values".
  [[nodiscard]] std::string name() const;
  /// A row's key as messages name it: "[10][239.1.1.1]".
  [[nodiscard]] std::string keyText(std::string_view key) const;
  /// The plain attributes of an entity, as they stand in its row.
  [[nodiscard]] std::string valuesOf(const Vesk::Entity& entity) const;
};

/// How far a table may grow beyond the size that is stated for it; 16 times unless a host says
/// otherwise. For tables that are mounted from then on.
void rowLimitFactorIs(std::uint32_t factor);
/// The limit of each file of one table, in rows.
void rowLimitIs(const std::string& path, std::uint32_t rows);

/// The key of the one row of a record's own values.
inline const std::string rootKey(1, '\0');

/// The files of a record type below a path, parents before children; what a reader in another
/// process needs to know. `sizes` are capacities of the record's own collections.
[[nodiscard]] std::vector<RowFile> rowFilesOf(const std::string& directory, const std::string& path,
                                              const Vesk::RecordType& type,
                                              const std::vector<CollectionSize>& sizes = {});

/// A reader of one collection's file. The capacity is the writer's choice; another meaning of the
/// bytes is a TableError.
[[nodiscard]] std::unique_ptr<TableReader> readerOf(const std::string& file,
                                                    const TableShape& expected);

enum class Applied {
  done,
  orphan,      ///< its parent is not there
  unreadable,  ///< damaged so far that its key, or the values of an entity, do not read
};
/// Enters one row of a file into an entity of the type that the file belongs to. An entity appears
/// with its values. Bytes that are no values of their types count as damage: the row is entered
/// with the default value, under its mark.
Applied applyRow(Vesk::Entity& root, const RowFile& file, std::string_view key,
                 std::string_view value, bool corrupt);
/// Takes a row out again; no effect if it is not there.
void removeRow(Vesk::Entity& root, const RowFile& file, std::string_view key);

}  // namespace VeskSharedMem
