#include "host/play/Shown.h"

#include <fmt/format.h>

#include "host/print/EntityTable.h"

namespace Host {

Shown showFound(const Found& found, const Address& address, const Style& style) {
  const EntityTable table(style);
  Shown shown{address.text(), {}, nullptr};
  const AddressStep* last = address.steps.empty() ? nullptr : &address.steps.back();
  if (address.entityType() != nullptr) {
    if (!found.entity) {
      shown.table = "      null\n";
    } else {
      shown.table = table.entity(*found.entity, 6);
      shown.value = entityJson(*found.entity);
    }
    return shown;
  }
  if (!found.holder || (last->key && !last->field->has(*found.holder, *last->key))) {
    shown.table = "      absent\n";
    return shown;
  }
  if (!last->key && address.members.empty()) {
    shown.table = table.field(*found.holder, *last->field, 6);
    shown.value = fieldJson(*found.holder, *last->field);
    return shown;
  }
  if (last->field->kind == Vesk::FieldKind::valueSet) {
    shown.table = "      present\n";
    shown.value = true;
    return shown;
  }
  const Vesk::ValueType* type = last->field->valueType;
  std::string bytes =
      last->key ? last->field->get(*found.holder, *last->key) : last->field->get(*found.holder);
  for (const std::size_t index : address.members) {
    bytes = type->split(bytes)[index];
    type = type->fields()[index].type;
  }
  shown.table = fmt::format("      {}\n", type->text(bytes, false));
  shown.value = valueJson(*type, bytes);
  return shown;
}

Shown show(const World& world, const Address& address, const Style& style) {
  return showFound(world.find(address), address, style);
}

}  // namespace Host
