// What a scenario says about a thing: the patch of a write, or the pattern of an expectation.
// Owns: the tree of statements with keys and values as bytes. Reads: YAML nodes, against the record
// types. Everything that could be wrong in a text is found while it is read; applying and matching
// meet typed bytes only.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/play/Address.h"

namespace YAML {
class Node;
}

namespace Host {

class YamlFile;

struct Content {
  enum class Kind {
    absent,      ///< null: delete, reset, or not there
    present,     ///< there, whatever it holds: a member of a set, or {} for a value
    value,       ///< `bytes`
    row,         ///< some members of a composite value
    entity,      ///< some attributes of an entity, or entries of a directory
    collection,  ///< some entries
    text,        ///< the printed form of a reference
  };
  Content();  // in the source file: lists of this very struct need it to be complete

  Kind kind = Kind::absent;
  bool whole = false;   ///< an entity that is filled first and appears at once
  bool isList = false;  ///< a set given as a list: exactly these, when matched
  std::string said;     ///< what the scenario wrote
  std::string bytes;
  std::vector<std::pair<std::size_t, Content>> row;                ///< by index of the member
  std::vector<std::pair<const Vesk::FieldInfo*, Content>> fields;  ///< in order of writing
  std::vector<std::pair<std::string, Content>> entries;            ///< by bytes of the key
};

/// What a text stands for.
enum class Use { write, match };

class ContentReader {
 public:
  ContentReader(const YamlFile& file, Use use) : file_(file), use_(use) {}
  /// The statement about whatever stands at an address.
  [[nodiscard]] Content at(const Address& address, const YAML::Node& node) const;
  /// Reads an address; `node` is the place of complaints.
  [[nodiscard]] Address address(const YAML::Node& node) const;

 private:
  [[nodiscard]] Content entity(const Vesk::RecordType& type, const std::string& path,
                               const std::string* key, const YAML::Node& node) const;
  [[nodiscard]] Content field(const Vesk::FieldInfo& field, const std::string& path,
                              const std::string* key, const YAML::Node& node) const;
  [[nodiscard]] Content entry(const Vesk::FieldInfo& field, const std::string& path,
                              const std::string& key, const YAML::Node& node) const;
  [[nodiscard]] Content value(const Vesk::ValueType& type, const YAML::Node& node) const;
  [[nodiscard]] Content member(const YAML::Node& node) const;
  [[nodiscard]] std::string key(const Vesk::FieldInfo& field, const YAML::Node& node) const;
  [[nodiscard]] static Content start(const YAML::Node& node);

  const YamlFile& file_;
  Use use_;
};

/// The bytes of a row after a patch of some of its members.
[[nodiscard]] std::string mergedRow(const Vesk::ValueType& type, const std::string& bytes,
                                    const Content& patch);

}  // namespace Host
