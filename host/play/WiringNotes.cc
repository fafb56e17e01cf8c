#include "host/play/WiringNotes.h"

#include <fstream>
#include <utility>

#include <fmt/format.h>

#include "agent/MountCatalog.h"
#include "host/play/Outputs.h"
#include "runtime/Acting.h"
#include "runtime/Machine.h"

namespace Host {
namespace {

/// What a machine looks at when something else changes, without a subscription of its own. No
/// other mounts than these are read in that way only.
constexpr WiringFact looks[] = {
    {"Routing::Multicast::McastEvpnStatusSm", Wire::reads, "bridging/hwcapabilities"},
    {"Routing::Multicast::McastEvpnStatusSm", Wire::reads, "routing/ipv4/pim/sparsemode/config"},
    {"Orlane::StagesHelper", Wire::reads, "stageAgentStatus/switchover/Corvane"},
    {"Orlane::StagesHelper", Wire::reads, "stage/switchover/completionstatus"},
    {"Irb::Multicast::Egress::VrfLeakConfigChangeSm", Wire::reads, "vxlan/enabledStatus"},
    {"Multicast::Tunnel::PimVxlanTunnelRequestSm", Wire::reads, "multicast/tunnel/table/pimVxlan"},
};

}  // namespace

/// Hears what is written below one root: an output, or the agent itself.
class WiringNotes::Writers final : public Vesk::TreeObserver {
 public:
  /// Without a path each entity stands for its type.
  Writers(WiringNotes& notes, const Ombra::Ptr<Vesk::Entity>& root, std::string path)
      : notes_(notes), path_(std::move(path)) {
    rootIs(root);
  }

 private:
  void valueChanged(const Node& node, const Vesk::FieldInfo&, std::string_view) override {
    wrote(*node.entity);
  }
  void entityCame(const Node& node) override { wrote(*node.parent->entity); }
  void entityWent(const Node& node) override { wrote(*node.parent->entity); }
  void wrote(const Vesk::Entity& entity) {
    const Vesk::RecordType* const machine = Vesk::Acting::type();
    if (machine == nullptr || entity.recordType().name() == machine->name()) return;
    // What a machine keeps in itself is its own affair.
    if (path_.empty() && entity.recordType().isMachine()) return;
    notes_.note(machine->name(), Wire::writes, path_.empty() ? entity.recordType().name() : path_);
  }
  WiringNotes& notes_;
  const std::string path_;
};

WiringNotes::WiringNotes(World& world, std::filesystem::path file)
    : world_(world), file_(std::move(file)) {
  for (const WiringFact& fact : looks)
    note(fact.machine, fact.wire, fact.end);
}
WiringNotes::~WiringNotes() = default;

void WiringNotes::agentBegins() {
  writers_.clear();
  writers_.push_back(std::make_unique<Writers>(*this, world_.agent().root(), ""));
  for (const auto& mount : Corvane::mountCatalog()) {
    if (mount.access != Corvane::Access::write) continue;
    if (const auto entity = outputEntity(mount))
      writers_.push_back(std::make_unique<Writers>(*this, entity, mount.path));
  }
}

void WiringNotes::rests() {
  std::set<const Vesk::Entity*> seen;  // some of the agent's records hold what is mounted
  const auto tree = [&](const auto& self, const Vesk::Entity& entity,
                        std::string_view path) -> void {
    if (!seen.insert(&entity).second) return;
    noteReaders(entity, path.empty() ? entity.recordType().name() : path);
    for (const Vesk::FieldInfo* field : entity.recordType().fields()) {
      if (!field->owns()) continue;
      field->forEachChild(entity, [&](std::string_view key, Vesk::Entity& child) {
        const bool isMount =
            isDirectoryField(*field) && Corvane::findMountPath(fmt::format("{}/{}", path, key));
        if (!isMount) self(self, child, path);
      });
    }
  };
  for (const auto& mount : Corvane::mountCatalog())
    if (mount.recordType() != nullptr)
      if (const auto root = world_.root(Address::parse(mount.path))) tree(tree, *root, mount.path);
  if (world_.agent().root()) tree(tree, *world_.agent().root(), "");
}

void WiringNotes::noteReaders(const Vesk::Entity& entity, std::string_view end) {
  entity.publisher().forEachMachine([&](const Vesk::Machine& machine) {
    const std::string_view reader = machine.worker().recordType().name();
    if (reader != end) note(reader, Wire::reads, end);
  });
}

void WiringNotes::note(std::string_view machine, Wire wire, std::string_view end) {
  std::string line = fmt::format("{} {} {}\n", machine, wireText(wire), end);
  // At once: the story may end the process.
  if (const auto [at, isNew] = lines_.insert(std::move(line)); isNew)
    std::ofstream(file_, std::ios::app) << *at << std::flush;
}

}  // namespace Host
