#include "host/print/RecordJson.h"

#include <algorithm>
#include <set>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "runtime/RowFile.h"

namespace Host {
namespace {

using Vesk::FieldInfo;
using Vesk::RecordType;
using Vesk::ValueType;

/// Goes through the value types of a record and of the entities in it, each once.
class ValueTypes {
 public:
  std::vector<const ValueType*> found;

  void ofRecord(const RecordType& type) {
    if (!records_.insert(&type).second) return;
    for (const FieldInfo* field : type.fields()) {
      for (const ValueType* values : {field->keyType, field->valueType})
        if (values != nullptr) add(*values);
      if (field->owns()) ofRecord(field->targetType());
    }
  }

 private:
  void add(const ValueType& type) {
    if (std::find(found.begin(), found.end(), &type) != found.end()) return;
    for (const auto& member : type.fields())
      add(*member.type);
    found.push_back(&type);
  }
  std::set<const RecordType*> records_;
};

Json valueTypeJson(const ValueType& type) {
  Json json{{"form", type.form()}, {"size", type.byteSize()}};
  for (const auto& member : type.fields())
    json["members"].push_back(
        {{"name", member.name}, {"type", member.type->name()}, {"key", member.isKey}});
  for (const auto& known : type.enumerators())
    json["enumerators"][std::string(known.name)] = known.number;
  return json;
}

Json filesJson(const Corvane::MountPath& mount) {
  std::vector<VeskSharedMem::CollectionSize> sizes;
  if (const auto* info = std::get_if<VeskBriskel::MountInfo>(&mount.info))
    sizes = info->collections();
  Json files = Json::array();
  for (const auto& rows : VeskSharedMem::rowFilesOf({}, mount.path, *mount.recordType(), sizes)) {
    Json key = Json::array();
    Json value = Json::array();
    for (const FieldInfo* field : rows.chain)
      key.push_back({{"collection", field->name}, {"type", field->keyType->name()}});
    if (!rows.chain.empty() && rows.chain.back()->kind == Vesk::FieldKind::valueMap)
      value.push_back(
          {{"name", rows.chain.back()->name}, {"type", rows.chain.back()->valueType->name()}});
    for (const FieldInfo* field : rows.values)
      value.push_back({{"name", field->name}, {"type", field->valueType->name()}});
    files.push_back(
        {{"file", rows.file.substr(1)},  // below the directory of the tables
         {"kind", rows.chain.empty() ? "values" : Vesk::kindText(rows.chain.back()->kind)},
         {"key", std::move(key)},
         {"value", std::move(value)},
         {"keySize", rows.shape.keySize},
         {"valueSize", rows.shape.valueSize},
         {"capacity", rows.shape.capacity},
         {"limit", rows.limit},
         {"layout", rows.layoutText()},
         {"signature", fmt::format("{:016x}", rows.shape.signature)}});
  }
  return files;
}

Json mountJson(const Corvane::MountPath& mount) {
  Json json{
      {"path", mount.path}, {"store", storeText(mount.store())}, {"access", accessText(mount)}};
  if (mount.condition != Corvane::Condition::always)
    json["condition"] = Corvane::conditionText(mount.condition);
  json["readBy"] = machinesAt(mount, Wire::reads);
  json["writtenBy"] = machinesAt(mount, Wire::writes);
  if (mount.store() != Corvane::Store::stateDb) json["files"] = filesJson(mount);
  return json;
}

}  // namespace

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

std::vector<std::string_view> machinesAt(const Corvane::MountPath& mount, Wire wire) {
  std::vector<std::string_view> machines;
  for (const WiringFact& fact : wiring())
    if (fact.end == mount.path && fact.wire == wire) machines.push_back(fact.machine);
  return machines;
}

std::vector<const ValueType*> valueTypesOf(const RecordType& type) {
  ValueTypes types;
  types.ofRecord(type);
  return types.found;
}

Json recordJson(const RecordType& type) {
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
  Json valueTypes = Json::object();
  for (const ValueType* values : valueTypesOf(type))
    valueTypes[values->name()] = valueTypeJson(*values);
  Json mounts = Json::array();
  for (const auto& mount : Corvane::mountCatalog())
    if (mount.type == type.name()) mounts.push_back(mountJson(mount));
  return {{"type", type.name()},
          {"machine", type.isMachine()},
          {"attributes", std::move(attributes)},
          {"valueTypes", std::move(valueTypes)},
          {"mounts", std::move(mounts)}};
}

}  // namespace Host
