#include <algorithm>
#include <functional>
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "config/IpTunnelGroupConfigSm.h"
#include "runtime/Log.h"

namespace {

using namespace Routing::Multicast;
using ::Multicast::Vpn::IpTunnelMappingStatus;

// Short names of values by their text.
template <class T>
constexpr auto of = [](const std::string& text) { return Vesk::valueOf<T>(text); };
constexpr auto addr = of<Pavlin::IpGenAddr>;
constexpr auto under = of<UnderlayAddr>;
constexpr auto over = of<OverlayAddr>;
constexpr auto prefix = of<Pavlin::IpGenPrefix>;
constexpr auto intf = of<Pavlin::IntfId>;
constexpr auto vrf = of<L3::VrfName>;
using vlan = Bridging::VlanId;

const auto v4Vtep = addr("10.0.0.1").v4Addr();
const auto v6Vtep = addr("2001:db8::1").v6Addr();

/// Runs a function on every change of one record.
struct Observer : Vesk::Listener {
  Observer(const Vesk::Entity& entity, std::function<void(Ombra::FieldId)> function)
      : Listener([](Listener& self, Ombra::FieldId field, const void*) {
          static_cast<Observer&>(self).run(field);
        }),
        run(std::move(function)) {
    attach(&entity);
  }
  std::function<void(Ombra::FieldId)> run;
};

/// What other agents publish, and one switch's configuration machine over it.
class GroupConfigTest : public testing::Test {
 protected:
  using Outputs = std::pair<Ombra::Ptr<IpTunnelVlanGroupStatus>, Ombra::Ptr<IpTunnelMappingStatus>>;

  GroupConfigTest() {
    Vesk::logSinkIs([this](auto, const auto& args, const auto&) {
      conflicts.push_back(args.at(0) + " " + args.at(1));
    });
    group->afIs(Pavlin::ipv4());
    config->mcastOverlayV4Is(true);
    vti->operStatusIs(Vxlan::IntfOperStatus::up);
    vti->localVtepAddrIs(v4Vtep);
  }
  ~GroupConfigTest() override {
    Vesk::Publisher::shuffleSeedIs(0);
    Vesk::logSinkIs({});
  }

  Ombra::Ptr<IpTunnelGroupConfigSm> machine(const Outputs& out) {
    return Ombra::make<IpTunnelGroupConfigSm>(
        IpTunnelGroupConfigSm::Inputs{root, vlans, vtis, vrfs, out.first, out.second});
  }
  void start() { sm = machine({group, mapping}); }
  static Outputs freshOutputs() {
    auto status = Ombra::make<IpTunnelVlanGroupStatus>();
    status->afIs(Pavlin::ipv4());
    return {status, Ombra::make<IpTunnelMappingStatus>()};
  }

  Ombra::Ptr<IpTunnelConfigEntry> vrfEntry(const std::string& name) {
    return config->vrfToMulticastGroupIs(vrf(name))->tunnelConfigEntryIs();
  }
  Ombra::Ptr<IpTunnelConfigEntry> vlanEntry(unsigned id) {
    return config->vlanToMulticastGroupIs(vlan(id))->tunnelConfigEntryIs();
  }
  Ombra::Ptr<MulticastIntfsAppRootSm> members(const std::string& name) {
    return vrfs->vrfSmIs(vrf(name), {.vrfName = vrf(name), .multicastAppDirRoot = nullptr});
  }
  /// An active vlan with a network identifier.
  void bridge(unsigned id) {
    vlans->vlanStatusIs(vlan(id));
    vti->vlanToVniMapIs(vlan(id), {});
  }
  void sbd(const std::string& name, unsigned id) {
    vti->vrfToSBDVlanIs(vrf(name), Bridging::VlanIdOrNone(id));
  }

  /// "sbd own red": which configuration a vlan's row has, "-" for no row.
  std::string row(unsigned id) const {
    const auto status = mapping->vlanStatus(vlan(id));
    if (!status) return "-";
    std::string text = status->isSbdVlan() ? "sbd" : "";
    if (status->vlanTunnelConfigEntry()) text += " own";
    for (const auto& [name, entry] : config->vrfToMulticastGroupIterator()) {
      if (status->vrfTunnelConfigEntry() != entry->tunnelConfigEntry()) continue;
      text += " " + name.str();
      EXPECT_EQ(status->vrfImmediateGroupStatus(), mapping->vrfImmediateGroupStatus(name));
    }
    return text;
  }
  std::string immediate(const std::string& name, const std::string& group) const {
    const auto status = mapping->vrfImmediateGroupStatus(vrf(name));
    return status && status->immediateOverlayToUnderlayGroupHas(over(group))
               ? status->immediateOverlayToUnderlayGroup(over(group)).text()
               : "-";
  }
  /// All that the machines write, in key order.
  static std::map<std::string, std::string> picture(const Outputs& out) {
    const auto& [groupStatus, status] = out;
    std::map<std::string, std::string> lines{
        {"her", Vesk::textOf(groupStatus->underlayHerEnabled())},
        {"type", Vesk::textOf(status->tunnelType())},
        {"vtep", status->localVtepAddr().text() + " " + status->localVtepAddr6().text()}};
    for (const auto& [id, r] : status->vlanStatusIterator()) {
      const auto& imm = r->vrfImmediateGroupStatus();
      EXPECT_TRUE(!imm || imm == status->vrfImmediateGroupStatus(imm->vrfName()));
      lines["vlan " + id.text()] =
          fmt::format("{} {} {} {}", r->isSbdVlan(), fmt::ptr(r->vlanTunnelConfigEntry().get()),
                      fmt::ptr(r->vrfTunnelConfigEntry().get()), imm ? imm->vrfName().str() : "-");
    }
    for (const auto& [name, r] : status->vrfImmediateGroupStatusIterator()) {
      lines["vrf " + name.str()] = "";
      for (const auto& [overlay, underlay] : r->immediateOverlayToUnderlayGroupIterator())
        lines["vrf " + name.str() + " " + overlay.text()] = underlay.text();
    }
    for (const auto name : status->multipleUnderlayGroupsDelayedVrfIterator())
      lines["pool " + name.str()] = "";
    return lines;
  }

  Ombra::Ptr<IpTunnelGroupConfig> root = Ombra::make<IpTunnelGroupConfig>();
  Ombra::Ptr<Bridging::VlanStatusDir> vlans = Ombra::make<Bridging::VlanStatusDir>();
  Ombra::Ptr<Vxlan::VtiStatusDir> vtis = Ombra::make<Vxlan::VtiStatusDir>();
  Ombra::Ptr<MulticastIntfsAppRootSmColl> vrfs = Ombra::make<MulticastIntfsAppRootSmColl>();
  Ombra::Ptr<IpTunnelVlanGroupStatus> group = Ombra::make<IpTunnelVlanGroupStatus>();
  Ombra::Ptr<IpTunnelMappingStatus> mapping = Ombra::make<IpTunnelMappingStatus>();
  Ombra::Ptr<IpTunnelGroupIntfConfig> config = root->intfConfigIs(intf("Vxlan1"));
  Ombra::Ptr<Vxlan::VtiStatus> vti = vtis->vtiStatusIs(intf("Vxlan1"));
  std::vector<std::string> conflicts;
  Ombra::Ptr<IpTunnelGroupConfigSm> sm;
};

TEST_F(GroupConfigTest, rangesBecomeGroupsAndConflictsDropOut) {
  using Pairs = std::vector<std::pair<std::string, char>>;
  const struct {
    const char* name;
    Pairs ranges, singles;
    std::string groups;  // underlay group of 239.1.1.0 and those that follow
    bool conflict;
  } cases[] = {
      {"agree", {{"239.1.1.0/28", '1'}, {"239.1.1.0/29", '1'}}, {}, "1111111111111111-", false},
      {"differ", {{"239.1.1.0/28", '1'}, {"239.1.1.0/29", '2'}}, {}, "--------11111111-", true},
      {"single",
       {{"239.1.1.0/29", '1'}, {"239.1.1.0/30", '2'}},
       {{"239.1.1.3", '3'}},
       "---31111-",
       true},
      {"third",
       {{"239.1.1.0/30", '1'}, {"239.1.1.0/31", '2'}, {"239.1.1.0/29", '1'}},
       {},
       "--111111-",
       true},
      {"host", {{"239.1.1.0/32", '1'}}, {}, "1-", false},
      {"too wide", {{"239.1.1.0/24", '1'}}, {}, "-", false},
      {"unicast", {{"10.1.1.0/28", '1'}}, {}, "-", false},
      {"ipv6", {{"ff0e::/124", '1'}}, {}, "-", false},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    const std::string base = "232.0.0.";
    conflicts.clear();
    const auto entry = vrfEntry("red");
    for (const auto& [range, underlay] : test.ranges)
      entry->immediateOverlayPrefixToUnderlayGroupIs(prefix(range), under(base + underlay));
    for (const auto& [single, underlay] : test.singles)
      entry->immediateOverlayToUnderlayGroupIs(over(single), under(base + underlay));
    start();

    std::string groups;
    for (std::size_t i = 0; i < test.groups.size(); ++i)
      groups += immediate("red", "239.1.1." + std::to_string(i)).back();
    EXPECT_EQ(groups, test.groups);
    EXPECT_EQ(mapping->vrfImmediateGroupStatus(vrf("red"))->immediateOverlayToUnderlayGroupCount(),
              std::ranges::count_if(groups, [](char g) { return g != '-'; }));
    EXPECT_EQ(!conflicts.empty(), test.conflict);
    if (test.conflict && test.ranges.size() == 2) {
      std::string last;
      for (const auto& [range, underlay] : entry->immediateOverlayPrefixToUnderlayGroupIterator())
        last = range.text();
      EXPECT_EQ(conflicts, std::vector{last + " red"});
    }
    sm.reset();
    config->vrfToMulticastGroupDelAll();
  }
}

TEST_F(GroupConfigTest, aSingleGroupFallsBackToWhatTheRangesGive) {
  const auto entry = vrfEntry("red");
  entry->immediateOverlayPrefixToUnderlayGroupIs(prefix("239.1.1.0/28"), under("232.0.0.1"));
  start();
  const auto status = mapping->vrfImmediateGroupStatus(vrf("red"));
  int changes = 0;
  const Observer watch(*status, [&](Ombra::FieldId) { ++changes; });

  entry->immediateOverlayToUnderlayGroupIs(over("239.1.1.3"), under("232.0.0.3"));
  EXPECT_EQ(immediate("red", "239.1.1.3"), "232.0.0.3");
  entry->immediateOverlayToUnderlayGroupDel(over("239.1.1.3"));
  EXPECT_EQ(immediate("red", "239.1.1.3"), "232.0.0.1");
  EXPECT_EQ(changes, 2);  // nothing else was touched

  entry->immediateOverlayToUnderlayGroupIs(over("239.1.1.3"), under("232.0.0.3"));
  entry->immediateOverlayPrefixToUnderlayGroupIs(prefix("239.1.1.0/29"), under("232.0.0.2"));
  EXPECT_EQ(immediate("red", "239.1.1.3"), "232.0.0.3");
  entry->immediateOverlayToUnderlayGroupDel(over("239.1.1.3"));
  EXPECT_EQ(immediate("red", "239.1.1.3"), "-");
  // A range that is too wide to expand still catches a group that loses its own row.
  entry->immediateOverlayPrefixToUnderlayGroupIs(prefix("239.2.0.0/16"), under("232.0.0.4"));
  entry->immediateOverlayToUnderlayGroupIs(over("239.2.1.1"), under("232.0.0.3"));
  entry->immediateOverlayToUnderlayGroupDel(over("239.2.1.1"));
  EXPECT_EQ(immediate("red", "239.2.1.1"), "232.0.0.4");

  // A new entry in place of the old leaves nothing of it, and its own groups are followed.
  entry->immediateOverlayToUnderlayGroupIs(over("239.9.9.9"), under("232.0.0.3"));
  const auto row = config->vrfToMulticastGroup(vrf("red"));
  row->tunnelConfigEntryDel();
  EXPECT_EQ(status->immediateOverlayToUnderlayGroupCount(), 0U);
  row->tunnelConfigEntryIs()->immediateOverlayToUnderlayGroupIs(over("239.9.9.8"),
                                                                under("232.0.0.5"));
  EXPECT_EQ(immediate("red", "239.9.9.8"), "232.0.0.5");
  EXPECT_EQ(status->immediateOverlayToUnderlayGroupCount(), 1U);

  // A row that is complete when it appears.
  const auto whole = Ombra::make<VrfGroupConfigEntry>(vrf("blue"));
  whole->tunnelConfigEntryIs()->immediateOverlayToUnderlayGroupIs(over("239.9.9.7"),
                                                                  under("232.0.0.6"));
  config->vrfToMulticastGroupAdopt(vrf("blue"), whole);
  EXPECT_EQ(immediate("blue", "239.9.9.7"), "232.0.0.6");
}

TEST_F(GroupConfigTest, whichConfigurationAppliesToAVlan) {
  start();
  vlanEntry(10)->defaultUnderlayGroupIs(under("232.1.1.10"));
  vrfEntry("red")->defaultUnderlayGroupIs(under("232.1.1.1"));
  vrfEntry("blue")->defaultUnderlayGroupIs(under("232.1.1.2"));
  EXPECT_EQ(row(10), "-");
  vlans->vlanStatusIs(vlan(10));
  EXPECT_EQ(row(10), "-") << "without a network identifier";
  sbd("red", 10);
  EXPECT_EQ(row(10), "sbd red") << "the VRF's entry alone";
  bridge(10);
  EXPECT_EQ(row(10), "sbd own red");
  const auto object = mapping->vlanStatus(vlan(10));
  members("blue")->multicastIntfIs(intf("Vlan10"), true);
  EXPECT_EQ(row(10), "sbd own blue") << "the routed interface wins";
  config->vrfToMulticastGroupDel(vrf("blue"));
  EXPECT_EQ(row(10), "sbd own") << "also without a configuration of its VRF";
  vrfs->vrfSmDel(vrf("blue"));
  EXPECT_EQ(row(10), "sbd own red");
  members("default")->multicastIntfIs(intf("Vlan10"), true);
  EXPECT_EQ(row(10), "sbd own red") << "the default VRF gives and takes nothing";
  sbd("red", 0);
  EXPECT_EQ(row(10), " own") << "vlan 0 is no SBD vlan";
  EXPECT_EQ(mapping->vlanStatus(vlan(10)), object) << "the row is kept";
  config->vlanToMulticastGroupDel(vlan(10));
  EXPECT_EQ(row(10), "-");

  // Families: a default group needs a VTEP of its own family, and no other family's will do.
  vlanEntry(10)->defaultUnderlayGroupIs(under("0.0.0.0"));
  EXPECT_EQ(row(10), "-") << "the any address is no group";
  vlanEntry(10)->defaultUnderlayGroupIs(under("ff3e::1"));
  EXPECT_EQ(row(10), "-");
  vti->localVtepAddr6Is(v6Vtep);
  EXPECT_EQ(row(10), " own");
  vti->operStatusIs(Vxlan::IntfOperStatus::down);
  EXPECT_EQ(row(10), "-");
  vti->operStatusIs(Vxlan::IntfOperStatus::up);
  vlans->vlanStatusDel(vlan(10));
  EXPECT_EQ(row(10), "-");
}

TEST_F(GroupConfigTest, anSbdVlanMoves) {
  vrfEntry("red")->defaultUnderlayGroupIs(under("232.1.1.1"));
  vrfEntry("blue")->defaultUnderlayGroupIs(under("232.1.1.2"));
  for (const unsigned id : {10U, 20U, 30U})
    bridge(id);
  sbd("red", 10);
  start();
  std::vector<std::string> story;
  const Observer watch(*mapping, [&](Ombra::FieldId field) {
    if (field == IpTunnelMappingStatus::vlanStatusIndex) story.push_back(row(10) + "|" + row(20));
  });
  sbd("red", 20);
  // A row appears empty and is then filled.
  EXPECT_EQ(story, (std::vector<std::string>{"-|-", "-|"}));
  EXPECT_EQ(row(20), "sbd red");
  EXPECT_EQ(sm->intfSm()->sbdToVrfMapCount(), 1U);
  EXPECT_EQ(sm->intfSm()->sbdToVrfMap(vlan(20)), vrf("red"));

  // Another VRF takes vlan 20 over before the first has left it.
  sbd("blue", 20);
  sbd("red", 30);
  EXPECT_EQ(row(20), "sbd blue");
  EXPECT_EQ(sm->intfSm()->sbdToVrfMap(vlan(20)), vrf("blue"));
  EXPECT_EQ(row(30), "sbd red");
  vti->vrfToSBDVlanDel(vrf("blue"));
  EXPECT_EQ(row(20), "-");
  EXPECT_EQ(sm->intfSm()->sbdToVrfMapCount(), 1U);
}

TEST_F(GroupConfigTest, replicationAndRowsAreNeverInForceTogether) {
  bridge(10);
  vlanEntry(10)->defaultUnderlayGroupIs(under("232.1.1.10"));
  start();
  EXPECT_EQ(row(10), " own");
  int seen = 0;
  const Observer watch(*group, [&](Ombra::FieldId) {
    ++seen;
    EXPECT_EQ(mapping->vlanStatusCount(), 0U);
  });
  config->underlayHerEnabledIs(true);
  EXPECT_TRUE(group->underlayHerEnabled());
  config->underlayHerEnabledIs(false);
  EXPECT_EQ(row(10), " own");
  EXPECT_EQ(seen, 2);
}

TEST_F(GroupConfigTest, interfacesThatAreNoVlans) {
  start();
  const auto red = members("red");
  for (const char* name : {"Ethernet1", "Vlan4096", "Vlan16383"})
    red->multicastIntfIs(intf(name), true);
  EXPECT_THROW(members("green")->multicastIntfIs(intf("Vlan4095"), true), Ombra::RangeException);
  EXPECT_DEATH(members("blue")->multicastIntfIs(intf("Vlan0"), true), "value_ >= VlanId::min()");
  bridge(10);
  vrfEntry("red");
  red->multicastIntfIs(intf("Vlan10"), true);
  mapping->vrfImmediateGroupStatusDel(vrf("red"));
  EXPECT_DEATH((void)sm->intfSm()->getVlanMappingConfig(vlan(10)),
               "ipTunnelMappingStatus\\(\\)->vrfImmediateGroupStatusHas\\( vrfName \\)");
}

TEST_F(GroupConfigTest, theInterfaceHandledLastIsInForce) {
  config->mcastOverlayV4Is(false);
  config->mcastOverlayV6Is(true);
  bridge(10);
  vlanEntry(10)->defaultUnderlayGroupIs(under("232.1.1.10"));
  start();
  EXPECT_TRUE(mapping->ready());
  EXPECT_FALSE(sm->intfSm());
  group->afIs(Pavlin::ipv6());
  start();
  EXPECT_TRUE(sm->intfSm());
  EXPECT_EQ(row(10), " own");

  // Another interface takes its place, and the old one's end must not clear what it writes.
  const auto other = root->intfConfigIs(intf("Vxlan2"));
  EXPECT_FALSE(sm->intfSm());
  EXPECT_EQ(mapping->vlanStatusCount(), 0U);
  EXPECT_EQ(mapping->localVtepAddr(), Pavlin::IpAddr());
  vtis->vtiStatusIs(intf("Vxlan2"))->localVtepAddrIs(addr("10.0.0.2").v4Addr());
  config->mcastOverlayV6Is(false);
  config->mcastOverlayV6Is(true);
  EXPECT_EQ(row(10), " own");

  other->mcastOverlayV6Is(true);
  EXPECT_EQ(mapping->localVtepAddr().text(), "10.0.0.2");
  EXPECT_EQ(row(10), "-");
  vtis->vtiStatusDel(intf("Vxlan2"));
  EXPECT_FALSE(sm->intfSm());
}

}  // namespace
