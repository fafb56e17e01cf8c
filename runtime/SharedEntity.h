// One shared table of this process: an entity at a path, and its role towards the files.
// A writer has claimed the files and writes through; a follower takes up what another process
// writes. The entity stays the same object when the role changes.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/EntityFollower.h"
#include "runtime/EntityWriter.h"
#include "runtime/RowFile.h"

namespace VeskSharedMem {

class SharedEntity {
 public:
  enum class Mount { no, toRead, toWrite };

  /// Neither follows nor writes yet. Throws TableError for an unknown type.
  SharedEntity(const std::string& directory, const std::string& path, std::string_view typeName,
               const std::vector<CollectionSize>& sizes);

  [[nodiscard]] const Ombra::Ptr<Vesk::Entity>& entity() const { return entity_; }
  [[nodiscard]] Mount mounted() const { return mounted_; }
  void mountedIs(Mount mounted) { mounted_ = mounted; }
  /// True if the entity is this table's or one below it.
  [[nodiscard]] bool holds(const Vesk::Entity& entity) const;

  [[nodiscard]] bool isWriter() const { return writer_ != nullptr; }
  /// Becomes the writer. Throws TableError, and stays what it was, if a file has another layout or
  /// a living process has claimed it.
  void claim();
  /// Follows whoever writes; a claim is given up. Throws TableError for a file of another layout.
  void follow();
  /// Null while it writes.
  [[nodiscard]] EntityFollower* follower() { return follower_.get(); }
  /// Null while it follows.
  [[nodiscard]] EntityWriter* writer() { return writer_.get(); }

 private:
  std::string path_;
  Ombra::Ptr<Vesk::Entity> entity_;
  std::vector<RowFile> files_;
  std::unique_ptr<EntityWriter> writer_;
  std::unique_ptr<EntityFollower> follower_;
  Mount mounted_ = Mount::no;
};

}  // namespace VeskSharedMem
