// The SBD pipelines against a direct computation: at once and in slices, over rows that a
// predecessor left, with events between the slices.

#include <map>
#include <random>

#include <gtest/gtest.h>

#include "pipeline/GmpProxyStatusSm.h"
#include "pipeline/McastIrbStatusSm.h"
#include "tests/Changes.h"
#include "vxlan/VxlanSm.h"

namespace pipelinetest {

using namespace Irb::Multicast;
using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using L3::VrfName;
using Vrf::VrfIdMap::VrfId;
using Intfs = Routing::Multicast::MulticastIntfsForApplications;
using IntfColl = Routing::Multicast::MulticastIntfsAppRootSmColl;

class Signal : public Vesk::Entity {
  VESK_LOCAL_RECORD(pipelinetest::Signal)
  VESK_VALUE(bool, go)
};

struct World;
class Starter : public Vesk::Machine {
  VESK_LOCAL_RECORD(pipelinetest::Starter)
  struct Inputs {
    World* world;
    Ombra::Ptr<Signal> signal;
    bool operator==(const Inputs&) const = default;
  };
  explicit Starter(Inputs inputs) : in(std::move(inputs)) {}
  const Inputs in;

 private:
  void handleGo();
  Vesk::Watch go_ = watch<&Starter::handleGo>(in.signal, Signal::goAttr);
};

/// The inputs and outputs of both pipelines, and the pipelines over them.
struct World {
  Ombra::Ptr<Routing::Multicast::MvpnIntfStatus> mvpn =
      Ombra::make<Routing::Multicast::MvpnIntfStatus>();
  Ombra::Ptr<Vxlan::VtiStatusDir> vtis = Ombra::make<Vxlan::VtiStatusDir>();
  Ombra::Ptr<Vrf::VrfIdMap::Status> ids = Ombra::make<Vrf::VrfIdMap::Status>();
  Ombra::Ptr<IgmpProxyStatus> proxy = Ombra::make<IgmpProxyStatus>();
  Ombra::Ptr<Vesk::Dir> apps = Ombra::make<Vesk::Dir>();
  Ombra::Ptr<IntfColl> intfs = Ombra::make<IntfColl>();
  Ombra::Ptr<GmpProxyStatus> gmpProxy = Ombra::make<GmpProxyStatus>();
  Ombra::Ptr<McastIrbStatus> irb = Ombra::make<McastIrbStatus>();
  Ombra::Ptr<GmpProxyStatusSm> gmpProxySm;
  Ombra::Ptr<McastIrbStatusSm> irbSm;

  World() { apps->createEntity("Vesk::Dir", "routing"); }
  void startGmpProxy(Sylva::TaskScheduler* scheduler) {
    gmpProxySm = Ombra::make<GmpProxyStatusSm>(
        GmpProxyStatusSm::Inputs{.mvpnIntfStatus = mvpn,
                                 .vtiStatusDir = vtis,
                                 .vrfIdStatus = ids,
                                 .gmpProxyStatus = gmpProxy,
                                 .smControl = {.taskScheduler = scheduler}});
  }
  void startIrb(Sylva::TaskScheduler* scheduler) {
    irbSm = Ombra::make<McastIrbStatusSm>(
        McastIrbStatusSm::Inputs{.igmpProxyStatus = proxy,
                                 .gmpProxyStatus = gmpProxy,
                                 .vtiStatusDir = vtis,
                                 .mcastIntfColl = intfs,
                                 .mcastIrbStatus = irb,
                                 .smControl = {.taskScheduler = scheduler}});
  }
  /// Both in the order of the agent, inside of one write as there.
  void start() {
    const auto signal = Ombra::make<Signal>();
    const auto starter = Ombra::make<Starter>(Starter::Inputs{this, signal});
    signal->goIs(true);
  }
  void stop() {
    gmpProxySm = nullptr;
    irbSm = nullptr;
  }
  Ombra::Ptr<Vxlan::VtiStatus> vxlan1() { return vtis->vtiStatusIs(Pavlin::vxlan1IntfId()); }
  Ombra::Ptr<Intfs> intfsOf(const VrfName& vrf) {
    const auto routing = boost::dynamic_pointer_cast<Vesk::Dir>(apps->entityPtr("routing"));
    return boost::dynamic_pointer_cast<Intfs>(
        routing->createEntity(Intfs::veskName, std::string(vrf.str())));
  }
  static Pavlin::IntfId svi(VlanId vlan) { return Pavlin::VlanIntfId::vlanIdToIntfId(vlan); }

  [[nodiscard]] std::map<VrfName, VlanId> wantedVrfs() {
    std::map<VrfName, VlanId> wanted;
    for (const auto& [id, entry] : ids->vrfIdToNameIterator()) {
      std::vector<VlanId> claims;
      if (const auto intf = mvpn->vrfIntfId(id).pmsiIntfId; Pavlin::VlanIntfId::isVlanIntfId(intf))
        claims.push_back(Pavlin::VlanIntfId::vlanId(intf).vlanId());
      if (const auto vti = vtis->vtiStatus(Pavlin::vxlan1IntfId()))
        if (const auto vlan = vti->vrfToSBDVlan(entry.vrfName); !vlan.isNone())
          claims.push_back(vlan.vlanId());
      if (!claims.empty()) wanted[entry.vrfName] = *std::min_element(claims.begin(), claims.end());
    }
    return wanted;
  }
  [[nodiscard]] std::map<unsigned, unsigned> wantedVlans() {
    std::map<unsigned, unsigned> wanted;
    const auto vti = vtis->vtiStatus(Pavlin::vxlan1IntfId());
    const bool up = vti && vti->operStatus() == Vxlan::IntfOperStatus::up;
    for (unsigned vlan = 1; vlan <= 40; ++vlan)
      for (const auto& [vrf, member] : intfs->vrfSmIterator()) {
        if (!member->multicastIntfHas(svi(VlanId(vlan)))) continue;
        const auto vxlan = vti ? vti->vrfToSBDVlan(vrf) : VlanIdOrNone();
        const auto all = wantedVrfs();
        unsigned sbd = up && !vxlan.isNone() ? vxlan.value() : 0;
        if (sbd == 0 && all.contains(vrf)) sbd = all.at(vrf).value();
        if (proxy->igmpProxyVlanHas(VlanId(vlan)) && sbd != 0 && sbd != vlan) wanted[vlan] = sbd;
        break;  // the first VRF that holds the SVI
      }
    return wanted;
  }
  [[nodiscard]] std::string difference() {
    std::map<VrfName, VlanId> vrfs;
    for (const auto& [vrf, vlan] : gmpProxy->vrfToSbdVlanIterator())
      vrfs.emplace(vrf, vlan);
    if (vrfs != wantedVrfs()) return "gmpProxyStatus.vrfToSbdVlan";
    for (const auto& [vrf, vlan] : wantedVrfs())
      if (gmpProxy->sbdVlanToVrf(vlan) != vrf) return "gmpProxyStatus.sbdVlanToVrf";
    if (gmpProxy->vrfIdToSbdVlanCount() != vrfs.size()) return "gmpProxyStatus.vrfIdToSbdVlan";
    std::map<unsigned, unsigned> vlans;
    for (const auto& [vlan, row] : irb->vlanToSbdIterator())
      vlans[vlan.value()] = row.sbdVlan.value();
    return vlans == wantedVlans() ? ""
                                  : "vlanToSbd " + testing::PrintToString(vlans) + ", wanted " +
                                        testing::PrintToString(wantedVlans());
  }
};

void Starter::handleGo() {
  in.world->startIrb(nullptr);
  in.world->startGmpProxy(nullptr);
}

/// Events that never let VXLAN and MPLS claim different vlans for one VRF.
class Events {
 public:
  Events(World& world, std::uint64_t seed) : world_(world), random_(seed) {}
  unsigned draw(unsigned n) { return static_cast<unsigned>(random_() % n); }
  void next() {
    const unsigned n = draw(3);
    const VrfName vrf(std::vector<std::string>{"red", "blue", "green"}[n]);
    const VrfId id(n + 1);
    const VlanId sbd(30 + 2 * n + draw(2)), vlan(1 + draw(6));
    switch (draw(10)) {
      case 0:
        return world_.vxlan1()->operStatusIs(draw(3) != 0 ? Vxlan::IntfOperStatus::up
                                                          : Vxlan::IntfOperStatus::down);
      case 1:
        world_.mvpn->vrfIntfIdDel(id);
        if (draw(3) == 0) return world_.vxlan1()->vrfToSBDVlanDel(vrf);
        return world_.vxlan1()->vrfToSBDVlanIs(vrf, draw(8) == 0 ? VlanIdOrNone(0) : sbd);
      case 2: {  // an MPLS claim needs a name
        const VlanIdOrNone present = world_.vxlan1()->vrfToSBDVlan(vrf);
        if (!world_.ids->vrfIdToNameHas(id)) return;
        const VlanId claim = present.isNone() ? sbd : present.vlanId();
        return world_.mvpn->vrfIntfIdIs({id, draw(6) == 0 ? Pavlin::IntfId() : World::svi(claim)});
      }
      case 3:
        return world_.mvpn->vrfIntfIdDel(id);
      case 4:
        if (draw(2) == 0) return world_.ids->vrfIdToNameIs({id, vrf});
        world_.mvpn->vrfIntfIdDel(id);
        return world_.ids->vrfIdToNameDel(id);
      case 5:
        if (draw(2) == 0) return world_.proxy->igmpProxyVlanDel(vlan);
        [[fallthrough]];
      case 6:
        return world_.proxy->igmpProxyVlanIs(draw(8) == 0 ? sbd : vlan);
      case 7:
        if (draw(4) == 0) return world_.intfs->vrfSmDel(vrf);
        world_.intfs->vrfSmIs(vrf, {.vrfName = vrf, .multicastAppDirRoot = world_.apps});
        return;
      case 8:
        return world_.intfsOf(vrf)->multicastIntfDel(World::svi(vlan));
      default:
        return world_.intfsOf(vrf)->multicastIntfIs(World::svi(draw(8) == 0 ? sbd : vlan), true);
    }
  }

 private:
  World& world_;
  std::mt19937_64 random_;
};

class PipelinesTest : public testing::Test {
 protected:
  ~PipelinesTest() override { Vesk::Publisher::shuffleSeedIs(0); }
  World world;
  Sylva::TaskScheduler scheduler;
};

TEST_F(PipelinesTest, historiesAgreeWithADirectComputationAtOnceAndInSlices) {
  for (std::uint64_t seed = 1; seed <= 200; ++seed) {
    World fresh;
    Events events(fresh, seed);
    Sylva::ItemYield slices(1 + seed % 3);
    const bool inSlices = seed % 2 == 0;
    Vesk::Publisher::shuffleSeedIs(seed);
    scheduler.yieldPolicyIs(&slices);
    const auto settle = [&](std::size_t limit = Sylva::TaskScheduler::unlimited) {
      scheduler.runUntilIdle(limit);
    };
    fresh.vxlan1()->operStatusIs(Vxlan::IntfOperStatus::up);
    for (int life = 0; life < 3; ++life) {
      for (int i = 0; i < 12; ++i)
        events.next();
      fresh.irb->vlanToSbdIs({VlanId(39), VlanId(38)});  // of a predecessor
      fresh.gmpProxy->vrfToSbdVlanIs(VrfName("stale"), VlanId(31));
      const auto disturb = [&](int times) {
        for (int i = 0; i < times; ++i) {
          settle(events.draw(3));
          events.next();
        }
        settle();
      };
      if (inSlices) {
        fresh.startGmpProxy(&scheduler);
        disturb(6);
        fresh.startIrb(&scheduler);
        disturb(6);
      } else {
        fresh.start();
      }
      for (int i = 0; i < 25; ++i) {
        ASSERT_EQ(fresh.difference(), "") << "seed " << seed << " life " << life << " event " << i;
        events.next();
        settle();  // an input that came has a scan of its own
      }
      ASSERT_EQ(fresh.difference(), "") << "seed " << seed << " life " << life;
      ASSERT_TRUE(fresh.irbSm->ready() && fresh.gmpProxySm->ready());
      ASSERT_EQ(fresh.irbSm->mcastIrbStatusVlanToSbdOutputSeenCount(), 0U);
      fresh.stop();
    }
    scheduler.yieldPolicyIs(nullptr);
  }
}

TEST_F(PipelinesTest, aRestartKeepsItsPredecessorsRowsUntilAllIsScannedAndRewritesNone) {
  for (unsigned vlan = 1; vlan <= 20; ++vlan) {
    world.proxy->igmpProxyVlanIs(VlanId(vlan));
    world.intfsOf(VrfName("red"))->multicastIntfIs(World::svi(VlanId(vlan)), true);
    world.irb->vlanToSbdIs({VlanId(vlan), VlanId(30)});
  }
  world.irb->vlanToSbdIs({VlanId(25), VlanId(30)});
  world.intfs->vrfSmIs(VrfName("red"),
                       {.vrfName = VrfName("red"), .multicastAppDirRoot = world.apps});
  world.vxlan1()->operStatusIs(Vxlan::IntfOperStatus::up);
  world.vxlan1()->vrfToSBDVlanIs(VrfName("red"), VlanId(30));
  const Changes changes(world.irb);

  Sylva::ItemYield slices(1);
  scheduler.yieldPolicyIs(&slices);
  world.startIrb(&scheduler);
  const McastIrbStatusSm& sm = *world.irbSm;
  EXPECT_FALSE(sm.initialScanDone());
  EXPECT_EQ(scheduler.pendingTaskNames().front(),
            "Irb::Multicast::McastIrbStatusSm-VtiStatusDirSm4InputScanTask3");
  while (!sm.inputSmScanState()->idle()) {
    EXPECT_EQ(changes.count, 0);
    ASSERT_TRUE(scheduler.runOne());
  }
  scheduler.runUntilIdle();
  EXPECT_EQ(changes.count, 1) << "the one that nobody wants any more";
  EXPECT_FALSE(world.irb->vlanToSbdHas(VlanId(25)));
  EXPECT_TRUE(sm.inputSmScanState()->idle() && sm.outputState()->ready());
}

TEST_F(PipelinesTest, anSviThatMovesAndItsLateGoodbyeLeaveTheNewRow) {
  for (const auto* vrf : {"red", "blue"})
    world.intfs->vrfSmIs(VrfName(vrf),
                         {.vrfName = VrfName(vrf), .multicastAppDirRoot = world.apps});
  world.vxlan1()->operStatusIs(Vxlan::IntfOperStatus::up);
  world.vxlan1()->vrfToSBDVlanIs(VrfName("red"), VlanId(30));
  world.vxlan1()->vrfToSBDVlanIs(VrfName("blue"), VlanId(31));
  world.proxy->igmpProxyVlanIs(VlanId(5));
  world.start();
  const auto svi = World::svi(VlanId(5));
  for (const auto& [from, to, sbd] :
       {std::tuple("red", "blue", 31), std::tuple("blue", "red", 30)}) {
    world.intfsOf(VrfName(to))->multicastIntfIs(svi, true);
    world.intfsOf(VrfName(from))->multicastIntfDel(svi);
    EXPECT_EQ(world.irb->vlanToSbd(VlanId(5)).sbdVlan.value(), sbd);
  }
  world.irbSm->doDeleteAll();  // withdraws what came from the inputs
  EXPECT_EQ(world.irb->vlanToSbdCount(), 0U);
}

TEST_F(PipelinesTest, claimsThatContradictEachOtherEndTheProcessAtRestOnly) {
  world.intfs->vrfSmIs(VrfName("red"),
                       {.vrfName = VrfName("red"), .multicastAppDirRoot = world.apps});
  world.intfsOf(VrfName("red"))->multicastIntfIs(World::svi(VlanId(5)), true);
  world.proxy->igmpProxyVlanIs(VlanId(5));
  world.vxlan1()->vrfToSBDVlanIs(VrfName("red"), VlanId(30));
  world.ids->vrfIdToNameIs({VrfId(1), VrfName("red")});
  world.start();
  world.vxlan1()->vrfToSBDVlanIs(VrfName("red"), VlanId(31));  // on its way through both
  EXPECT_EQ(world.irb->vlanToSbd(VlanId(5)).sbdVlan.value(), 31);
  EXPECT_DEATH(world.mvpn->vrfIntfIdIs({VrfId(1), World::svi(VlanId(20))}),
               R"(\( \( \*vxlanSbd \) == \( \*mplsSbd \) \) )");
  EXPECT_DEATH(world.mvpn->vrfIntfIdIs({VrfId(7), World::svi(VlanId(20))}), "vrfName ");
  world.mvpn->vrfIntfIdIs({VrfId(7), Pavlin::VlanIntfId::vlanIdToIntfId(5000)});  // internal
  EXPECT_EQ(world.gmpProxySm->groupByAttr1Count(), 1U);
}

TEST_F(PipelinesTest, withoutMplsTheVxlanMachineWritesTheSameRowsWhileVxlan1IsUp) {
  for (std::uint64_t seed = 1; seed <= 100; ++seed) {
    World fresh;
    Events events(fresh, seed);
    Vesk::Publisher::shuffleSeedIs(seed);
    fresh.vxlan1();
    fresh.start();
    const auto other = Ombra::make<McastIrbStatus>();
    const auto vxlanSm = Ombra::make<VxlanSm>(VxlanSm::Inputs{.vtiStatusDir = fresh.vtis,
                                                              .igmpProxyStatus = fresh.proxy,
                                                              .mcastIntfRoot = fresh.intfs,
                                                              .mcastIrbStatus = other});
    for (int i = 0; i < 60; ++i) {
      events.next();
      for (unsigned id = 1; id <= 3; ++id)
        fresh.mvpn->vrfIntfIdDel(VrfId(id));
      const bool up = fresh.vxlan1()->operStatus() == Vxlan::IntfOperStatus::up;
      std::map<unsigned, unsigned> rows;
      for (const auto& [vlan, row] : other->vlanToSbdIterator())
        rows[vlan.value()] = row.sbdVlan.value();
      ASSERT_EQ(rows, up ? fresh.wantedVlans() : decltype(rows)()) << "seed " << seed;
      if (up) {
        ASSERT_EQ(fresh.difference(), "") << "seed " << seed;
      }
    }
  }
}

}  // namespace pipelinetest
