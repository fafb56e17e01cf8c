// The list of mounts: its paths are told apart, the profile agrees with it, and a running agent
// mounts, keeps and unmounts what it says and nothing else.
#include <fstream>
#include <set>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/Toggle.h"
#include "tests/TemporaryDirectory.h"
#include "tests/history/AgentWorld.h"

namespace {

using Corvane::Condition;
using Corvane::Moment;
using Corvane::Mounting;

TEST(MountCatalog, hasTypedPathsThatAreToldApart) {
  std::set<std::string> paths;
  for (const auto& mount : Corvane::mountCatalog()) {
    EXPECT_TRUE(paths.insert(mount.path).second) << mount.path << " stands twice";
    const auto* type = mount.recordType();
    ASSERT_NE(type, nullptr) << mount.path << " has no type " << mount.type;
    // Shared tables are sized from the record.
    if (mount.store() == Corvane::Store::stateDb) continue;
    for (const auto* field : type->fields()) {
      if (field->kind == Vesk::FieldKind::valueMap || field->kind == Vesk::FieldKind::valueSet) {
        EXPECT_GT(field->capacity, 0U) << mount.type << " " << field->name;
      }
    }
  }
  const std::pair<const char*, const char*> types[]{
      {"multicastIntfs/application/corvane", "Vesk::Dir"},
      {"multicastIntfs6/application/corvane/red",
       "Routing::Multicast::MulticastIntfsForApplications"},
      {"multicastIntfs/application/", ""},
      {"multicastIntfs/application/routing/red/blue", ""},
      {"no/such/path", ""},
  };
  for (const auto& [path, type] : types)
    EXPECT_EQ(Corvane::typeNameOfPath(path), type) << path;
}

/// A line of the profile carries the condition as a comment, for its readers.
TEST(MountCatalog, agreesWithTheProfile) {
  std::set<std::string> expected;
  for (const auto& mount : Corvane::mountCatalog()) {
    if (mount.mounting != Mounting::profile) continue;
    const bool always = mount.condition == Condition::always;
    expected.insert(fmt::format("  - {{path: {}, type: \"{}\", access: {}}}{}{}", mount.path,
                                mount.type,
                                mount.access == Corvane::Access::write ? "write" : "read",
                                always ? "" : "  # ", Corvane::conditionText(mount.condition)));
  }
  std::ifstream profile("profiles/Corvane.yaml");
  for (std::string line; std::getline(profile, line);)
    if (line.find("path:") != std::string::npos) {
      EXPECT_EQ(expected.erase(line), 1U) << "not in the list, or twice: " << line;
    }
  EXPECT_THAT(expected, testing::IsEmpty()) << "not in the profile";
}

/// What the agent and everything below it hold.
class Holdings {
 public:
  explicit Holdings(const Multicast::Vpn::Agent& agent) {
    std::apply([this](const auto&... mount) { (held_.insert(mount.get()), ...); },
               agent.stageMounts);
    look(agent);
  }
  [[nodiscard]] bool have(const Vesk::Entity& entity) const { return held_.contains(&entity); }

 private:
  void look(const Vesk::Entity& entity) {
    if (!held_.insert(&entity).second || dynamic_cast<const Vesk::Dir*>(&entity) != nullptr) return;
    for (const Vesk::FieldInfo* field : entity.recordType().fields()) {
      if (field->kind != Vesk::FieldKind::reference) {
        if (field->holdsEntities())
          field->forEachChild(entity, [&](auto, Vesk::Entity& child) { look(child); });
      } else if (const auto child = field->child(entity)) {
        look(*child);
      }
    }
  }

  std::set<const Vesk::Entity*> held_;
};

struct Setting {
  const char* title;
  bool gateway, mpls, standby;
  std::set<Condition> holding;
};

class MountedAgent : public testing::TestWithParam<Setting> {
 protected:
  MountedAgent() {
    std::ofstream(directory / "CorvaneLib.json")
        << fmt::format(R"({{"OismGateway": {}}})", GetParam().gateway);
    std::ofstream(directory / "BerrinLib.json")
        << fmt::format(R"({{"OismMplsTunnel": {}}})", GetParam().mpls);
    Orlane::toggleDirIs(directory.path());
    Orlane::forgetToggles();
    if (GetParam().standby)
      History::input<Redundancy::RedundancyStatus>()->modeIs(Redundancy::RedundancyMode::standby);
    History::input<Vxlan::VtiStatusDir>()->vtiStatusIs(Pavlin::vxlan1IntfId());
    routing(true);
  }
  ~MountedAgent() override {
    Orlane::toggleDirIs("");
    Orlane::forgetToggles();
  }
  static void routing(bool on) {
    History::input<McastCommon::AgentStatus>(Pavlin::ipv4())->multicastRoutingIs(on);
  }
  /// Tables are mounted, and everything that is mounted is kept, as the list says.
  void expectAsListed(bool runs) const {
    const Holdings holdings(world.agent());
    for (const auto& mount : Corvane::mountCatalog()) {
      SCOPED_TRACE(mount.path);
      const bool isWanted =
          mount.mounting != Mounting::never && GetParam().holding.contains(mount.condition);
      Ombra::Ptr<Vesk::Entity> entity;
      if (mount.store() == Corvane::Store::stateDb) {
        entity = Halden::StateDatabase::instance().find(mount.path);
      } else {
        entity = VeskSharedMem::EntityManager::getEntityManager()->getEntity(mount.path);
        const bool isThere = isWanted && (runs || mount.mounting == Mounting::deferred);
        EXPECT_EQ(entity != nullptr, isThere) << "mounted";
      }
      if (runs || mount.kept != Moment::startup) {
        EXPECT_EQ(entity && holdings.have(*entity), isWanted) << "kept";
      }
    }
  }

  TemporaryDirectory directory;
  History::AgentWorld world;
};

TEST_P(MountedAgent, mountsKeepsAndUnmountsByTheList) {
  world.start();
  world.settle();
  const bool runs = !GetParam().standby;
  ASSERT_EQ(world.agent().launcherSm() != nullptr, runs);
  expectAsListed(runs);
  routing(false);
  world.settle();
  expectAsListed(false);
}

using enum Condition;
INSTANTIATE_TEST_SUITE_P(
    Settings, MountedAgent,
    testing::Values(Setting{"gateway", true, true, false, {always, gateway, gatewayOrMpls}},
                    Setting{"mplsOnly", false, true, false, {always, gatewayOrMpls}},
                    Setting{"neither", false, false, false, {always}},
                    Setting{
                        "standby", true, false, true, {always, gateway, gatewayOrMpls, standby}}),
    [](const auto& setting) { return setting.param.title; });

}  // namespace
