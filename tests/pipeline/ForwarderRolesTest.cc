// The pipelines of forwarder roles in slices: events between them, rows of a predecessor, a segment
// on a tunnel, gateways that read as corrupt, and the same roles at the end as at once.

#include <map>
#include <random>

#include <gtest/gtest.h>

#include "pipeline/EDFSm.h"
#include "pipeline/ElectedDFStatusSm.h"

namespace Multicast {
namespace {

using Bridging::ExtendedVlanId;
using Bridging::VlanId;
using namespace Routing::Multicast;

class World {
 public:
  World(std::uint64_t seed, Sylva::TaskScheduler* scheduler) : random_(seed) {
    for (unsigned vlan = 1; vlan <= 12; ++vlan)
      roles_->intfStatusIs({{port(9), VlanId(vlan)}, ExternalForwarderRole::drForwarder});
    for (int i = 0; i < 60; ++i)
      event();
    for (const unsigned sbd : {100, 101}) {
      const auto teps = neighbours_->pegVlanNeighborIs(ExtendedVlanId(sbd));
      teps->tepIs(corruptTep_);
      PegVlanNeighbor::veskType().field("tep")->corruptIs(*teps, Vesk::bytesOf(corruptTep_), true);
    }
    elected_ = Ombra::make<ElectedDFStatusSm>(
        ElectedDFStatusSm::Inputs{evpn_, electedDir_, {.taskScheduler = scheduler}});
    edf_ = Ombra::make<EDFSm>(EDFSm::Inputs{
        electedDir_, peg_, pegVlans_, neighbours_, irb_, roles_, {.taskScheduler = scheduler}});
  }
  /// One of few things in few places.
  void event() {
    const VlanId vlan(1 + draw(12));
    const VlanId sbd(100 + draw(2));
    const auto segment = evpn_->segmentStatusIs(port(draw(5)));
    switch (draw(7)) {
      case 0:
        draw(3) != 0 ? segment->configuredVlanIs(vlan) : segment->configuredVlanDel(vlan);
        break;
      case 1:
        draw(2) == 0 ? segment->dfVlanIs(vlan) : segment->dfVlanDel(vlan);
        segment->designatedForwarderTepIpAddrIs(vlan, Pavlin::IpAddr(++elections_));
        break;
      case 2:
        draw(9) == 0 ? evpn_->segmentStatusDel(port(draw(5))) : void();
        break;
      case 3:
        pegVlans_->pegVlanIs({vlan, draw(4) != 0});
        break;
      case 4:
        peg_->pegDrVlanIs({vlan, draw(3) == 0 ? PegDrRole::dr : PegDrRole::notDr});
        break;
      case 5:
        draw(4) != 0 ? irb_->vlanToSbdIs({vlan, sbd}) : irb_->vlanToSbdDel(vlan);
        break;
      default:
        draw(9) == 0 ? neighbours_->pegVlanNeighborIs(sbd)->tepDel(corruptTep_) : gatewayMoves(sbd);
    }
  }
  void gatewayMoves(ExtendedVlanId sbd) {
    const auto teps = neighbours_->pegVlanNeighborIs(sbd);
    teps->tepHas(tep_) ? teps->tepDel(tep_) : teps->tepIs(tep_);
  }
  void withdraw() { edf_->doDeleteAll(); }
  [[nodiscard]] std::map<std::string, std::string> wanted() const {
    std::map<std::string, std::string> roles;
    for (const auto& [intf, segment] : evpn_->segmentStatusIterator())
      for (const VlanId& vlan : segment->configuredVlanIterator()) {
        if (intf == Pavlin::vxlan1IntfId()) continue;
        const ElectedDFStatus elected{{intf, vlan}, segment->dfVlanHas(vlan), {}};
        const auto row =
            ExternalForwarderStatus::determineRole(elected, *irb_, *pegVlans_, *neighbours_, *peg_);
        roles[Vesk::textOf(row->portVlan)] = Vesk::textOf(row->role);
      }
    return roles;
  }
  [[nodiscard]] std::map<std::string, std::string> found() const {
    std::map<std::string, std::string> roles;
    for (const auto& [portVlan, row] : roles_->intfStatusIterator())
      roles[Vesk::textOf(portVlan)] = Vesk::textOf(row.role);
    return roles;
  }
  [[nodiscard]] bool ready() const { return elected_->ready() && edf_->ready(); }

 private:
  static Pavlin::IntfId port(unsigned number) {
    return Pavlin::IntfId(number == 0 ? "Vxlan1" : "Ethernet" + std::to_string(number));
  }
  unsigned draw(unsigned n) { return static_cast<unsigned>(random_() % n); }

  std::mt19937_64 random_;
  unsigned elections_ = 0;
  const Pavlin::IpGenAddr tep_ = Pavlin::IpGenAddr::fromText("10.0.0.9");
  const Pavlin::IpGenAddr corruptTep_ = Pavlin::IpGenAddr::fromText("10.0.0.8");
  Ombra::Ptr<::Evpn::EvpnStatus> evpn_ = Ombra::make<::Evpn::EvpnStatus>();
  Ombra::Ptr<ElectedDFStatusDir> electedDir_ = Ombra::make<ElectedDFStatusDir>();
  Ombra::Ptr<PegDrStatus> peg_ = Ombra::make<PegDrStatus>();
  Ombra::Ptr<PegVlanStatus> pegVlans_ = Ombra::make<PegVlanStatus>();
  Ombra::Ptr<PegNeighborStatus> neighbours_ = Ombra::make<PegNeighborStatus>();
  Ombra::Ptr<Irb::Multicast::McastIrbStatus> irb_ = Ombra::make<Irb::Multicast::McastIrbStatus>();
  Ombra::Ptr<ExternalForwarderStatus> roles_ = Ombra::make<ExternalForwarderStatus>();
  Ombra::Ptr<ElectedDFStatusSm> elected_;
  Ombra::Ptr<EDFSm> edf_;
};

TEST(ForwarderRolesTest, AtOnceAndInSlicesTheRolesAreThoseOfTheInputs) {
  for (std::uint64_t seed = 1; seed <= 40; ++seed) {
    const bool inSlices = seed % 4 == 0;
    Sylva::TaskScheduler scheduler;
    Sylva::ItemYield yield(1);
    if (inSlices) scheduler.yieldPolicyIs(&yield);
    World world(seed, inSlices ? &scheduler : nullptr);
    EXPECT_EQ(world.ready(), !inSlices);
    for (int i = 0; i < 400; ++i) {
      world.event();
      scheduler.runUntilIdle(1);
      if (!inSlices) {
        ASSERT_EQ(world.found(), world.wanted()) << "seed " << seed << " event " << i;
      }
    }
    scheduler.runUntilIdle();
    EXPECT_TRUE(world.ready());
    EXPECT_EQ(world.found(), world.wanted()) << "seed " << seed;
    EXPECT_GT(world.found().size(), 5U);
    world.withdraw();
    EXPECT_TRUE(world.found().empty());
  }
  EXPECT_DEATH(World(1, nullptr).gatewayMoves(ExtendedVlanId(0)), R"(value_ >= VlanId::min\(\))");
}

}  // namespace
}  // namespace Multicast
