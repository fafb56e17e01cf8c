// Addresses of records and attributes, resolved against the record types before anything runs.
// Owns: nothing but the parsed steps. Reads: the reflection of the records and the table of mount
// paths. Two roots exist: a mount path (`bridging/vlan/status:vlanStatus[10]`), and the agent
// (`agent.afContainer[ipv4]`). Caveat: an address says what would stand there; whether it does is
// asked of the World.
#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/Reflect.h"

namespace Host {

/// An address or key that does not resolve; the reader of the file adds the place.
class AddressError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One attribute on the way, with the key where the address names an entry.
struct AddressStep {
  const Vesk::FieldInfo* field;
  std::optional<std::string> key;

  /// True if what stands behind this step is an entity, not a value or a whole collection.
  [[nodiscard]] bool leadsToEntity() const {
    return field->holdsEntities() && (key.has_value() || !field->isCollection());
  }
};

class Address {
 public:
  /// Throws AddressError.
  static Address parse(std::string_view text);

  bool inProcess = false;  ///< below the agent
  bool shared = false;     ///< a shared table, not the state database
  std::string path;        ///< mount path, empty for the agent
  const Vesk::RecordType* rootType = nullptr;
  std::vector<AddressStep> steps;
  std::vector<std::size_t> members;  ///< into a composite value, by index

  /// The type of the entity that it names, or null if it names something within an entity.
  [[nodiscard]] const Vesk::RecordType* entityType() const;
  /// The type of the value that it names, after the members; null for entities, collections and
  /// members of sets.
  [[nodiscard]] const Vesk::ValueType* valueType() const;
  /// One spelling for all addresses of the same thing.
  [[nodiscard]] std::string text() const;
};

/// Builds the text of what lies below an address, step by step.
class AddressText {
 public:
  explicit AddressText(const Address& address);
  AddressText(std::string text, bool isPath) : text_(std::move(text)), isPath_(isPath) {}
  [[nodiscard]] AddressText child(const Vesk::FieldInfo& field,
                                  std::optional<std::string_view> key) const;
  /// From a whole collection, which this is the address of, to one of its entries.
  [[nodiscard]] AddressText entry(const Vesk::FieldInfo& field, std::string_view key) const;
  [[nodiscard]] const std::string& text() const { return text_; }
  /// True for an entity of a directory or a mounted record: attributes follow after a colon.
  [[nodiscard]] bool isPath() const { return isPath_; }

 private:
  std::string text_;
  bool isPath_;
};

/// Type, store and role of a path: of the table of mounts, of something below a directory in it, or
/// of a directory above.
struct PathInfo {
  const Vesk::RecordType* type;
  bool shared;
  bool fixed;  ///< stands for itself: a mount path or a directory above one, not an entry that
               ///< somebody adds
};
[[nodiscard]] std::optional<PathInfo> pathInfo(std::string_view path);

/// True for the attribute in which a directory keeps its entries.
[[nodiscard]] bool isDirectoryField(const Vesk::FieldInfo& field);
/// True for an attribute that the directory or the mount fills in from the path.
[[nodiscard]] bool isIdentity(const Vesk::FieldInfo& field);

/// The bytes of a value from its text; what does not read, or is refused by a checked type, is an
/// AddressError.
[[nodiscard]] std::string bytesOfText(const Vesk::ValueType& type, std::string_view text);
/// The same for a row, whose text leaves out its key members.
[[nodiscard]] std::string rowBytesOfText(const Vesk::ValueType& type, std::string_view text);
/// The value that an attribute has in a fresh entity of the type.
[[nodiscard]] std::string initialValue(const Vesk::RecordType& type, const Vesk::FieldInfo& field);
/// A fresh entity to read where nobody has written anything; null if the type cannot be made.
[[nodiscard]] Ombra::Ptr<Vesk::Entity> blankEntity(const Vesk::RecordType& type);

}  // namespace Host
