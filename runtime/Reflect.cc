#include "runtime/Reflect.h"

#include <algorithm>
#include <map>

#include "runtime/Assert.h"

namespace Vesk {
namespace {

[[noreturn]] void unfit(const FieldInfo& field, std::string_view operation) {
  Ombra::fatal(fmt::format("attribute {} ({}) has no operation '{}'", field.name,
                           kindText(field.kind), operation));
}

using TypeFunction = const RecordType& (*)();

std::map<std::string_view, TypeFunction>& registry() {
  static std::map<std::string_view, TypeFunction> types;
  return types;
}

}  // namespace

bool ValueType::hasKey() const {
  return std::any_of(fields_.begin(), fields_.end(), [](const Field& f) { return f.isKey; });
}

std::string_view kindText(FieldKind kind) {
  switch (kind) {
    case FieldKind::value:
      return "value";
    case FieldKind::reference:
      return "reference";
    case FieldKind::instance:
      return "instance";
    case FieldKind::valueMap:
      return "map";
    case FieldKind::valueSet:
      return "set";
    case FieldKind::instanceMap:
      return "entities";
  }
  return "?";
}

std::string FieldInfo::get(const Entity&) const {
  unfit(*this, "get");
}
void FieldInfo::set(Entity&, std::string_view) const {
  unfit(*this, "set");
}
std::size_t FieldInfo::count(const Entity&) const {
  unfit(*this, "count");
}
std::vector<std::string> FieldInfo::keys(const Entity&) const {
  unfit(*this, "keys");
}
bool FieldInfo::has(const Entity&, std::string_view) const {
  unfit(*this, "has");
}
void FieldInfo::del(Entity&, std::string_view) const {
  unfit(*this, "del");
}
void FieldInfo::reset(Entity&) const {
  unfit(*this, "reset");
}
std::string FieldInfo::get(const Entity&, std::string_view) const {
  unfit(*this, "get by key");
}
bool FieldInfo::find(const Entity&, std::string_view, std::string&) const {
  unfit(*this, "find");
}
void FieldInfo::set(Entity&, std::string_view, std::string_view) const {
  unfit(*this, "set by key");
}
void FieldInfo::add(Entity&, std::string_view) const {
  unfit(*this, "add");
}
Ombra::Ptr<Entity> FieldInfo::child(const Entity&) const {
  unfit(*this, "child");
}
Ombra::Ptr<Entity> FieldInfo::child(const Entity&, std::string_view) const {
  unfit(*this, "child by key");
}
bool FieldInfo::adopt(Entity&, std::string_view, const Ombra::Ptr<Entity>&) const {
  return false;
}
void FieldInfo::forEachChild(const Entity&,
                             const std::function<void(std::string_view, Entity&)>&) const {}
std::string FieldInfo::keyBytes(const void*) const {
  unfit(*this, "key");
}
bool FieldInfo::corruptIs(Entity&, std::string_view, bool) const {
  return false;
}
bool FieldInfo::corrupt(const Entity&, std::string_view) const {
  return false;
}

const FieldInfo* RecordType::field(std::string_view name) const {
  for (const FieldInfo* f : fields_)
    if (f->name == name) return f;
  return nullptr;
}

const FieldInfo* RecordType::keyField() const {
  for (const FieldInfo* f : fields_)
    if (f->isKey) return f;
  return nullptr;
}

const RecordType* RecordType::find(std::string_view name) {
  const auto it = registry().find(name);
  return it == registry().end() ? nullptr : &it->second();
}

std::vector<const RecordType*> RecordType::all() {
  std::vector<const RecordType*> types;
  for (const auto& [name, type] : registry())
    types.push_back(&type());
  return types;
}

RecordRegistration::RecordRegistration(std::string_view name, const RecordType& (*type)()) {
  registry().emplace(name, type);
}

}  // namespace Vesk
