// Damaged rows of shared tables: found on a read, reported to the table, and never seen by the
// logic. A read that meets a damaged row yields the default value; an iteration ends there.
#pragma once

#include <functional>
#include <string>

namespace Vesk {
class Entity;
}

namespace VeskSharedMem {

/// Raises and catches the corruption inside this layer and reports it to the table that holds the
/// row. Always true.
bool damagedRow(const Vesk::Entity& holder, const std::string& keyText);

/// Stands in place of the key's text in a report of a row whose key, or whose entity, cannot be
/// read.
inline const std::string unreadableKey = "(unreadable)";

/// Reports something else that is wrong with the files of a table.
void tableFault(const std::string& path, const std::string& text);

/// Who hears of corruption and faults: path of the table, and the text.
using CorruptionSink = std::function<void(const std::string& table, const std::string& text)>;
void corruptionSinkIs(CorruptionSink sink);

}  // namespace VeskSharedMem
