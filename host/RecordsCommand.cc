#include <cstdio>
#include <iostream>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include "agent/MountCatalog.h"
#include "host/Commands.h"
#include "host/InputError.h"
#include "host/Wiring.h"
#include "host/print/EntityJson.h"
#include "runtime/Reflect.h"

namespace Host {
namespace {

using Vesk::FieldInfo;
using Vesk::FieldKind;
using Vesk::RecordType;
using Vesk::ValueType;

std::string_view storeText(Corvane::Store store) {
  switch (store) {
    case Corvane::Store::stateDb:
      return "state database";
    case Corvane::Store::briskel:
      return "briskel";
    case Corvane::Store::skarel:
      return "skarel";
  }
  return "?";
}

std::string_view accessText(const Corvane::MountPath& mount) {
  if (mount.mounting == Corvane::Mounting::never) return "not mounted";
  return mount.access == Corvane::Access::write ? "write" : "read";
}

/// The machines at one end of the wires of a mount.
std::vector<std::string_view> machinesAt(const Corvane::MountPath& mount, Wire wire) {
  std::vector<std::string_view> machines;
  for (const WiringFact& fact : wiring())
    if (fact.end == mount.path && fact.wire == wire) machines.push_back(fact.machine);
  return machines;
}

/// The type of an attribute's values, with the members of composites.
std::string valueText(const ValueType& type) {
  std::string text = type.name();
  if (type.fields().empty()) return text;
  text += " {";
  for (const auto& member : type.fields())
    text += fmt::format("{}{}{} {}", &member == &type.fields().front() ? "" : ", ",
                        member.isKey ? "key " : "", member.type->name(), member.name);
  return text + "}";
}

std::string typeText(const FieldInfo& field) {
  switch (field.kind) {
    case FieldKind::value:
      return valueText(*field.valueType);
    case FieldKind::reference:
    case FieldKind::instance:
      return fmt::format("{}{}", field.targetType().name(), field.isConst ? " const" : "");
    case FieldKind::valueSet:
      return valueText(*field.keyType);
    case FieldKind::valueMap:
      return fmt::format("{} -> {}", field.keyType->name(), valueText(*field.valueType));
    case FieldKind::instanceMap:
      return fmt::format("{} -> {}", field.keyType->name(), field.targetType().name());
  }
  return {};
}

Json typeJson(const RecordType& type) {
  Json attributes = Json::array();
  for (const FieldInfo* field : type.fields()) {
    Json attribute{{"name", field->name},
                   {"kind", field->isKey ? "key" : Vesk::kindText(field->kind)}};
    if (field->keyType != nullptr) attribute["keyType"] = field->keyType->name();
    if (field->valueType != nullptr) attribute["valueType"] = field->valueType->name();
    if (field->targetType != nullptr) attribute["targetType"] = field->targetType().name();
    if (field->capacity != 0) attribute["capacity"] = field->capacity;
    attributes.push_back(std::move(attribute));
  }
  Json mounts = Json::array();
  for (const auto& mount : Corvane::mountCatalog()) {
    if (mount.type != type.name()) continue;
    Json entry{
        {"path", mount.path}, {"store", storeText(mount.store())}, {"access", accessText(mount)}};
    if (mount.condition != Corvane::Condition::always)
      entry["condition"] = Corvane::conditionText(mount.condition);
    entry["readBy"] = machinesAt(mount, Wire::reads);
    entry["writtenBy"] = machinesAt(mount, Wire::writes);
    mounts.push_back(std::move(entry));
  }
  return {{"type", type.name()},
          {"machine", type.isMachine()},
          {"attributes", attributes},
          {"mounts", mounts}};
}

void printMount(const Corvane::MountPath& mount) {
  fmt::print("  at {}  ({}, {}{}{})\n", mount.path, storeText(mount.store()), accessText(mount),
             mount.condition == Corvane::Condition::always ? "" : "; ",
             Corvane::conditionText(mount.condition));
  for (const Wire wire : {Wire::reads, Wire::writes})
    if (const auto machines = machinesAt(mount, wire); !machines.empty())
      fmt::print("     {} by {}\n", wire == Wire::reads ? "read" : "written",
                 fmt::join(machines, ", "));
}

void printType(const RecordType& type, const Style& style) {
  fmt::print("{}{}\n", style.in(Ink::strong, type.name()),
             type.isMachine() ? style.in(Ink::faint, "  machine") : "");
  for (const auto& mount : Corvane::mountCatalog())
    if (mount.type == type.name()) printMount(mount);
  std::size_t nameWidth = 0;
  for (const FieldInfo* field : type.fields())
    nameWidth = std::max(nameWidth, field->name.size());
  for (const FieldInfo* field : type.fields())
    fmt::print("  {:<{}}  {:<9}  {}{}\n", field->name, nameWidth,
               field->isKey ? "key" : Vesk::kindText(field->kind), typeText(*field),
               field->capacity == 0 ? "" : fmt::format("  (at most {} rows)", field->capacity));
  fmt::print("\n");
}

}  // namespace

int recordsCommand(const std::string& name, Audience audience) {
  std::vector<const RecordType*> types;
  if (name.empty()) {
    types = RecordType::all();
  } else {
    const RecordType* type = RecordType::find(name);
    if (type == nullptr) type = RecordType::find(Corvane::typeNameOfPath(name));
    // The last part of a name is enough where it tells.
    for (const RecordType* candidate : RecordType::all())
      if (candidate->name().ends_with("::" + name) && type == nullptr) types.push_back(candidate);
    if (type != nullptr) types.push_back(type);
    if (types.empty()) throw InputError(fmt::format("no record type or path is called '{}'", name));
  }
  if (audience == Audience::people) {
    const Style style = Style::ofStandardOutput();
    for (const RecordType* type : types)
      printType(*type, style);
    return 0;
  }
  Json list = Json::array();
  for (const RecordType* type : types)
    list.push_back(typeJson(*type));
  fmt::print("{}\n", jsonText(list, 2));
  return 0;
}

}  // namespace Host
