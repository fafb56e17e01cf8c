#include "host/print/EntityJson.h"

#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "runtime/Dir.h"
#include "runtime/SharedMem.h"
#include "runtime/StateDatabase.h"

namespace Host {
namespace {

using Vesk::FieldInfo;
using Vesk::FieldKind;
using Vesk::ValueType;

bool isDecimal(std::string_view text) {
  return !text.empty() && text.size() < 20 &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// A type whose values print as decimals, told by its default.
bool isNumeric(const ValueType& type) {
  return type.name() == "seconds" || isDecimal(type.text(type.defaultBytes()));
}

std::string keyText(const FieldInfo& field, std::string_view key) {
  // A lone text needs no quotes as a member name.
  if (field.keyType->name() == "string") return Vesk::fromBytes<std::string>(key);
  return field.keyType->text(key);
}

std::string pathBelow(const Vesk::Dir& dir, const std::string& above, const Vesk::Entity* wanted) {
  for (const auto& entry : dir.entryStateIterator()) {
    if (!entry.value) continue;
    const std::string path = above.empty() ? entry.key : above + "/" + entry.key;
    if (entry.value.get() == wanted) return path;
    if (const auto* below = dynamic_cast<const Vesk::Dir*>(entry.value.get()))
      if (std::string found = pathBelow(*below, path, wanted); !found.empty()) return found;
  }
  return {};
}

}  // namespace

std::string referenceText(const Vesk::Entity* target) {
  if (target == nullptr) return "null";
  const auto& type = target->recordType();
  if (const FieldInfo* key = type.keyField())
    return fmt::format("{}[{}]", type.name(), key->valueType->text(key->get(*target)));
  if (std::string path = pathBelow(*Halden::StateDatabase::instance().root(), {}, target);
      !path.empty())
    return path;
  if (auto* manager = VeskSharedMem::EntityManager::getEntityManager({}, false))
    if (std::string path = manager->pathOf(*target); !path.empty()) return path;
  return std::string(type.name());
}

Json valueJson(const ValueType& type, std::string_view bytes, bool withKey) {
  const auto& members = type.fields();
  const auto isShown = [&](const ValueType::Field& member) { return withKey || !member.isKey; };
  const auto shown = std::count_if(members.begin(), members.end(), isShown);
  if (members.empty()) {
    const std::string text = type.text(bytes);
    if (type.name() == "bool") return text == "true";
    if (type.name() == "string") return Vesk::fromBytes<std::string>(bytes);
    if (isNumeric(type)) {
      const Json number = Json::parse(text, nullptr, false);
      if (number.is_number()) return number;
    }
    return text == "\"\"" ? "" : text;
  }
  const std::vector<std::string> parts = type.split(bytes);
  Json object = Json::object();
  for (std::size_t i = 0; i < members.size(); ++i) {
    if (!isShown(members[i])) continue;
    Json value = valueJson(*members[i].type, parts[i], true);
    if (shown == 1 && !withKey) return value;
    object[members[i].name] = std::move(value);
  }
  return object;
}

Json entryJson(const Vesk::Entity& entity, const FieldInfo& field, std::string_view key) {
  switch (field.kind) {
    case FieldKind::valueMap:
      return field.corrupt(entity, key) ? Json("(corrupt)")
                                        : valueJson(*field.valueType, field.get(entity, key));
    case FieldKind::instanceMap: {
      const auto child = field.child(entity, key);
      return child ? entityJson(*child) : Json(nullptr);
    }
    default:
      return field.corrupt(entity, key) ? Json("(corrupt)") : Json(true);
  }
}

Json fieldJson(const Vesk::Entity& entity, const FieldInfo& field) {
  switch (field.kind) {
    case FieldKind::value:
      return valueJson(*field.valueType, field.get(entity), true);
    case FieldKind::reference: {
      const auto target = field.child(entity);
      return target ? Json(referenceText(target.get())) : Json(nullptr);
    }
    case FieldKind::instance: {
      const auto child = field.child(entity);
      return child ? entityJson(*child) : Json(nullptr);
    }
    case FieldKind::valueSet: {
      Json members = Json::array();
      for (const std::string& key : field.keys(entity))
        members.push_back(valueJson(*field.keyType, key, true).is_structured()
                              ? Json(field.keyType->text(key))
                              : valueJson(*field.keyType, key, true));
      return members;
    }
    case FieldKind::valueMap:
    case FieldKind::instanceMap:
      break;
  }
  Json entries = Json::object();
  for (const std::string& key : field.keys(entity))
    entries[keyText(field, key)] = entryJson(entity, field, key);
  return entries;
}

Json entityJson(const Vesk::Entity& entity) {
  const auto* dir = dynamic_cast<const Vesk::Dir*>(&entity);
  if (dir != nullptr) return fieldJson(entity, *entity.recordType().fields().front());
  Json object = Json::object();
  for (const FieldInfo* field : entity.recordType().fields())
    object[std::string(field->name)] = fieldJson(entity, *field);
  return object;
}

std::string jsonText(const Json& document, int indent) {
  return document.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace Host
