#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "overlay/DefaultOverlayGroupSm.h"
#include "overlay/IpTunnelMappingSm.h"
#include "overlay/IpTunnelVlanMcastGroupSm.h"
#include "runtime/Toggle.h"
#include "runtime/TreeObserver.h"

namespace Multicast::Vpn {
namespace {

using namespace Routing::Multicast;
using Bridging::VlanId;
using Pavlin::IpGenAddr;
using Texts = std::vector<std::string>;

IpGenAddr addr(const std::string& text) {
  return IpGenAddr::fromText(text);
}
OverlayAddr overlay(const std::string& text) {
  return OverlayAddr(addr(text));
}
UnderlayAddr underlay(const std::string& text) {
  return UnderlayAddr(addr(text));
}
UnderlayRoute route(const std::string& group) {
  return {addr("10.0.0.1"), underlay(group), TunnelType::PimSsm};
}

/// Effective changes below an entity.
class Changes final : public Vesk::TreeObserver {
 public:
  explicit Changes(const Ombra::Ptr<Vesk::Entity>& root) { rootIs(root); }
  int count = 0;

 private:
  void valueChanged(const Node&, const Vesk::FieldInfo&, std::string_view) override { ++count; }
  void entityCame(const Node&) override { ++count; }
  void entityWent(const Node&) override { ++count; }
};

struct Turns {
  std::size_t items;      ///< of a slice, 0 for no end
  std::uint64_t shuffle;  ///< seed for the order of subscribers, 0 for none

  friend void PrintTo(const Turns& turns, std::ostream* out) {
    *out << turns.items << " items, seed " << turns.shuffle;
  }
};

/// All records of one domain; the machines come and go over them.
class EncapMachinesTest : public testing::TestWithParam<Turns> {
 protected:
  EncapMachinesTest() {
    Vesk::System::clockIs(&clock);
    Vesk::Publisher::shuffleSeedIs(GetParam().shuffle);
    scheduler.yieldPolicyIs(&yield);
    mappings->localVtepAddrIs(addr("10.0.0.1").v4Addr());
    defaultTable = tables->tableIs(VlanGroupTableColl::getDefaultTableName());
    l3Table = tables->tableIs(VlanGroupTableColl::getL3TableName());
  }
  ~EncapMachinesTest() override {
    crash();
    Vesk::Publisher::shuffleSeedIs(0);
    Orlane::toggleDirIs("");
    Orlane::forgetToggles();
    Vesk::System::clockIs(nullptr);
  }

  void startDefault() {
    defaultSm = Ombra::make<DefaultOverlayGroupSm>(DefaultOverlayGroupSm::Inputs{
        .af = Pavlin::ipv4(), .ipTunnelMappingStatus = mappings, .vlanGroupTable = defaultTable});
  }
  void startMapping() {
    mappingSm =
        Ombra::make<IpTunnelMappingSm>(IpTunnelMappingSm::Inputs{.vlanToGroupStatus = groups,
                                                                 .ipTunnelMappingStatus = mappings,
                                                                 .forwardingStatus = forwarding,
                                                                 .encapReadyStatus = ready,
                                                                 .taskScheduler = &scheduler});
  }
  void startGroups() {
    groupSm = Ombra::make<IpTunnelVlanMcastGroupSm>(
        IpTunnelVlanMcastGroupSm::Inputs{.scheduler = &scheduler,
                                         .vlanGroupTableColl = tables,
                                         .ipTunnelMappingStatus = mappings,
                                         .vlanToGroupStatus = groups,
                                         .encapReadyStatus = ready});
  }
  void start() {
    startDefault();
    startMapping();
    startGroups();
  }
  void crash() {
    groupSm = nullptr;
    mappingSm = nullptr;
    defaultSm = nullptr;
  }
  void allReady() {
    mappings->readyIs(true);
    defaultTable->readyIs(true);
    l3Table->readyIs(true);
  }
  void passTo(double time) {
    clock.advanceTo(time);
    scheduler.fireExpired(time);
    scheduler.runUntilIdle();
  }
  /// Settles, then asks every machine for a full review, which must find nothing to do.
  void rest() {
    scheduler.runUntilIdle();
    Changes published(groups), forwarded(forwarding), table(defaultTable);
    for (Vesk::Machine* sm :
         std::initializer_list<Vesk::Machine*>{defaultSm.get(), groupSm.get(), mappingSm.get()})
      if (sm != nullptr) sm->reviewAll();
    scheduler.runUntilIdle();
    EXPECT_EQ(published.count + forwarded.count + table.count, 0);
  }

  /// A vlan with its own configuration entry.
  Ombra::Ptr<VlanToGroupMapping> addVlan(unsigned vlan, const std::string& defaultGroup) {
    const auto entry = Ombra::make<IpTunnelConfigEntry>();
    entry->defaultUnderlayGroupIs(underlay(defaultGroup));
    const auto row = mappings->vlanStatusIs(VlanId(vlan));
    row->vlanTunnelConfigEntryIs(entry);
    own[vlan] = entry;
    return row;
  }
  void l3GroupIs(unsigned vlan, const std::string& group) {
    l3Table->vlanIs(VlanId(vlan))->groupIs(addr(group));
  }
  Ombra::Ptr<VlanToMulticastGroup> groupRow(const std::string& group, unsigned vlan = 10) {
    return groups->vlanToMulticastGroupIs({VlanId(vlan), overlay(group)});
  }

  Texts groupTexts() {
    Texts texts;
    for (const auto& [key, row] : groups->vlanToMulticastGroupIterator())
      for (const auto& member : row->multicastGroupIterator())
        texts.push_back(Vesk::textOf(key) + "=" + member.underlayGroup.stringValue() + "," +
                        Vesk::textOf(member.tunnelType));
    std::sort(texts.begin(), texts.end());
    return texts;
  }
  /// The underlay group in force, or "-".
  std::string inForce(const std::string& group, unsigned vlan = 10) {
    const auto row = forwarding->vlanStatus(VlanId(vlan));
    const OverlayRoute key = OverlayRoute::wcRoute(overlay(group));
    if (!row || !row->overlayToUnderlayHas(key)) return "-";
    return row->overlayToUnderlay(key).underlayRoute.underlayGroup.stringValue();
  }
  Texts tableTexts(const Ombra::Ptr<VlanGroupTable>& table) {
    Texts texts;
    for (const auto& [vlan, row] : table->vlanIterator())
      for (const auto& group : row->groupIterator())
        texts.push_back(Vesk::textOf(vlan) + "," + group.stringValue());
    std::sort(texts.begin(), texts.end());
    return texts;
  }

  Vesk::ManualClock clock{1000};
  Sylva::TaskScheduler scheduler;
  Sylva::ItemYield yield{GetParam().items};
  Ombra::Ptr<IpTunnelMappingStatus> mappings = Ombra::make<IpTunnelMappingStatus>();
  Ombra::Ptr<VlanGroupTableColl> tables = Ombra::make<VlanGroupTableColl>();
  Ombra::Ptr<VlanGroupTable> defaultTable, l3Table;
  Ombra::Ptr<IpTunnelVlanGroupStatus> groups = Ombra::make<IpTunnelVlanGroupStatus>();
  Ombra::Ptr<IpTunnelForwardingStatus> forwarding = Ombra::make<IpTunnelForwardingStatus>();
  Ombra::Ptr<EncapReadyStatus> ready =
      Ombra::make<EncapReadyStatus>(EncapDecapReadyClient::ipv4Local);
  Ombra::Ptr<DefaultOverlayGroupSm> defaultSm;
  Ombra::Ptr<IpTunnelMappingSm> mappingSm;
  Ombra::Ptr<IpTunnelVlanMcastGroupSm> groupSm;
  std::map<unsigned, Ombra::Ptr<IpTunnelConfigEntry>> own;
};

const std::string G = "239.1.1.1", H = "239.1.1.2", any = "0.0.0.0";
const std::string U1 = "232.1.1.1", U2 = "232.1.1.2", U3 = "232.1.1.3";

// What a group's underlay routes become and when, and what is in force right after.
TEST_P(EncapMachinesTest, aLiveGroupSettlesBeforeItMoves) {
  struct Step {
    double after;                          // seconds since the start
    Texts routes;                          // {} leaves them alone, {""} takes the row away
    std::optional<std::string> immediate;  // makes the group an immediate one of its vlan
    std::string inForce;
  };
  struct Case {
    std::string name, group;
    std::vector<Step> steps;
  };
  // clang-format off
  const std::vector<Case> cases{
      {"new group at once, move after the whole delay", G,
       {{0, {U1}, {}, U1}, {1, {U1, U2}, {}, U1}, {1, {U2}, {}, "-"}, {15.9, {}, {}, "-"}, {16, {}, {}, U2}}},
      {"back to the old one during the wait", G,
       {{0, {U1}, {}, U1}, {0, {U2}, {}, "-"}, {3, {U1}, {}, "-"}, {15, {}, {}, U1}}},
      {"row goes during the wait, and comes back as new", G,
       {{0, {U1}, {}, U1}, {0, {U2}, {}, "-"}, {1, {""}, {}, "-"}, {2, {U3}, {}, U3}, {15, {}, {}, U3}}},
      {"still between two routes at the expiry", G,
       {{0, {U1}, {}, U1}, {0, {U2}, {}, "-"}, {14, {U2, U3}, {}, "-"}, {15, {}, {}, "-"}, {16, {U3}, {}, "-"},
        {31, {}, {}, U3}}},
      {"immediate group", G, {{0, {U1}, U1, U1}, {1, {U2}, {}, U2}, {16, {}, {}, U2}}},
      {"any group", any, {{0, {U1}, {}, U1}, {1, {U2}, {}, U2}}},
      {"becomes immediate while it waits", G,
       {{0, {U1}, {}, U1}, {1, {U2}, {}, "-"}, {4, {}, U2, U2}, {16, {}, {}, U2}}},
      {"moves again with less than the least wait left", G,
       {{0, {U1}, {}, U1}, {0, {U2}, {}, "-"}, {6, {U3}, {}, "-"}, {15, {}, {}, "-"}, {29.9, {}, {}, "-"},
        {30, {}, {}, U3}}},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const double begin = clock.now();
    const auto vlan = addVlan(10, "232.9.9.9");
    startMapping();
    for (const Step& step : c.steps) {
      SCOPED_TRACE(step.after);
      passTo(begin + step.after);
      if (step.immediate)
        own[10]->immediateOverlayToUnderlayGroupIs(overlay(c.group), underlay(*step.immediate));
      if (step.routes == Texts{""}) {
        groups->vlanToMulticastGroupDelAll();
      } else if (!step.routes.empty()) {
        const auto row = groupRow(c.group);
        for (const auto& to : step.routes)
          row->multicastGroupIs(route(to));
        for (const auto& member : row->multicastGroupIterator())
          if (std::ranges::find(step.routes, member.underlayGroup.stringValue()) ==
              step.routes.end())
            row->multicastGroupDel(member);
      }
      EXPECT_EQ(inForce(c.group), step.inForce);
    }
    rest();
    groups->vlanToMulticastGroupDelAll();
    EXPECT_EQ(forwarding->vlanStatusCount(), 0u) << "the last mapping takes the vlan with it";
    crash();
    mappings->vlanStatusDelAll();
  }
}

TEST_P(EncapMachinesTest, oneTimerServesABurstAndTheLateWaitForTheNext) {
  startMapping();
  const Texts burst{G, H, "239.1.1.3"};
  const auto move = [&](const std::string& group) {
    groupRow(group)->multicastGroupIs(route(U2));
    groupRow(group)->multicastGroupDel(route(U1));
  };
  for (const auto& group : burst)
    groupRow(group)->multicastGroupIs(route(U1));
  move(burst[0]);
  passTo(1005);  // exactly 10 s left
  move(burst[1]);
  passTo(1006);  // 9 s left
  move(burst[2]);
  EXPECT_EQ(mappingSm->pendingGroups()->groupCount(), 2u);
  EXPECT_EQ(mappingSm->pendingGroups2()->groupCount(), 1u);
  ready->vlanGroupStatusReadyIs(true);
  EXPECT_FALSE(ready->forwardingStatusReady()) << "groups wait";
  passTo(1015);
  EXPECT_EQ((Texts{inForce(burst[0]), inForce(burst[1]), inForce(burst[2])}), (Texts{U2, U2, "-"}));
  EXPECT_FALSE(ready->forwardingStatusReady());
  passTo(1030);
  EXPECT_EQ(inForce(burst[2]), U2);
  EXPECT_TRUE(ready->forwardingStatusReady());
}

TEST_P(EncapMachinesTest, readyFlagsFollowEachOtherAndStayOffWithoutSwitchover) {
  const auto dir =
      std::filesystem::path(testing::TempDir()) / ("encap-toggles" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  for (const bool on : {false, true}) {
    std::ofstream(dir / "StageMgr.json") << R"({"EvpnMulticastSSO": )" << (on ? "true}" : "false}");
    Orlane::toggleDirIs(dir);
    Orlane::forgetToggles();
    groupRow("239.7.7.7", 99);
    start();
    scheduler.runUntilIdle();
    defaultTable->readyIs(true);
    l3Table->readyIs(true);
    scheduler.runUntilIdle();
    EXPECT_EQ(groups->vlanToMulticastGroupCount(), 1u) << "not judged before all inputs are ready";
    EXPECT_FALSE(ready->vlanGroupStatusReady());
    mappings->readyIs(true);
    scheduler.runUntilIdle();
    EXPECT_EQ(groups->vlanToMulticastGroupCount(), 0u);
    EXPECT_EQ(ready->vlanGroupStatusReady(), on);
    EXPECT_EQ(ready->forwardingStatusReady(), on);
    ready->vlanGroupStatusReadyIs(true);
    EXPECT_EQ(ready->forwardingStatusReady(), on);
    ready->vlanGroupStatusReadyIs(false);
    crash();
    for (const auto& table : {defaultTable, l3Table})
      table->readyIs(false);
    mappings->readyIs(false);
  }
  std::filesystem::remove_all(dir);
}

TEST_P(EncapMachinesTest, inputReviewLosesNothingBetweenSlices) {
  const Texts members{"239.1.0.1", "239.1.0.2", "239.1.0.3", "239.1.0.4"};
  for (const std::size_t slices : {1u, 2u, 3u, 5u, 6u}) {
    for (const std::string event :
         {"group", "drained", "vlan", "vlan comes back", "mapping", "underlay"}) {
      SCOPED_TRACE(event + " after slice " + std::to_string(slices));
      for (const unsigned vlan : {10u, 20u}) {
        addVlan(vlan, U1);
        for (const auto& group : members)
          l3GroupIs(vlan, group);
      }
      allReady();
      start();
      scheduler.runUntilIdle(slices);
      const auto mark = groupSm->inputBookmark();
      const unsigned at = mark ? mark->vlanId.value() : 10;
      if (event == "group" && mark) l3Table->vlan(VlanId(at))->groupDel(mark->group);
      if (event == "underlay") own[at]->defaultUnderlayGroupIs(underlay(U2));
      if (event == "mapping") mappings->vlanStatusDel(VlanId(at));
      if (event == "drained") l3Table->vlan(VlanId(at))->groupDelAll();
      if (event == "drained" || event.starts_with("vlan")) l3Table->vlanDel(VlanId(at));
      if (event == "vlan comes back") l3GroupIs(at, "239.1.0.9");
      rest();

      Texts wanted;
      for (const auto& [vlan, row] : mappings->vlanStatusIterator()) {
        const std::string to = row->effDefaultUnderlayGroup().stringValue();
        wanted.push_back(Vesk::textOf(vlan) + ",0.0.0.0=" + to + ",PimAsm");
        if (!l3Table->vlanHas(vlan)) continue;
        for (const auto& group : l3Table->vlan(vlan)->groupIterator())
          wanted.push_back(Vesk::textOf(vlan) + "," + group.stringValue() + "=" + to + ",PimSsm");
      }
      std::sort(wanted.begin(), wanted.end());
      EXPECT_EQ(groupTexts(), wanted);
      EXPECT_EQ(groupSm->vlanInputChangeSetCount(), 0u);
      EXPECT_FALSE(groupSm->inputBookmark());
      crash();
      groups->vlanToMulticastGroupDelAll();
      forwarding->vlanStatusDelAll();
      l3Table->vlanDelAll();
      mappings->vlanStatusDelAll();
    }
  }
}

TEST_P(EncapMachinesTest, aChangeOfOneVlanLooksAtThatVlanOnly) {
  for (unsigned vlan = 1; vlan <= 200; ++vlan)
    addVlan(vlan, U1);
  allReady();
  start();
  scheduler.runUntilIdle();
  own[7]->defaultUnderlayGroupIs(underlay(U2));
  EXPECT_LE(scheduler.runUntilIdle(), 2u);
  EXPECT_EQ(inForce(any, 7), U2);
  rest();
}

TEST_P(EncapMachinesTest, aMoveAddsTheNewRouteFirst) {
  addVlan(10, U1);
  allReady();
  start();
  scheduler.runUntilIdle();
  // Hears each change of the row and notes how many routes it holds then.
  struct Ear : Vesk::Listener {
    explicit Ear(const Ombra::Ptr<VlanToMulticastGroup>& of)
        : Listener([](Listener& self, Ombra::FieldId, const void*) {
            auto& ear = static_cast<Ear&>(self);
            ear.sizes.push_back(ear.row->multicastGroupCount());
          }),
          row(of) {
      attach(of.get());
    }
    Ombra::Ptr<VlanToMulticastGroup> row;
    std::vector<unsigned> sizes;
  } ear(groupRow(any));
  mappings->tunnelTypeIs(TunnelType::PimSsm);
  scheduler.runUntilIdle();
  EXPECT_EQ(ear.sizes, (std::vector<unsigned>{2, 1}));
  EXPECT_EQ(groupTexts(), (Texts{"10,0.0.0.0=232.1.1.1,PimSsm"}));
}

TEST_P(EncapMachinesTest, aGroupOfBothTablesStaysWithTheOtherOne) {
  const auto row = addVlan(10, U1);
  allReady();
  start();
  const auto rowsOf = [&] {
    rest();
    Texts texts = groupTexts();
    std::erase(texts, "10,0.0.0.0=232.1.1.1,PimAsm");
    return texts;
  };
  l3GroupIs(10, G);
  EXPECT_EQ(rowsOf(), (Texts{"10,239.1.1.1=232.1.1.1,PimSsm"}));
  own[10]->immediateOverlayToUnderlayGroupIs(overlay(G), underlay(U2));
  EXPECT_EQ(rowsOf(), (Texts{"10,239.1.1.1=232.1.1.2,PimAsm"}));
  own[10]->immediateOverlayToUnderlayGroupIs(overlay(G), underlay(U3));
  EXPECT_EQ(rowsOf(), (Texts{"10,239.1.1.1=232.1.1.3,PimAsm"}));
  own[10]->immediateOverlayToUnderlayGroupDel(overlay(G));
  EXPECT_EQ(rowsOf(), (Texts{"10,239.1.1.1=232.1.1.1,PimSsm"}));
  own[10]->immediateOverlayToUnderlayGroupIs(overlay(G), underlay(U2));
  l3Table->vlanDelAll();
  EXPECT_EQ(rowsOf(), (Texts{"10,239.1.1.1=232.1.1.2,PimAsm"}));
  const auto vrf = mappings->vrfImmediateGroupStatusIs(L3::VrfName("red"));
  vrf->immediateOverlayToUnderlayGroupIs(overlay(G), underlay(U3));
  row->vrfImmediateGroupStatusIs(vrf);
  EXPECT_EQ(rowsOf(), (Texts{"10,239.1.1.1=232.1.1.2,PimAsm"}));
  row->isSbdVlanIs(true);
  EXPECT_EQ(rowsOf(), (Texts{"10,239.1.1.1=232.1.1.3,PimAsm"}));
  mappings->localVtepAddrIs({});
  EXPECT_EQ(rowsOf(), Texts{});
  mappings->localVtepAddrIs(addr("10.0.0.1").v4Addr());
  EXPECT_EQ(rowsOf(), (Texts{"10,239.1.1.1=232.1.1.3,PimAsm"}));
}

TEST_P(EncapMachinesTest, theDefaultTableHasTheAnyGroupAndTheImmediateOnes) {
  startDefault();
  const auto row = addVlan(10, U1);
  const auto vrf = mappings->vrfImmediateGroupStatusIs(L3::VrfName("red"));
  vrf->immediateOverlayToUnderlayGroupIs(overlay(H), underlay(U2));
  row->vrfImmediateGroupStatusIs(vrf);
  own[10]->immediateOverlayToUnderlayGroupIs(overlay(G), underlay(U1));
  own[10]->immediateOverlayToUnderlayGroupIs(overlay("ff0e::1"), underlay(U1));
  own[10]->immediateOverlayToUnderlayGroupIs(overlay(any), underlay(U1));
  EXPECT_EQ(tableTexts(defaultTable), (Texts{"10,0.0.0.0", "10,239.1.1.1"}));
  row->isSbdVlanIs(true);
  EXPECT_EQ(tableTexts(defaultTable), (Texts{"10,0.0.0.0", "10,239.1.1.2"}));
  own[10]->immediateOverlayToUnderlayGroupDel(overlay(G));
  vrf->immediateOverlayToUnderlayGroupIs(overlay(G), underlay(U2));
  EXPECT_EQ(tableTexts(defaultTable), (Texts{"10,0.0.0.0", "10,239.1.1.1", "10,239.1.1.2"}));
  row->vrfImmediateGroupStatusIs(nullptr);
  vrf->immediateOverlayToUnderlayGroupIs(overlay("239.1.1.3"), underlay(U2));
  EXPECT_EQ(tableTexts(defaultTable), (Texts{"10,0.0.0.0"}));
  mappings->vlanStatusDel(VlanId(10));
  EXPECT_EQ(tableTexts(defaultTable), Texts{});
  rest();
}

// Group status and forwarding rows outlive the process, the tables do not.
TEST_P(EncapMachinesTest, aRestartWritesNothingAndRemovesWhatIsStale) {
  for (const unsigned vlan : {10u, 20u})
    addVlan(vlan, U1);
  own[10]->immediateOverlayToUnderlayGroupIs(overlay(G), underlay(U2));
  allReady();
  l3GroupIs(20, H);
  start();
  rest();
  const auto restart = [&] {
    crash();
    l3Table->vlanDelAll();
    l3Table->readyIs(false);
    defaultTable->vlanIs(VlanId(77))->groupIs(addr(any));
    start();
    EXPECT_FALSE(defaultTable->vlanHas(VlanId(77)));
    scheduler.runUntilIdle();
    l3GroupIs(20, H);
    l3Table->readyIs(true);
    rest();
  };
  Changes published(groups), forwarded(forwarding);
  restart();
  EXPECT_EQ(published.count, 0);
  EXPECT_EQ(forwarded.count, 0);

  groupRow("239.9.9.9", 20)->multicastGroupIs(route(U3));
  forwarding->vlanStatusIs(VlanId(30));
  forwarding->vlanStatusIs(VlanId(40))
      ->overlayToUnderlayIs({OverlayRoute::wcRoute(overlay(G)), route(U1)});
  const auto before = groupTexts();
  restart();
  EXPECT_EQ(groupTexts().size(), before.size() - 1);
  EXPECT_EQ(inForce("239.9.9.9", 20), "-");
  EXPECT_FALSE(forwarding->vlanStatusHas(VlanId(30)));
  EXPECT_FALSE(forwarding->vlanStatusHas(VlanId(40)));
  groupSm->cleanup();
  EXPECT_EQ(groups->vlanToMulticastGroupCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Turns, EncapMachinesTest,
                         testing::Values(Turns{1, 0}, Turns{0, 0}, Turns{1, 5}, Turns{2, 6}));

}  // namespace
}  // namespace Multicast::Vpn
