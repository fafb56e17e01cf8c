#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "overlay/IngressL3RouteSm.h"
#include "overlay/L3OverlayGroupSm.h"
#include "tests/Changes.h"

namespace Multicast::Vpn {
namespace {

using Bridging::VlanId;
using Pavlin::IntfId;
using Pavlin::IpGenAddr;
using Reason = IngressL3RouteVrfSm::Reason;
using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;
using Texts = std::vector<std::string>;

const L3::VrfName red("red"), blue("blue");
const std::string S = "10.1.1.1", T = "10.1.1.2", G = "239.1.1.1", H = "239.1.1.2";
const Pavlin::EthAddr mac = Pavlin::EthAddr::fromText("00:00:00:00:00:01");

RouteKey routeKey(const std::string& source, const std::string& group) {
  const auto prefix = [](const std::string& text) {
    return text.find('/') == std::string::npos ? Pavlin::IpGenPrefix(IpGenAddr::fromText(text))
                                               : Pavlin::IpGenPrefix::fromText(text);
  };
  return {prefix(source), prefix(group)};
}

/// A pointer that comes with its record.
template <class T>
struct Made : Ombra::Ptr<T> {
  Made() : Ombra::Ptr<T>(Ombra::make<T>()) {}
};

/// One domain's own records and machines.
struct Domain {
  Made<IpTunnelMappingStatus> mapping;
  Made<IngressL3RouteStatus> status;
  Ombra::Ptr<VlanGroupTable> table = Ombra::make<VlanGroupTable>("L3OverlayRouteTable");
  Ombra::Ptr<IngressL3RouteSm> ingress;
  Ombra::Ptr<L3OverlayGroupSm> groups;
};

/// Vlans 10 and 20 are extended, 30 is not; VRF red has SBD vlan 100. The source S is in the
/// neighbour table only if a test says so.
class IngressRoutesTest : public testing::Test {
 protected:
  IngressRoutesTest() {
    Vesk::System::clockIs(&clock);
    scheduler.yieldPolicyIs(&oneItem);
    vti = vtiDir->vtiStatusIs(Pavlin::vxlan1IntfId());
    vti->operStatusIs(Vxlan::IntfOperStatus::up);
    vti->vlanToVniMapIs(VlanId(10), {});
    vti->vlanToVniMapIs(VlanId(20), {});
    vti->vrfToSBDVlanIs(red, VlanId(100));
    vrfIds->vrfIdToNameIs({Vrf::VrfIdMap::VrfId(1), red});
    for (Domain* domain : {&local, &remote})
      domain->mapping->multipleUnderlayGroupsDelayedVrfIs(red);
  }
  ~IngressRoutesTest() override {
    for (Domain* domain : {&local, &remote})
      stop(*domain);
    Vesk::System::clockIs(nullptr);
  }

  void start(Domain& d) {
    const auto notifiee = Ombra::make<OverlayVlanGroupLifetimeNotifiee>(
        OverlayVlanGroupLifetimeNotifiee::Inputs{.vlanGroupTable = d.table});
    d.groups = Ombra::make<L3OverlayGroupSm>(L3OverlayGroupSm::Inputs{
        .scheduler = &scheduler,
        .ingressL3RouteStatus = d.status,
        .vtiStatusDir = vtiDir,
        .vlanGroupDedupTable =
            Ombra::make<VlanGroupDedupTable>(VlanGroupDedupTable::Inputs{.notifiee = notifiee}),
        .vlanGroupTable = d.table});
    d.ingress =
        Ombra::make<IngressL3RouteSm>(IngressL3RouteSm::Inputs{.scheduler = &scheduler,
                                                               .addressFamily = Pavlin::ipv4(),
                                                               .ipTunnelMappingStatus = d.mapping,
                                                               .mfibStatus = fib,
                                                               .vtiStatusDir = vtiDir,
                                                               .arpBriskelVrfIdMap = vrfIds,
                                                               .arpStatus = arp,
                                                               .bridgingStatus = bridging,
                                                               .pegDrStatus = pegDr,
                                                               .mcastEvpnConfig = evpn,
                                                               .ingressL3RouteStatus = d.status,
                                                               .proactiveArpConfig = requests,
                                                               .gatewayESStatus = gateway,
                                                               .proactiveArpUse = use});
  }
  void stop(Domain& d) {
    d.groups = nullptr;
    d.ingress = nullptr;
  }
  void run() { scheduler.runUntilIdle(); }
  /// Settles, then asks for full reviews, which must find nothing to do.
  void rest(Domain& d) {
    run();
    Changes status(d.status), table(d.table), asked(requests);
    for (Vesk::Machine* sm : {static_cast<Vesk::Machine*>(d.ingress.get()),
                              static_cast<Vesk::Machine*>(d.groups.get())})
      sm->reviewAll();
    run();
    EXPECT_EQ(status.count + table.count + asked.count, 0);
  }

  Ombra::Ptr<Routing::Multicast::Fib::Hardware::RouteStatus> route(const std::string& source,
                                                                   const std::string& group,
                                                                   const std::string& iif,
                                                                   const L3::VrfName& vrf = red) {
    const auto row = fib->vrfStatusIs(vrf)->routeIs(routeKey(source, group));
    row->iifIs(IntfId(iif));
    row->lastActivityTimeIs(clock.now());
    return row;
  }
  void neighbourIs(const std::string& source, const std::string& intf,
                   const Pavlin::EthAddr& ethAddr = mac) {
    arp->arpEntryIs({arpKey(source, intf), ethAddr, IntfId(intf)});
  }
  static Arp::Table::ArpKey arpKey(const std::string& source, const std::string& intf) {
    return {Vrf::VrfIdMap::VrfId(1), IpGenAddr::fromText(source), IntfId(intf)};
  }
  void learntIs(unsigned vlan, const std::string& intf) {
    bridging->fdbEntryIs({{VlanId(vlan), mac}, IntfId(intf)});
  }

  static Texts routes(const Domain& d) {
    Texts texts;
    for (const auto& [vrf, status] : d.status->vrfStatusIterator())
      for (const auto& key : status->routeIterator())
        texts.push_back(Vesk::textOf(key));
    std::sort(texts.begin(), texts.end());
    return texts;
  }
  Texts asked() const {
    Texts texts;
    for (const auto& request : requests->requestIterator())
      texts.push_back(Vesk::textOf(request.key));
    std::sort(texts.begin(), texts.end());
    return texts;
  }

  Vesk::ManualClock clock{1000};
  Sylva::TaskScheduler scheduler;
  Sylva::ItemYield oneItem{1};
  Made<Vxlan::VtiStatusDir> vtiDir;
  Ombra::Ptr<Vxlan::VtiStatus> vti;
  Made<Vrf::VrfIdMap::Status> vrfIds;
  Made<Routing::Multicast::Fib::Hardware::Status> fib;
  Made<Arp::Table::Status> arp;
  Made<Briskel::Bridging::Status> bridging;
  Made<Routing::Multicast::PegDrStatus> pegDr;
  Made<Routing::Multicast::Evpn::Config> evpn;
  Made<Arp::ProactiveArp::ClientConfig> requests;
  Made<Irb::Multicast::GatewayEsStatus> gateway;
  Made<ProactiveArpUse> use;
  Domain local, remote;
};

// Each case is the decision for one route with the world turned as its letters say, before the
// route and after it: L local source, R learnt behind the tunnel, T transit VRF, P DR of the SBD
// vlan, N the same without role, g/b gateway vlan 10/100, d VTI down, s no SBD vlan.
TEST_F(IngressRoutesTest, decisionTable) {
  struct Case {
    const char *source, *group, *iif;
    double idle;  // seconds; -1: never any traffic
    const char* world;
    Reason route, arp;
  };
  using enum Reason;
  const char* const any = "0.0.0.0";
  const std::vector<Case> cases{
      {"10.1.1.1", "239.1.1.1", "", 0, "LTg", noIif, noIif},
      {"10.1.1.1", "239.1.1.0/28", "Vlan10", 0, "LTg", prefixGroup, prefixGroup},
      {"10.1.1.1", "239.1.1.1", "Vlan10", 0, "L", allowed, allowed},
      {"10.1.1.1", "239.1.1.1", "Vlan10", 0, "", nonLocalSource, allowed},
      {"10.1.1.1", "239.1.1.1", "Vlan10", 0, "R", nonLocalSource, allowed},
      {"10.1.1.1", "239.1.1.1", "Vlan10", 0, "TP", nonLocalSource, allowed},
      {any, "239.1.1.1", "Vlan10", 0, "", allowed, starGroupRoute},
      {"10.1.1.1", "239.1.1.1", "Vlan10", 210, "L", allowed, allowed},
      {"10.1.1.1", "239.1.1.1", "Vlan10", 211, "L", noRecentActivity, noRecentActivity},
      {"10.1.1.1", "239.1.1.1", "Vlan10", -1, "L", noRecentActivity, noRecentActivity},
      {"10.1.1.1", "239.1.1.1", "Vlan10", 0, "Ld", vxlanNotActive, vxlanNotActive},
      {"10.1.1.1", "239.1.1.1", "Vlan10", 0, "g", allowed, iifIsGatewayVlan},
      {"10.1.1.1", "239.1.1.1", "Vlan10", -1, "g", allowed, noRecentActivity},
      {"10.1.1.1", "239.1.1.1", "Vlan10", 0, "gd", allowed, vxlanNotActive},
      {"10.1.1.1", "239.1.1.1", "Vlan100", 0, "LTP", iifIsSbdVlan, iifIsSbdVlan},
      {"10.1.1.1", "239.1.1.1", "Vlan100", 0, "bP", allowed, iifIsSbdVlan},
      {"10.1.1.1", "239.1.1.1", "Ethernet1", 0, "L", notPegDrSbdVlan, iifIsNotVxlanVlan},
      {"10.1.1.1", "239.1.1.1", "Ethernet1", 0, "N", notPegDrSbdVlan, iifIsNotVxlanVlan},
      {"10.1.1.1", "239.1.1.1", "Ethernet1", 0, "P", allowed, iifIsNotVxlanVlan},
      {"10.1.1.1", "239.1.1.1", "Ethernet1", 0, "Ps", notPegDrSbdVlan, iifIsNotVxlanVlan},
      {"10.1.1.1", "239.1.1.1", "Vlan30", 0, "T", allowed, iifIsNotVxlanVlan},
      {"10.1.1.1", "239.1.1.1", "Vlan5000", 0, "T", allowed, iifIsNotVxlanVlan},
      {"10.1.1.1", "239.1.1.1", "Ethernet1", 300, "TP", noRecentActivity, noRecentActivity},
  };
  const auto turn = [&](const std::string& world) {
    for (const char c : world) {
      if (c == 'L' || c == 'R') neighbourIs(S, "Vlan10");
      if (c == 'L' || c == 'R') learntIs(10, c == 'L' ? "Ethernet5" : "Vxlan1");
      if (c == 'T') evpn->transitVrfIs(red);
      if (c == 'P') pegDr->pegDrVlanIs({VlanId(100), Routing::Multicast::PegDrRole::dr});
      if (c == 'N') pegDr->pegDrVlanIs({VlanId(100), Routing::Multicast::PegDrRole::notDr});
      if (c == 'g') gateway->esVlanStatusIs({VlanId(10), {}});
      if (c == 'b') gateway->esVlanStatusIs({VlanId(100), {}});
      if (c == 'd') vti->operStatusIs(Vxlan::IntfOperStatus::down);
      if (c == 's') vti->vrfToSBDVlanDel(red);
    }
  };
  const auto turnBack = [&] {
    arp->arpEntryDelAll();
    bridging->fdbEntryDelAll();
    evpn->transitVrfDelAll();
    pegDr->pegDrVlanDelAll();
    gateway->esVlanStatusDelAll();
    vti->operStatusIs(Vxlan::IntfOperStatus::up);
    vti->vrfToSBDVlanIs(red, VlanId(100));
  };
  for (const bool worldFirst : {true, false}) {
    start(local);
    run();
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(c.source) + " " + c.group + " " + c.iif + " " + c.world);
      if (worldFirst) turn(c.world);
      const auto row = route(c.source, c.group, c.iif);
      row->lastActivityTimeIs(c.idle < 0 ? 0 : clock.now() - c.idle);
      run();
      if (!worldFirst) turn(c.world);
      run();
      const auto sm = local.ingress->vrfSm(red);
      EXPECT_EQ(sm->judgeRoute(*row, clock.now()).reason, c.route);
      EXPECT_EQ(sm->judgeProactiveArp(*row, clock.now()).reason, c.arp);
      EXPECT_EQ(routes(local).size(), c.route == allowed ? 1U : 0U);
      EXPECT_EQ(asked().size(), c.arp == allowed ? 1U : 0U);
      EXPECT_EQ(sm->acceptingIntfIdCount(), c.route == allowed || c.arp == allowed ? 1U : 0U);
      EXPECT_EQ(local.status->vrfStatusCount(), routes(local).size());
      rest(local);
      turnBack();
      fib->vrfStatus(red)->routeDelAll();
      run();
      EXPECT_EQ(routes(local).size() + asked().size() + local.table->vlanCount(), 0U);
      EXPECT_EQ(use->usersCount() + sm->routeSmCount() + sm->acceptingIntfIdCount(), 0U);
    }
    stop(local);
  }
}

// Of two VRFs the SBD vlan of one moves with every slice. The routes of the other are judged, have
// their rows, and follow their own SBD vlan within a bounded number of slices.
TEST_F(IngressRoutesTest, noStreamOfEventsOfOneVrfKeepsAnotherWaiting) {
  constexpr unsigned routesEach = 250;
  constexpr int bound = 100;
  Sylva::ItemYield hundred{100};
  scheduler.yieldPolicyIs(&hundred);
  for (const L3::VrfName& vrf : {red, blue}) {
    evpn->transitVrfIs(vrf);
    local.mapping->multipleUnderlayGroupsDelayedVrfIs(vrf);
    for (unsigned i = 0; i < routesEach; ++i)
      route(S, "239.1.1." + std::to_string(i), "Ethernet1", vrf);
  }
  for (const auto& [waiting, restless] : {std::pair{red, blue}, std::pair{blue, red}}) {
    SCOPED_TRACE(waiting.str());
    local.status->readyIs(false);
    local.table->readyIs(false);
    vti->vrfToSBDVlanIs(waiting, VlanId(100));
    start(local);
    const auto slicesUntil = [&](const auto& isReached) {
      int slices = 0;
      for (; slices < bound && !isReached(); ++slices) {
        vti->vrfToSBDVlanIs(restless, VlanId(200 + static_cast<unsigned>(slices) % 2));
        scheduler.runUntilIdle(1);
      }
      return slices;
    };
    const auto rowsOf = [&](unsigned vlan) {
      const auto row = local.table->vlan(VlanId(vlan));
      return row ? row->groupCount() : 0;
    };
    EXPECT_LT(slicesUntil([&] { return local.status->ready() && rowsOf(100) == routesEach; }),
              bound);
    EXPECT_LT(slicesUntil([&] { return local.table->ready(); }), bound);
    vti->vrfToSBDVlanIs(waiting, VlanId(101));
    EXPECT_LT(slicesUntil([&] { return rowsOf(101) == routesEach && rowsOf(100) == 0; }), bound);
    stop(local);
  }
  scheduler.yieldPolicyIs(&oneItem);
}

}  // namespace
}  // namespace Multicast::Vpn
