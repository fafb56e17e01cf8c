#include "host/Wiring.h"

#include <algorithm>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "agent/MountCatalog.h"

namespace Host {
namespace {

constexpr auto reads = Wire::reads;
constexpr auto writes = Wire::writes;
constexpr WiringFact facts[] = {
#include "host/Wiring.inc"
};

std::string_view withoutNamespace(std::string_view type) {
  const auto colon = type.rfind(':');
  return colon == std::string_view::npos ? type : type.substr(colon + 1);
}

/// Machines are made of machines: the outermost type around each type of the list.
class Outermost {
 public:
  explicit Outermost(std::span<const WiringFact> list) {
    for (const WiringFact& fact : list)
      machines_.insert(fact.machine);
  }
  [[nodiscard]] std::string_view of(std::string_view type) const {
    for (std::size_t at = type.find("::"); at != std::string_view::npos;
         at = type.find("::", at + 2))
      if (machines_.contains(type.substr(0, at))) return type.substr(0, at);
    return type;
  }

 private:
  std::set<std::string_view> machines_;
};

/// A path in lines of bearable length.
std::string pathLabel(std::string_view path) {
  constexpr std::size_t width = 28;
  std::string label;
  std::size_t used = 0;
  for (std::size_t at = 0; at < path.size();) {
    const std::size_t slash = path.find('/', at);
    const std::string_view part =
        path.substr(at, slash == std::string_view::npos ? slash : slash - at + 1);
    if (used != 0 && used + part.size() > width) {
      label += "\\l";
      used = 0;
    }
    label += part;
    used += part.size();
    at += part.size();
  }
  return label + "\\l";
}

/// Stands for all paths that differ in the family or the client only.
std::string patternOf(std::string_view path) {
  static const std::regex family("ipv[46]"), client("client[0-9]+"),
      other("^(ip|multicastIntfs)6?/");
  std::string pattern = std::regex_replace(std::string(path), family, "ipv*");
  pattern = std::regex_replace(pattern, client, "client*");
  return std::regex_replace(pattern, other, "$1*/");
}

/// Where a mount stands in the picture, and as what.
std::string mountNode(std::string_view path, std::string_view name) {
  const Corvane::MountPath* const mount = Corvane::findMountPath(path);
  const bool isShared = mount != nullptr && mount->store() != Corvane::Store::stateDb;
  return fmt::format(
      R"(  "{}" [shape={}, label="{}", fillcolor="{}"];)", name, isShared ? "cylinder" : "folder",
      pathLabel(name),
      mount != nullptr && mount->access == Corvane::Access::write ? "#fdebd0" : "#e8f1fa");
}

/// The name of each mount's node: the pattern of those that have the same machines, else the path.
std::map<std::string_view, std::string> mountNames(std::span<const WiringFact> list,
                                                   const Outermost& outermost) {
  std::map<std::string_view, std::set<std::pair<Wire, std::string_view>>> machines;
  for (const WiringFact& fact : list)
    if (fact.isMount()) machines[fact.end].emplace(fact.wire, outermost.of(fact.machine));
  std::map<std::string, std::vector<std::string_view>> alike;
  for (const auto& [path, at] : machines)
    alike[patternOf(path)].push_back(path);
  std::map<std::string_view, std::string> names;
  for (const auto& [pattern, paths] : alike) {
    const bool isOne = paths.size() > 1 && std::ranges::all_of(paths, [&](std::string_view path) {
                         return machines[path] == machines[paths.front()];
                       });
    for (const std::string_view path : paths)
      names.emplace(path, isOne ? pattern : std::string(path));
  }
  return names;
}

/// The names of the machines, each once.
std::string joined(const std::set<std::string_view>& machines) {
  std::string text;
  for (const std::string_view machine : machines)
    text += fmt::format("{}`{}`", text.empty() ? "" : ", ", machine);
  return text;
}

std::string typeNode(std::string_view type, bool isMachine) {
  return fmt::format(R"(  "{}" [shape={}, label="{}", fillcolor="{}"];)", type,
                     isMachine ? "box" : "ellipse", withoutNamespace(type),
                     isMachine ? "#dff0d8" : "#f4f4f4");
}

}  // namespace

std::span<const WiringFact> wiring() {
  return facts;
}

std::string dotOf(std::span<const WiringFact> list) {
  const Outermost outermost(list);
  const auto names = mountNames(list, outermost);
  std::map<std::string, std::string> nodes;
  std::set<std::pair<std::string, std::string>> edges;
  for (const WiringFact& fact : list) {
    const std::string machine(outermost.of(fact.machine));
    const std::string end(fact.isMount() ? names.at(fact.end) : outermost.of(fact.end));
    if (machine == end) continue;
    nodes.emplace(end, fact.isMount() ? mountNode(fact.end, end) : typeNode(end, false));
    nodes[machine] = typeNode(machine, true);
    edges.insert(fact.wire == Wire::reads ? std::pair(end, machine) : std::pair(machine, end));
  }
  std::string dot =
      "// Boxes are machines. Cylinders are shared tables and folders records of the state "
      "database,\n"
      "// blue where the agent reads and orange where it writes; ellipses are its own records.\n"
      "digraph corvane {\n"
      "  rankdir=LR; ranksep=1.5; nodesep=0.1;\n"
      "  node [fontname=\"sans-serif\", fontsize=10, style=filled];\n"
      "  edge [color=\"#00000070\", arrowsize=0.6];\n";
  for (const auto& [name, node] : nodes)
    dot += node + "\n";
  for (const auto& [from, to] : edges)
    dot += fmt::format("  \"{}\" -> \"{}\";\n", from, to);
  return dot + "}\n";
}

std::string markdownOf(std::span<const WiringFact> list) {
  const Outermost outermost(list);
  struct Machines {
    std::string_view role;
    std::set<std::string_view> reading, writing;
  };
  std::map<std::string, Machines> mounts;
  for (const auto& [path, name] : mountNames(list, outermost)) {
    const Corvane::MountPath* const mount = Corvane::findMountPath(path);
    if (mount != nullptr && mount->mounting != Corvane::Mounting::never)
      mounts[name].role = mount->access == Corvane::Access::write ? "written" : "read";
  }
  const auto names = mountNames(list, outermost);
  for (const WiringFact& fact : list) {
    if (!fact.isMount()) continue;
    const auto at = mounts.find(names.at(fact.end));
    if (at == mounts.end()) continue;
    auto& machines = fact.wire == Wire::reads ? at->second.reading : at->second.writing;
    machines.insert(withoutNamespace(outermost.of(fact.machine)));
  }
  std::string text = "| mount | is | read by | written by |\n|---|---|---|---|\n";
  for (const auto& [name, machines] : mounts)
    text += fmt::format("| `{}` | {} | {} | {} |\n", name, machines.role, joined(machines.reading),
                        joined(machines.writing));
  return text;
}

}  // namespace Host
