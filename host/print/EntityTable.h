// Entities printed for people: aligned tables for maps, indentation for what is nested, short sets
// on one line. Reads: any entity, by reflection, in key order. Writes: a text; a damaged row is
// shown as such and not reported. Attributes of an entity that hold nothing are left out, and so is
// its own key, which stands above it.
#pragma once

#include <string>

#include "host/print/Style.h"
#include "runtime/Reflect.h"

namespace Host {

class EntityTable {
 public:
  explicit EntityTable(Style style) : style_(style) {}
  /// Everything about an entity, one line after the other, indented by so many blanks.
  [[nodiscard]] std::string entity(const Vesk::Entity& entity, std::size_t indent) const;
  /// One attribute; what fits on one line follows its name directly.
  [[nodiscard]] std::string field(const Vesk::Entity& entity, const Vesk::FieldInfo& field,
                                  std::size_t indent) const;

 private:
  [[nodiscard]] std::string entries(const Vesk::Entity& entity, const Vesk::FieldInfo& field,
                                    std::size_t indent) const;
  [[nodiscard]] std::string flatEntries(const Vesk::Entity& entity, const Vesk::FieldInfo& field,
                                        std::size_t indent) const;
  [[nodiscard]] std::string map(const Vesk::Entity& entity, const Vesk::FieldInfo& field,
                                std::size_t indent) const;
  [[nodiscard]] std::string set(const Vesk::Entity& entity, const Vesk::FieldInfo& field,
                                std::size_t indent) const;
  [[nodiscard]] std::string label(std::string_view name, std::size_t indent) const;
  Style style_;
};

}  // namespace Host
