// Who reads and who writes what: the machines of the agent, the paths under which they meet the
// rest of the system, and the records that they share among themselves.
// Owns: the list that the program carries, host/Wiring.inc. It is noted while every scenario is
// played (see play/WiringNotes.h) and made anew by `make graph`; a test plays them again and
// compares.
#pragma once

#include <compare>
#include <span>
#include <string>
#include <string_view>

namespace Host {

enum class Wire { reads, writes };
[[nodiscard]] constexpr std::string_view wireText(Wire wire) {
  return wire == Wire::reads ? "reads" : "writes";
}

struct WiringFact {
  std::string_view machine;  ///< type name
  Wire wire = Wire::reads;
  /// A mount path, or the type of a record or machine of the agent's own.
  std::string_view end;

  [[nodiscard]] bool isMount() const { return end.find("::") == std::string_view::npos; }
  auto operator<=>(const WiringFact&) const = default;
};

/// In order of machine, wire and end.
[[nodiscard]] std::span<const WiringFact> wiring();
/// The facts as DOT text, for graphviz: what lies within a machine or record stands with it, and an
/// edge points the way that the state flows.
[[nodiscard]] std::string dotOf(std::span<const WiringFact> facts);
/// The machines of each mount of the agent as a table; one row for those that differ in the family
/// or the client only.
[[nodiscard]] std::string markdownOf(std::span<const WiringFact> facts);

}  // namespace Host
