// Everything in an entity as text, for tests that compare two of them.
#pragma once

#include <string>

#include "runtime/Reflect.h"

namespace Vesk {

inline std::string dump(const Entity& entity) {
  std::string text;
  for (const auto* field : entity.recordType().fields()) {
    text += std::string(field->name) + "=";
    if (!field->isCollection()) text += field->valueType->text(field->get(entity));
    if (field->isCollection()) {
      for (const std::string& key : field->keys(entity)) {
        text += field->keyType->text(key) + ":";
        if (field->kind == FieldKind::valueMap)
          text += field->valueType->text(field->get(entity, key));
        if (field->owns()) text += "{" + dump(*field->child(entity, key)) + "}";
        text += ",";
      }
    }
    text += ";";
  }
  return text;
}

}  // namespace Vesk
