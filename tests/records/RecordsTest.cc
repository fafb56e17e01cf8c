// Records: all of them are known by name, and the reads that they compute give what the tables here
// say.

#include <map>
#include <set>

#include <gtest/gtest.h>

#include "records/BriskelInputs.h"
#include "records/Egress.h"
#include "records/ElectedDf.h"
#include "records/EncapTables.h"
#include "records/Fib.h"
#include "records/IpTunnelMappingStatus.h"
#include "records/MlagVxlanState.h"
#include "records/Tunnels.h"
#include "records/VrfLeak.h"
#include "records/VrfNames.h"

namespace {

using Bridging::VlanId;
using Irb::Multicast::ReceiverDomain;
using Ombra::make;
using Pavlin::IpGenAddr;
using Routing::Multicast::OverlayAddr;
using Routing::Multicast::UnderlayAddr;
using Routing::Multicast::UnderlayRoute;
using Vesk::valueOf;

/// The value that a text stands for.
template <class T>
T of(const char* text) {
  return valueOf<T>(text);
}

TEST(Records, countTheirAttributesApartAndReadTheirDefaultsBack) {
  for (const auto* record : Vesk::RecordType::all()) {
    // Two attributes under one id would answer each other's subscriptions.
    std::set<Ombra::FieldId> ids;
    for (const auto* field : record->fields()) {
      SCOPED_TRACE(testing::Message() << record->name() << " " << field->name);
      EXPECT_TRUE(ids.insert(field->id).second);
      for (const auto* type : {field->keyType, field->valueType}) {
        if (type == nullptr) continue;
        const std::string bytes = type->defaultBytes();
        EXPECT_EQ(type->bytes(type->text(bytes)), bytes) << type->text(bytes);
      }
    }
  }
}

// Immediate groups, which come before both, are judged by the random histories.
TEST(VlanToGroupMapping, prefersThePoolToTheDefault) {
  const struct {
    const char *vlanDefault, *vrfDefault, *pool, *overlay, *underlay;
  } cases[]{
      // The default: an any address is none.
      {"0.0.0.0", "232.2.2.2", "none", "239.1.1.5", "232.2.2.2"},
      // The pool: host bits of the overlay group, across families too, not for the any group.
      {"232.1.1.1", "none", "232.9.9.0/28", "239.1.1.37", "232.9.9.5"},
      {"none", "none", "232.9.8.0/23", "239.1.3.37", "232.9.9.37"},
      {"none", "none", "232.9.9.9/32", "239.1.3.37", "232.9.9.9"},
      {"none", "none", "232.9.9.0/24", "ff05::1:107", "232.9.9.7"},
      {"none", "none", "ff3e::8000:0/97", "ff05::1:107", "ff3e::8001:107"},
      {"232.1.1.1", "none", "232.9.9.0/24", "0.0.0.0", "232.1.1.1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.overlay << " in pool " << c.pool);
    const auto overlay = of<OverlayAddr>(c.overlay);
    const auto vlan = make<Routing::Multicast::IpTunnelConfigEntry>();
    vlan->defaultUnderlayGroupIs(of<UnderlayAddr>(c.vlanDefault));
    const auto vrf = make<Routing::Multicast::IpTunnelConfigEntry>();
    vrf->defaultUnderlayGroupIs(of<UnderlayAddr>(c.vrfDefault));
    vrf->underlayGroupRangeIs(of<Pavlin::IpGenPrefix>(c.pool));
    const auto mapping = make<Multicast::Vpn::VlanToGroupMapping>(VlanId(10));
    EXPECT_EQ(mapping->underlayGroup(overlay), UnderlayAddr()) << "without any configuration";
    mapping->vlanTunnelConfigEntryIs(vlan);
    mapping->vrfTunnelConfigEntryIs(vrf);
    EXPECT_EQ(mapping->underlayGroup(overlay).text(), c.underlay);
  }
}

TEST(MlagVxlanState, joinsByTheStateOfTheFamily) {
  using namespace Routing::Multicast;
  const struct {
    const char *join, *parity, *join6, *parity6, *group;
    bool joins;
  } cases[]{
      {"notApplicable", "parity0", "noGroups", "parity0", "232.1.1.1", true},
      {"noGroups", "parity0", "allGroups", "parity0", "232.1.1.1", false},
      {"someGroups", "parity0", "noGroups", "parity1", "232.1.1.1", false},
      {"someGroups", "parity1", "noGroups", "parity0", "232.1.1.1", true},
      {"someGroups", "parity0", "noGroups", "parity1", "232.1.1.2", true},
      {"someGroups", "parity1", "noGroups", "parity0", "232.1.1.2", false},
      {"allGroups", "parity0", "someGroups", "parity1", "ff3e::3", true},
      {"allGroups", "parity1", "someGroups", "parity0", "ff3e::3", false},
      {"allGroups", "parity0", "noGroups", "parity0", "ff3e::3", false},
      {"noGroups", "parity0", "noGroups", "parity0", "none", true},
  };
  for (const auto& c : cases) {
    const auto state = make<Routing::Multicast::MlagVxlanState>();
    state->mlagUnderlayJoinIs(of<MlagUnderlayJoin::State>(c.join));
    state->parityIs(of<MlagPeerParity::Parity>(c.parity));
    state->mlagUnderlayJoin6Is(of<MlagUnderlayJoin::State>(c.join6));
    state->parity6Is(of<MlagPeerParity::Parity>(c.parity6));
    UnderlayRoute route;
    route.underlayGroup = of<UnderlayAddr>(c.group);
    EXPECT_EQ(state->mlagFilterUnderlayRoute(route), c.joins) << c.join << c.join6 << c.group;
  }
}

/// Joins, SBD binding and leak of one family, with two clients of different masks and the peer.
class MembershipJoins : public testing::Test {
 protected:
  MembershipJoins() {
    for (const char* name : {"client0", "client5", "client11"})
      coll->localMembershipIs(client(name));
    coll->peerMembershipIs(client("client3"));
  }
  Ombra::Ptr<Irb::Multicast::Gmp::MembershipJoinStatus> client(const char* name) {
    auto& status = clients[name];
    if (!status) status = make<Irb::Multicast::Gmp::MembershipJoinStatus>();
    status->nameIs(name);
    return status;
  }
  auto join(const char* name, std::uint32_t vlan, const char* group) {
    return client(name)->vlanIs(VlanId(vlan))->groupIs(of<IpGenAddr>(group));
  }
  void peerJoin(const char* group, const char* source, const char* intf, bool second = false) {
    const auto entry = join("client3", 10, group)->sourceIs(of<IpGenAddr>(source));
    second ? entry->secondIntfIs(Pavlin::IntfId(intf)) : entry->firstIntfIs(Pavlin::IntfId(intf));
  }
  unsigned active(const char* group) const {
    return static_cast<unsigned>(coll->groupActive(VlanId(10), of<IpGenAddr>(group)));
  }
  unsigned vlanActive() const { return static_cast<unsigned>(coll->vlanActive(VlanId(10))); }

  /// Groups of 239.7.0.0/16 in vlans of SBD 500, which serves red, leak to blue.
  void leak() {
    using namespace Routing::Multicast::VrfLeak;
    const auto irb = make<Irb::Multicast::McastIrbStatus>();
    irb->vlanToSbdIs({VlanId(10), VlanId(500)});
    const auto enabled = make<Vxlan::EnabledStatus>();
    enabled->sbdVlanToVrfIs(500, L3::VrfName("red"));
    const auto config = make<McastVrfLeakConfig>();
    const auto red = config->vrfConfigIs(L3::VrfName("red"));
    red->leakPrefixListIs("b", L3::VrfName("green"));
    red->leakPrefixListIs("a", L3::VrfName("blue"));
    red->leakPrefixListIs("absent", L3::VrfName("grey"));
    const auto policy = make<Routing::Policy::PolicyRoot>();
    for (const char* list : {"a", "b"})
      policy->prefixListIs(list)->prefixIs(of<Pavlin::IpGenPrefix>("239.7.0.0/16"));
    policy->prefixListIs("b")->prefixIs(of<Pavlin::IpGenPrefix>("239.8.0.0/16"));
    matcher->vrfLeakConfigIs(config);
    matcher->policyRootIs(policy);
    matcher->vrfStatusIs(L3::VrfName("red"));
    const auto context = make<Irb::Multicast::Egress::McastVrfLeakCtx>();
    context->mcastIrbStatusIs(irb);
    context->vxlanEnabledStatusIs(enabled);
    context->vrfLeakMatcherStatusIs(matcher);
    coll->mcastVrfLeakCtxIs(context);
  }

  std::map<std::string, Ombra::Ptr<Irb::Multicast::Gmp::MembershipJoinStatus>> clients;
  Ombra::Ptr<Irb::Multicast::Egress::MembershipJoinStatusColl> coll =
      make<Irb::Multicast::Egress::MembershipJoinStatusColl>();
  Ombra::Ptr<Routing::Multicast::VrfLeak::VrfLeakMatcherStatus> matcher =
      make<Routing::Multicast::VrfLeak::VrfLeakMatcherStatus>();
};

TEST_F(MembershipJoins, addUpTheMasksOfTheClients) {
  EXPECT_EQ(active("239.1.1.1"), 0U);
  join("client0", 10, "239.1.1.1");
  join("client5", 10, "239.1.1.1");
  join("client5", 20, "239.9.9.9");
  EXPECT_EQ(active("239.1.1.1"), 9U);
  EXPECT_EQ(active("239.9.9.9"), 0U);
  join("client11", 10, "::");
  EXPECT_EQ(active("239.9.9.9"), 4U) << "a wildcard counts for every group";
  EXPECT_EQ(vlanActive(), 13U);
}

TEST_F(MembershipJoins, tellThePeersPlainReceiversFromThoseBehindTunnels) {
  join("client3", 10, "0.0.0.0");
  EXPECT_EQ(active("239.1.1.1"), 0U) << "no wildcard of the peer";
  peerJoin("239.1.1.1", "0.0.0.0", "Ethernet1");
  EXPECT_EQ(active("239.1.1.1"), 1U);
  peerJoin("239.1.1.2", "0.0.0.0", "McastTunnel1", true);
  EXPECT_EQ(active("239.1.1.2"), 2U);
  EXPECT_EQ(vlanActive(), 3U);
  peerJoin("239.1.1.2", "10.0.0.1", "Ethernet1");
  EXPECT_EQ(active("239.1.1.2"), 3U);
}

TEST_F(MembershipJoins, leaveOutLeakedGroups) {
  join("client0", 10, "239.7.1.1");
  EXPECT_EQ(active("239.7.1.1"), 1U);
  leak();
  EXPECT_EQ(active("239.7.1.1"), 0U);
  EXPECT_EQ(vlanActive(), 0U);
  EXPECT_FALSE(coll->leakedGroup(VlanId(20), of<IpGenAddr>("239.7.1.1"))) << "no SBD";
  const auto leakedTo = [&](const char* vrf, const char* group) {
    return matcher->shouldLeak(L3::VrfName(vrf), of<IpGenAddr>(group)).str();
  };
  EXPECT_EQ(leakedTo("red", "239.7.1.1"), "blue") << "the first list by name decides";
  EXPECT_EQ(leakedTo("red", "239.8.1.1"), "green");
  EXPECT_EQ(leakedTo("red", "239.9.1.1"), "");
  EXPECT_EQ(leakedTo("blue", "239.7.1.1"), "");
  join("client5", 10, "0.0.0.0");
  EXPECT_EQ(active("239.7.1.1"), 8U) << "a wildcard counts for leaked groups too";
}

}  // namespace
