// What the configuration machines do that no scenario shows: what a conflict is called, a row that
// comes with its content, in which order rows appear and move, one interface in place of another,
// and an invariant that does not hold.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "config/IpTunnelGroupConfigSm.h"
#include "runtime/Log.h"
#include "tests/runtime/Observer.h"

namespace {

using namespace Routing::Multicast;
using ::Multicast::Vpn::IpTunnelMappingStatus;

// Short names of values by their text.
template <class T>
constexpr auto of = [](const std::string& text) { return Vesk::valueOf<T>(text); };
constexpr auto under = of<UnderlayAddr>;
constexpr auto prefix = of<Pavlin::IpGenPrefix>;
constexpr auto intf = of<Pavlin::IntfId>;
constexpr auto vrf = of<L3::VrfName>;
using vlan = Bridging::VlanId;

/// What other agents publish, and one switch's configuration machine over it.
class GroupConfigTest : public testing::Test {
 protected:
  GroupConfigTest() {
    Vesk::logSinkIs([this](const auto&, const auto& args, const auto&) {
      conflicts.push_back(args.at(0) + " " + args.at(1));
    });
    group->afIs(Pavlin::ipv4());
    config->mcastOverlayV4Is(true);
    vti->operStatusIs(Vxlan::IntfOperStatus::up);
    vti->localVtepAddrIs(of<Pavlin::IpAddr>("10.0.0.1"));
  }
  ~GroupConfigTest() override { Vesk::logSinkIs({}); }

  void start() {
    sm = Ombra::make<IpTunnelGroupConfigSm>(
        IpTunnelGroupConfigSm::Inputs{root, vlans, vtis, vrfs, group, mapping});
  }

  Ombra::Ptr<IpTunnelConfigEntry> vrfEntry(const std::string& name) {
    return config->vrfToMulticastGroupIs(vrf(name))->tunnelConfigEntryIs();
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

  /// "sbd red": whose configuration a vlan's row has, "-" for no row.
  std::string row(unsigned id) const {
    const auto status = mapping->vlanStatus(vlan(id));
    if (!status) return "-";
    std::string text = status->isSbdVlan() ? "sbd" : "";
    for (const auto& [name, entry] : config->vrfToMulticastGroupIterator()) {
      if (status->vrfTunnelConfigEntry() != entry->tunnelConfigEntry()) continue;
      text += " " + name.str();
      EXPECT_EQ(status->vrfImmediateGroupStatus(), mapping->vrfImmediateGroupStatus(name));
    }
    return text;
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

TEST_F(GroupConfigTest, theWarningNamesTheRangeThatIsJudgedSecond) {
  const auto entry = vrfEntry("red");
  std::string second;
  entry->immediateOverlayPrefixToUnderlayGroupIs(prefix("239.1.1.0/28"), under("232.0.0.1"));
  entry->immediateOverlayPrefixToUnderlayGroupIs(prefix("239.1.1.0/29"), under("232.0.0.2"));
  for (const auto& [range, underlay] : entry->immediateOverlayPrefixToUnderlayGroupIterator())
    second = range.text();
  start();
  EXPECT_EQ(conflicts, std::vector{second + " red"});
}

TEST_F(GroupConfigTest, aRowThatIsCompleteWhenItAppearsIsTakenUp) {
  start();
  const auto whole = Ombra::make<VrfGroupConfigEntry>(vrf("blue"));
  const auto overlay = of<OverlayAddr>("239.9.9.7");
  whole->tunnelConfigEntryIs()->immediateOverlayToUnderlayGroupIs(overlay, under("232.0.0.6"));
  config->vrfToMulticastGroupAdopt(vrf("blue"), whole);
  const auto status = mapping->vrfImmediateGroupStatus(vrf("blue"));
  EXPECT_EQ(status->immediateOverlayToUnderlayGroup(overlay), under("232.0.0.6"));
}

TEST_F(GroupConfigTest, theEndOfAnInterfaceDoesNotClearWhatTheNextOneWrites) {
  start();
  vtis->vtiStatusIs(intf("Vxlan2"))->localVtepAddrIs(of<Pavlin::IpAddr>("10.0.0.2"));
  const auto other = root->intfConfigIs(intf("Vxlan2"));
  config->mcastOverlayV4Is(false);
  config->mcastOverlayV4Is(true);
  EXPECT_EQ(mapping->localVtepAddr().text(), "10.0.0.1");
  other->mcastOverlayV4Is(true);
  EXPECT_EQ(mapping->localVtepAddr().text(), "10.0.0.2");
}

TEST_F(GroupConfigTest, aMissingRowOfAVrfWithConfigurationEndsTheProcess) {
  start();
  bridge(10);
  vrfEntry("red");
  members("red")->multicastIntfIs(intf("Vlan10"), true);
  mapping->vrfImmediateGroupStatusDel(vrf("red"));
  EXPECT_DEATH((void)sm->intfSm()->getVlanMappingConfig(vlan(10)),
               "ipTunnelMappingStatus\\(\\)->vrfImmediateGroupStatusHas\\( vrfName \\)");
}

}  // namespace
