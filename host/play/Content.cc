#include "host/play/Content.h"

#include <algorithm>

#include <fmt/format.h>

#include "host/play/YamlFile.h"
#include "runtime/Dir.h"

namespace Host {
namespace {

using Vesk::FieldInfo;
using Vesk::FieldKind;
using Vesk::RecordType;
using Vesk::ValueType;

/// The one member beside the key, or -1.
int bareMember(const ValueType& type) {
  int found = -1;
  for (std::size_t i = 0; i < type.fields().size(); ++i) {
    if (type.fields()[i].isKey) continue;
    if (found >= 0) return -1;
    found = static_cast<int>(i);
  }
  return found;
}

int memberIndex(const ValueType& type, const std::string& name) {
  for (std::size_t i = 0; i < type.fields().size(); ++i)
    if (type.fields()[i].name == name) return static_cast<int>(i);
  return -1;
}

bool isWhole(const YAML::Node& node) {
  return node.Tag() == "!whole";
}
/// `entry: !whole` without anything after it arrives as an empty text.
bool isEmptyMapping(const YAML::Node& node) {
  return (node.IsMap() && node.size() == 0) ||
         (isWhole(node) && (node.IsNull() || (node.IsScalar() && node.Scalar().empty())));
}

}  // namespace

Content::Content() = default;

Content ContentReader::start(const YAML::Node& node) {
  Content content;
  content.said = YamlFile::said(node);
  content.whole = isWhole(node);
  return content;
}

Address ContentReader::address(const YAML::Node& node) const {
  try {
    return Address::parse(file_.text(node, "an address"));
  } catch (const AddressError& error) {
    file_.fail(node, error.what());
  }
}

std::string ContentReader::key(const FieldInfo& field, const YAML::Node& node) const {
  try {
    return bytesOfText(*field.keyType,
                       node.IsNull() ? std::string("null") : file_.text(node, "a key"));
  } catch (const AddressError& error) {
    file_.fail(node, fmt::format("key of {}: {}", field.name, error.what()));
  }
}

Content ContentReader::at(const Address& address, const YAML::Node& node) const {
  const std::string& path = address.inProcess ? std::string() : address.path;
  if (address.steps.empty()) return entity(*address.rootType, path, nullptr, node);
  const AddressStep& last = address.steps.back();
  if (const ValueType* type = address.valueType()) {
    if (use_ == Use::write && last.field->isKey)
      file_.fail(node, "an entity's own key cannot be written");
    return value(*type, node);
  }
  return last.key ? entry(*last.field, path, *last.key, node)
                  : field(*last.field, path, nullptr, node);
}

Content ContentReader::entity(const RecordType& type, const std::string& path,
                              const std::string* ownKey, const YAML::Node& node) const {
  Content content = start(node);
  if (node.IsNull()) return content;
  content.kind = Content::Kind::entity;
  if (isEmptyMapping(node)) return content;
  if (!node.IsMap())
    file_.fail(node, fmt::format("{} takes a mapping of its attributes, not '{}'", type.name(),
                                 content.said));
  const bool isDirectory = &type == &Vesk::Dir::veskType() && !path.empty();
  file_.forEachPair(node, std::string(type.name()),
                    [&](const std::string& name, const YAML::Node& at, const YAML::Node& what) {
                      const FieldInfo* attribute = type.field(name);
                      if (attribute != nullptr) {
                        content.fields.emplace_back(attribute,
                                                    field(*attribute, path, ownKey, what));
                        return;
                      }
                      if (!isDirectory)
                        file_.fail(at, fmt::format("{} has no attribute '{}'", type.name(), name));
                      // The entries of a directory are named in it directly.
                      const FieldInfo* entries = type.fields().front();
                      if (content.fields.empty() || content.fields.back().first != entries) {
                        content.fields.emplace_back(entries, Content{});
                        content.fields.back().second.kind = Content::Kind::collection;
                      }
                      auto& held = content.fields.back().second.entries;
                      const std::string key = this->key(*entries, at);
                      held.emplace_back(key, entry(*entries, path, key, what));
                    });
  return content;
}

Content ContentReader::field(const FieldInfo& field, const std::string& path,
                             const std::string* ownKey, const YAML::Node& node) const {
  switch (field.kind) {
    case FieldKind::value: {
      Content content = value(*field.valueType, node);
      if (field.isKey && use_ == Use::write && (ownKey == nullptr || content.bytes != *ownKey))
        file_.fail(node, fmt::format("'{}' is not the key of this entry", content.said));
      return content;
    }
    case FieldKind::reference:
    case FieldKind::instance: {
      if (use_ == Use::match && node.IsScalar() && !isWhole(node)) {
        Content content = start(node);
        content.kind = Content::Kind::text;
        content.bytes = node.Scalar();
        return content;
      }
      return entity(field.targetType(), {}, nullptr, node);
    }
    case FieldKind::valueMap:
    case FieldKind::valueSet:
    case FieldKind::instanceMap:
      break;
  }
  Content content = start(node);
  if (node.IsNull()) return content;
  content.kind = Content::Kind::collection;
  if (node.IsSequence() && field.kind == FieldKind::valueSet) {
    content.isList = true;
    for (const auto& item : node) {
      content.entries.emplace_back(key(field, item), Content{});
      content.entries.back().second.kind = Content::Kind::present;
    }
    return content;
  }
  if (!node.IsMap())
    file_.fail(node,
               fmt::format("{} takes a mapping{}, not '{}'", field.name,
                           field.kind == FieldKind::valueSet ? " or a list" : " of its entries",
                           content.said));
  for (const auto& pair : node) {
    const std::string bytes = key(field, pair.first);
    const auto same = [&](const auto& entry) { return entry.first == bytes; };
    if (std::any_of(content.entries.begin(), content.entries.end(), same))
      file_.fail(pair.first, fmt::format("'{}' stands twice", YamlFile::said(pair.first)));
    content.entries.emplace_back(bytes, entry(field, path, bytes, pair.second));
  }
  return content;
}

Content ContentReader::entry(const FieldInfo& field, const std::string& path,
                             const std::string& key, const YAML::Node& node) const {
  if (field.kind == FieldKind::valueSet) return member(node);
  if (field.kind == FieldKind::valueMap) return value(*field.valueType, node);
  if (!isDirectoryField(field)) return entity(field.targetType(), {}, &key, node);
  std::string_view bytes = key;
  const std::string below = path + "/" + Vesk::fromBytes<std::string>(bytes);
  const auto info = pathInfo(below);
  if (!info) file_.fail(node, fmt::format("path '{}' is not known", below));
  return entity(*info->type, below, nullptr, node);
}

Content ContentReader::member(const YAML::Node& node) const {
  Content content = start(node);
  if (node.IsNull()) return content;
  if (!(node.IsScalar() && node.Scalar() == "true") && !isEmptyMapping(node))
    file_.fail(node, fmt::format("a member of a set is true or null, not '{}'", content.said));
  content.kind = Content::Kind::present;
  return content;
}

Content ContentReader::value(const ValueType& type, const YAML::Node& node) const {
  Content content = start(node);
  if (node.IsNull()) return content;
  if (node.IsScalar() && !(isWhole(node) && node.Scalar().empty())) {
    content.kind = Content::Kind::value;
    try {
      content.bytes = rowBytesOfText(type, node.Scalar());
    } catch (const AddressError& error) {
      file_.fail(node, error.what());
    }
    return content;
  }
  if (!node.IsMap() && !isEmptyMapping(node))
    file_.fail(node, fmt::format("{} takes a value, not '{}'", type.name(), content.said));
  const int bare = bareMember(type);
  const bool onlyKey = type.hasKey() && type.fields().size() == 1;
  if (isEmptyMapping(node)) {
    if (use_ == Use::write && !onlyKey)
      file_.fail(node, fmt::format("{} takes a value, not '{}'", type.name(), content.said));
    content.kind = onlyKey ? Content::Kind::row : Content::Kind::present;
    return content;
  }
  if (type.fields().empty())
    file_.fail(node, fmt::format("{} takes a value, not '{}'", type.name(), content.said));
  content.kind = Content::Kind::row;
  // The bare value of a row may itself be a composite that is written by its members.
  if (type.hasKey() && bare >= 0) {
    const auto& only = type.fields()[static_cast<std::size_t>(bare)];
    if (memberIndex(type, file_.text(node.begin()->first, "a member")) < 0 &&
        !only.type->fields().empty()) {
      content.row.emplace_back(static_cast<std::size_t>(bare), value(*only.type, node));
      return content;
    }
  }
  file_.forEachPair(node, type.name(),
                    [&](const std::string& name, const YAML::Node& at, const YAML::Node& what) {
                      const int index = memberIndex(type, name);
                      if (index < 0)
                        file_.fail(at, fmt::format("{} has no member '{}'", type.name(), name));
                      content.row.emplace_back(
                          static_cast<std::size_t>(index),
                          value(*type.fields()[static_cast<std::size_t>(index)].type, what));
                    });
  return content;
}

std::string mergedRow(const ValueType& type, const std::string& bytes, const Content& patch) {
  if (patch.kind == Content::Kind::value) return patch.bytes;
  if (patch.kind == Content::Kind::absent) return type.defaultBytes();
  std::vector<std::string> parts = type.split(bytes);
  const std::vector<std::string> defaults = type.split(type.defaultBytes());
  for (const auto& [index, member] : patch.row)
    parts[index] = member.kind == Content::Kind::absent
                       ? defaults[index]
                       : mergedRow(*type.fields()[index].type, parts[index], member);
  std::string merged;
  for (const std::string& part : parts)
    merged += part;
  return merged;
}

}  // namespace Host
