// Entities and values as JSON and as one-line texts.
// Reads: any entity, by reflection. Writes: nothing; a damaged row is shown as such and not
// reported. Truth values and numbers become JSON's own, everything else text; references say what
// they point to and end there.
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "runtime/Reflect.h"

namespace Host {

using Json = nlohmann::ordered_json;

/// What a reference points to: "null", the type with its key, or the path of a published record.
[[nodiscard]] std::string referenceText(const Vesk::Entity* target);
/// A value without its key members; a row with several fields is an object.
[[nodiscard]] Json valueJson(const Vesk::ValueType& type, std::string_view bytes,
                             bool withKey = false);
/// One attribute, collections in key order.
[[nodiscard]] Json fieldJson(const Vesk::Entity& entity, const Vesk::FieldInfo& field);
[[nodiscard]] Json entityJson(const Vesk::Entity& entity);
/// One entry of a collection.
[[nodiscard]] Json entryJson(const Vesk::Entity& entity, const Vesk::FieldInfo& field,
                             std::string_view key);
/// The document as text, in lines with an indent. Bytes that are no UTF-8 are replaced.
[[nodiscard]] std::string jsonText(const Json& document, int indent = -1);

}  // namespace Host
