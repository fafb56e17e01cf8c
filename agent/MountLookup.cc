// Looking up paths in the list of mounts, whatever is listed.
#include <unordered_map>

#include "agent/MountCatalog.h"
#include "records/MulticastIntfs.h"
#include "runtime/Dir.h"

namespace Corvane {

const MountPath* findMountPath(std::string_view path) {
  static const auto byPath = [] {
    std::unordered_map<std::string_view, const MountPath*> index;
    for (const MountPath& entry : mountCatalog())
      index.emplace(entry.path, &entry);
    return index;
  }();
  const auto found = byPath.find(path);
  return found == byPath.end() ? nullptr : found->second;
}

std::string typeNameOfPath(std::string_view path) {
  using Routing::Multicast::MulticastIntfsForApplications;
  if (const MountPath* entry = findMountPath(path)) return entry->type;
  for (const auto af : Pavlin::families) {
    const std::string dir = MulticastIntfsForApplications::dirMountPath(af) + "/";
    if (!path.starts_with(dir)) continue;
    const std::string_view below = path.substr(dir.size());
    const auto slash = below.find('/');
    if (below.empty() || slash == 0) return {};
    if (slash == std::string_view::npos) return std::string(Vesk::Dir::veskName);
    const std::string_view vrf = below.substr(slash + 1);
    if (vrf.empty() || vrf.find('/') != std::string_view::npos) return {};
    return std::string(MulticastIntfsForApplications::veskName);
  }
  return {};
}

}  // namespace Corvane
