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
#include "host/print/RecordJson.h"
#include "runtime/Reflect.h"

namespace Host {
namespace {

using Vesk::FieldInfo;
using Vesk::FieldKind;
using Vesk::RecordType;
using Vesk::ValueType;

/// What its bytes are: "21 bytes: u32 qualifier, Pavlin::IpGenAddr vtep".
std::string layoutText(const ValueType& type) {
  std::string text = fmt::format("{} byte{}", type.byteSize(), type.byteSize() == 1 ? "" : "s");
  for (const auto& member : type.fields())
    text += fmt::format("{}{}{} {}", &member == &type.fields().front() ? ": " : ", ",
                        member.isKey ? "key " : "", member.type->name(), member.name);
  if (type.fields().empty()) text += fmt::format(", {}", type.form());
  for (const auto& known : type.enumerators())
    text += fmt::format("{}{} {}", &known == &type.enumerators().front() ? ": " : ", ",
                        known.number, known.name);
  return text;
}

std::string typeText(const FieldInfo& field) {
  switch (field.kind) {
    case FieldKind::value:
      return field.valueType->name();
    case FieldKind::reference:
    case FieldKind::instance:
      return fmt::format("{}{}", field.targetType().name(), field.isConst ? " const" : "");
    case FieldKind::valueSet:
      return field.keyType->name();
    case FieldKind::valueMap:
      return fmt::format("{} -> {}", field.keyType->name(), field.valueType->name());
    case FieldKind::instanceMap:
      return fmt::format("{} -> {}", field.keyType->name(), field.targetType().name());
  }
  return {};
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
               field->capacity == 0 ? "" : fmt::format("  (sized for {} rows)", field->capacity));
  for (const ValueType* values : valueTypesOf(type))
    if (values->byteSize() != 0)
      fmt::print("  {}\n", style.in(Ink::faint, values->name() + ": " + layoutText(*values)));
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
    list.push_back(recordJson(*type));
  fmt::print("{}\n", jsonText(list, 2));
  return 0;
}

}  // namespace Host
