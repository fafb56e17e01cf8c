#include "runtime/Dir.h"

namespace Vesk {

Ombra::Ptr<Entity> Dir::createEntity(std::string_view type, const std::string& name) {
  if (const auto present = entityPtr(name)) return present;
  const RecordType* recordType = RecordType::find(type);
  if (recordType == nullptr || !recordType->canMake()) return nullptr;
  const FieldInfo* key = recordType->keyField();
  const auto made = recordType->make(key == nullptr ? std::string() : key->valueType->bytes(name));
  identityIs(*made, name);
  createEntity(made, name);
  return made;
}

void identityIs(Entity& entity, std::string_view path) {
  const RecordType& type = entity.recordType();
  if (const FieldInfo* name = type.field("name");
      name != nullptr && name->kind == FieldKind::value && !name->isKey)
    name->set(entity, name->valueType->bytes(quoted(path.substr(path.rfind('/') + 1))));
  const FieldInfo* af = type.field("af");
  if (af == nullptr || af->kind != FieldKind::value) return;
  for (std::string_view rest = path; !rest.empty();) {
    const std::string_view part = rest.substr(0, rest.find('/'));
    if (part == "ipv4" || part == "ipv6") af->set(entity, af->valueType->bytes(part));
    rest.remove_prefix(std::min(rest.size(), part.size() + 1));
  }
}

}  // namespace Vesk

VESK_REGISTER(Vesk::Dir)
