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
#include "tests/Changes.h"

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

  /// The underlay group in force, or "-".
  std::string inForce(const std::string& group, unsigned vlan = 10) {
    const auto row = forwarding->vlanStatus(VlanId(vlan));
    const OverlayRoute key = OverlayRoute::wcRoute(overlay(group));
    if (!row || !row->overlayToUnderlayHas(key)) return "-";
    return row->overlayToUnderlay(key).underlayRoute.underlayGroup.stringValue();
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

// One vlan becomes and ceases to be an SBD vlan with every slice. The groups of the other are there
// within a bounded number of slices, and the status is ready.
TEST_P(EncapMachinesTest, noStreamOfEventsOfOneVlanKeepsAnotherWaiting) {
  constexpr unsigned groupsEach = 250;
  constexpr int bound = 100;
  Sylva::ItemYield hundred{100};
  scheduler.yieldPolicyIs(&hundred);
  for (const unsigned vlan : {10u, 20u}) {
    addVlan(vlan, U1);
    for (unsigned i = 1; i <= groupsEach; ++i)
      l3GroupIs(vlan, "239.1.1." + std::to_string(i));
  }
  allReady();
  for (const auto& [waiting, restless] : {std::pair{10u, 20u}, std::pair{20u, 10u}}) {
    SCOPED_TRACE(waiting);
    start();
    const auto isReached = [&] {
      unsigned found = 0;
      for (const auto& [key, row] : groups->vlanToMulticastGroupIterator())
        found += key.vlan == VlanId(waiting) && row->multicastGroupCount() != 0;
      return ready->vlanGroupStatusReady() && found == groupsEach + 1;  // one is the any group
    };
    int slices = 0;
    for (; slices < bound && !isReached(); ++slices) {
      mappings->vlanStatus(VlanId(restless))->isSbdVlanIs(slices % 2 == 0);
      scheduler.runUntilIdle(1);
    }
    EXPECT_LT(slices, bound);
    crash();
    groups->vlanToMulticastGroupDelAll();
    ready->vlanGroupStatusReadyIs(false);
  }
  scheduler.yieldPolicyIs(&yield);
}

INSTANTIATE_TEST_SUITE_P(Turns, EncapMachinesTest,
                         testing::Values(Turns{1, 0}, Turns{0, 0}, Turns{1, 5}, Turns{2, 6}));

}  // namespace
}  // namespace Multicast::Vpn
