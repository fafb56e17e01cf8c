#include "host/play/Matcher.h"

#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/print/EntityJson.h"
#include "runtime/Corruption.h"
#include "runtime/Dir.h"

namespace Host {
namespace {

using Vesk::Entity;
using Vesk::FieldInfo;
using Vesk::FieldKind;
using Vesk::ValueType;
using Kind = Content::Kind;

constexpr std::size_t longestFound = 400;

std::string shortened(std::string text) {
  if (text.size() > longestFound) text.replace(longestFound, std::string::npos, " ...");
  return text;
}

bool isInitial(const Entity& entity, const FieldInfo& field) {
  switch (field.kind) {
    case FieldKind::value:
      return field.get(entity) == initialValue(entity.recordType(), field);
    case FieldKind::reference:
    case FieldKind::instance:
      return field.child(entity) == nullptr;
    default:
      return field.count(entity) == 0;
  }
}

bool isBlank(const Entity& entity) {
  const auto& fields = entity.recordType().fields();
  return std::all_of(fields.begin(), fields.end(), [&](const FieldInfo* field) {
    return isIdentity(*field) || isInitial(entity, *field);
  });
}

bool names(const Content& expected, const FieldInfo& field) {
  return std::any_of(expected.fields.begin(), expected.fields.end(),
                     [&](const auto& named) { return named.first->name == field.name; });
}

}  // namespace

std::vector<Failure> Matcher::compare(const World& world, const Address& address,
                                      const Content& expected) {
  failures_.clear();
  const Found found = world.find(address);
  if (address.entityType() != nullptr) {
    const AddressText at(address);
    const bool isMount =
        address.steps.empty() && !address.inProcess && pathInfo(address.path)->fixed;
    // A mounted record is always there; to be absent is to hold nothing.
    if (isMount && expected.kind == Kind::absent && found.entity && isBlank(*found.entity))
      return {};
    if (expected.kind == Kind::text) {
      const std::string text = referenceText(found.entity.get());
      if (text != expected.bytes) fail(at.text(), expected.said, text);
    } else {
      entity(found.entity.get(), at, expected);
    }
    return std::move(failures_);
  }
  const std::string text = address.text();
  if (!found.holder) {
    if (expected.kind != Kind::absent) fail(text, expected.said, "absent");
    return std::move(failures_);
  }
  const AddressStep& last = address.steps.back();
  const AddressText at(address);
  if (address.members.empty()) {
    if (last.key) {
      entry(*found.holder, *last.field, *last.key, at, expected);
    } else {
      field(*found.holder, *last.field, at, expected);
    }
    return std::move(failures_);
  }
  std::string bytes;
  if (last.key) {
    if (!last.field->has(*found.holder, *last.key)) {
      if (expected.kind != Kind::absent) fail(text, expected.said, "absent");
      return std::move(failures_);
    }
    bytes = last.field->get(*found.holder, *last.key);
  } else {
    bytes = last.field->get(*found.holder);
  }
  const ValueType* type = last.field->valueType;
  std::string initial = type->defaultBytes();
  for (const std::size_t index : address.members) {
    bytes = type->split(bytes)[index];
    initial = type->split(initial)[index];
    type = type->fields()[index].type;
  }
  value(*type, bytes, initial, text, expected);
  return std::move(failures_);
}

void Matcher::entity(const Entity* found, const AddressText& at, const Content& expected) {
  if (expected.kind == Kind::absent) {
    if (found != nullptr) fail(at.text(), "absent", jsonText(entityJson(*found)));
    return;
  }
  if (found == nullptr) return fail(at.text(), expected.said, "absent");
  for (const auto& [attribute, content] : expected.fields)
    field(*found, *attribute, at.child(*attribute, std::nullopt), content);
  if (exact_) nothingElse(*found, at, expected);
}

void Matcher::nothingElse(const Entity& found, const AddressText& at, const Content& expected) {
  for (const FieldInfo* attribute : found.recordType().fields()) {
    if (names(expected, *attribute) || attribute->isKey || (at.isPath() && isIdentity(*attribute)))
      continue;
    if (isInitial(found, *attribute)) continue;
    fail(at.child(*attribute, std::nullopt).text(), "nothing",
         jsonText(fieldJson(found, *attribute)));
  }
}

void Matcher::field(const Entity& holder, const FieldInfo& attribute, const AddressText& at,
                    const Content& expected) {
  switch (attribute.kind) {
    case FieldKind::value:
      return value(*attribute.valueType, attribute.get(holder),
                   initialValue(holder.recordType(), attribute), at.text(), expected);
    case FieldKind::reference:
    case FieldKind::instance: {
      const auto child = attribute.child(holder);
      if (expected.kind != Kind::text) return entity(child.get(), at, expected);
      const std::string text = referenceText(child.get());
      if (text != expected.bytes) fail(at.text(), expected.said, text);
      return;
    }
    default:
      break;
  }
  if (expected.kind == Kind::absent) {
    if (attribute.count(holder) != 0)
      fail(at.text(), "nothing", jsonText(fieldJson(holder, attribute)));
    return;
  }
  for (const auto& [key, content] : expected.entries)
    entry(holder, attribute, key, at.entry(attribute, key), content);
  if (!exact_ && !expected.isList) return;
  for (const std::string& key : attribute.keys(holder)) {
    const auto same = [&](const auto& named) { return named.first == key; };
    if (std::any_of(expected.entries.begin(), expected.entries.end(), same)) continue;
    fail(at.entry(attribute, key).text(), "absent", jsonText(entryJson(holder, attribute, key)));
  }
}

void Matcher::entry(const Entity& holder, const FieldInfo& attribute, const std::string& key,
                    const AddressText& at, const Content& expected) {
  const bool isThere = attribute.has(holder, key);
  switch (attribute.kind) {
    case FieldKind::instanceMap: {
      const auto child = isThere ? attribute.child(holder, key) : nullptr;
      return entity(child.get(), at, expected);
    }
    case FieldKind::valueSet: {
      const bool damaged = attribute.corrupt(holder, key) &&
                           VeskSharedMem::damagedRow(holder, attribute.keyType->text(key));
      const bool seen = isThere && !damaged;
      if (seen != (expected.kind == Kind::present))
        fail(at.text(), seen ? "absent" : "present", seen ? "present" : "absent");
      return;
    }
    default:
      break;
  }
  const std::string initial = attribute.valueType->defaultBytes();
  if (isThere && attribute.corrupt(holder, key)) {
    // Reading reports the damage and yields the default, as for a row that is not there.
    const std::string read = attribute.get(holder, key);
    if (expected.kind != Kind::absent)
      value(*attribute.valueType, read, initial, at.text(), expected);
    return;
  }
  if (!isThere) {
    if (expected.kind != Kind::absent) fail(at.text(), expected.said, "absent");
    return;
  }
  const std::string bytes = attribute.get(holder, key);
  if (expected.kind == Kind::absent)
    return fail(at.text(), "absent", jsonText(valueJson(*attribute.valueType, bytes)));
  value(*attribute.valueType, bytes, initial, at.text(), expected);
}

void Matcher::value(const ValueType& type, const std::string& bytes, const std::string& initial,
                    const std::string& at, const Content& expected) {
  switch (expected.kind) {
    case Kind::absent:
      if (bytes != initial)
        fail(at, fmt::format("{} (the default)", type.text(initial, false)),
             type.text(bytes, false));
      return;
    case Kind::value: {
      // Compared as texts without the key, which the address names already.
      if (type.hasKey() ? type.text(bytes, false) != type.text(expected.bytes, false)
                        : bytes != expected.bytes)
        fail(at, type.text(expected.bytes, false), type.text(bytes, false));
      return;
    }
    case Kind::row:
      break;
    default:
      return;
  }
  const auto parts = type.split(bytes);
  const auto initials = type.split(initial);
  for (const auto& [index, content] : expected.row) {
    const auto& member = type.fields()[index];
    value(*member.type, parts[index], initials[index], fmt::format("{}.{}", at, member.name),
          content);
  }
  if (!exact_) return;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const auto& member = type.fields()[i];
    const auto same = [&](const auto& named) { return named.first == i; };
    if (member.isKey || parts[i] == initials[i] ||
        std::any_of(expected.row.begin(), expected.row.end(), same))
      continue;
    fail(fmt::format("{}.{}", at, member.name), "nothing", member.type->text(parts[i]));
  }
}

void Matcher::fail(const std::string& at, const std::string& expected, std::string found) {
  failures_.push_back({at, expected, shortened(std::move(found))});
}

}  // namespace Host
