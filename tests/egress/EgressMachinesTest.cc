#include <functional>

#include <gtest/gtest.h>

#include "tests/egress/EgressWorld.h"

namespace Irb::Multicast::Egress {
namespace {

const std::string G = "239.1.1.1", H = "239.1.1.2", any = "0.0.0.0";

/// Runs its action at every change below an entity.
class OnChange final : public Vesk::TreeObserver {
 public:
  OnChange(const Ombra::Ptr<Vesk::Entity>& root, std::function<void()> action)
      : action_(std::move(action)) {
    rootIs(root);
  }

 private:
  void valueChanged(const Node&, const Vesk::FieldInfo&, std::string_view) override { action_(); }
  void entityCame(const Node&) override { action_(); }
  void entityWent(const Node&) override { action_(); }
  std::function<void()> action_;
};

TEST(EgressMachinesTest, RowsOfAnEarlierLifeAreAdoptedAndTheOthersGoWhenAllReviewsAreThrough) {
  EgressWorld world;
  world.offer(world.decap, 10, G, "232.1.1.1");
  world.decap->vlanToFloodGroupIs(VlanId(10))->floodGroupIs(route("232.9.9.9"));
  world.join("client0", 10, G);
  world.start();
  world.startReviews();
  world.scheduler.runUntilIdle();
  const Rows rows{"232.1.1.1 Vlan10", "232.9.9.9 Vlan10"};
  ASSERT_EQ(world.rows(), rows);
  world.offer(world.decap, 20, G, "232.1.1.2");
  world.join("client0", 20, G);
  world.scheduler.runUntilIdle();

  world.crash();
  world.leave("client0", 20, G);
  Changes writes(world.gmp);
  world.start();
  world.scheduler.runUntilIdle();
  EXPECT_FALSE(world.ready->l2InjectReady()) << "nothing is judged before it is asked for";
  world.ready->startReviewIs(true);
  EXPECT_TRUE(world.ready->l2InjectReady());
  while (!world.ready->vpnInjectReady())
    ASSERT_TRUE(world.scheduler.runOne());
  world.scheduler.runUntilIdle();
  EXPECT_FALSE(world.readyRemote->reviewComplete());
  EXPECT_EQ(world.rows().size(), 3U) << "the remote domain is not through";
  EXPECT_EQ(writes.count, 0);
  EXPECT_EQ(world.notifiee->gmpStatusUpdateTs(), 0);

  world.readyRemote->startReviewIs(true);  // no gateway: nothing to review
  EXPECT_TRUE(world.readyColl->reviewComplete());
  world.scheduler.runUntilIdle();
  EXPECT_EQ(world.rows(), rows);
  EXPECT_EQ(writes.count, 1);
  EXPECT_TRUE(world.inject->initialized());
}

TEST(EgressMachinesTest, ChangesReachTheDomainsThatTheyConcern) {
  for (const bool gateway : {true, false}) {
    EgressWorld world(gateway ? nullptr : "OismGateway");
    world.offer(world.decap, 10, any, "232.1.1.1");
    world.offer(world.decap, 20, G, "232.1.1.2");
    world.sbdIs(10, 100);
    world.joined("client3", 10);
    world.start();
    const auto due = [&] {
      return std::pair(world.takeDue(world.inject->changeSet()),
                       world.takeDue(world.inject->changeSetRemoteDomain()));
    };
    const auto bothIf = [](bool remote, const Rows& rows) {
      return std::pair(rows, remote ? rows : Rows{});
    };
    due();
    world.join("client0", 10, G);
    EXPECT_EQ(due(), bothIf(gateway, {"100,239.1.1.1"})) << "of the SBD vlan";
    world.join("client1", 20, G);
    world.join("stranger", 20, G);
    EXPECT_EQ(due(), bothIf(true, {})) << "nobody's receivers";
    world.join("client11", 20, G);
    EXPECT_EQ(due(), std::pair(Rows{"20,239.1.1.1"}, Rows{}));
    world.join("client11", 10, any);
    EXPECT_EQ(due(), std::pair(Rows{"100,0.0.0.0"}, Rows{})) << "all that the vlans have";
    const auto changed = world.inject->changeSet()->changed();
    world.join("client0", 30, any);
    EXPECT_EQ(due(), bothIf(true, {}));
    EXPECT_GT(world.inject->changeSet()->changed(), changed);

    const auto source = world.peerSource(10, H);
    source->secondIntfIs(IntfId("McastTunnel1"));
    world.joined("client3", 10)->groupIs(addr(H))->sourceDel(addr("10.1.1.1"));
    EXPECT_EQ(due(), gateway ? bothIf(true, {"100,239.1.1.2"}) : bothIf(false, {}))
        << "a peer's tunnels are a gateway's business";
    world.peerSource(10, H)->firstIntfIs(IntfId("Ethernet1"));
    due();
    world.clientIs("client3", nullptr);
    EXPECT_EQ(due(), bothIf(gateway, {"100,239.1.1.2"})) << "what the lost client has fed";
    world.clientIs("client0", Ombra::make<Gmp::MembershipJoinStatus>());
    EXPECT_EQ(due(), bothIf(gateway, {"100,239.1.1.1"}));
  }
}

TEST(EgressMachinesTest, NothingThatComesDuringAWalkIsLost) {
  EgressWorld world;
  constexpr unsigned last = 64;
  for (unsigned vlan = 1; vlan <= last; ++vlan) {
    for (const std::string& group : {G, H}) {
      world.offer(world.decap, vlan, group, group == G ? "232.1.1.1" : "232.1.1.2");
      world.join("client0", vlan, group);
    }
  }
  world.offer(world.decap, 70, G, "232.1.1.3");
  world.join("client0", 70, G);
  world.start();
  world.startReviews();
  const auto& changes = world.inject->changeSet();
  for (unsigned vlan = 1; vlan <= last; ++vlan)
    changes->vlanGroupDel(vlanGroup(vlan, H));
  // Every row that is written adds a member somewhere, before the walk or behind it, most of them
  // without the word that makes the walk begin anew.
  unsigned written = 0;
  const OnChange addition(world.gmp, [&] {
    if (++written <= last) changes->vlanGroupIs(vlanGroup(written, H));
    if (written % 8 == 0) changes->changedInc(1);
    // One is out of date as soon as it is judged.
    if (world.rows().contains("232.1.1.3 Vlan70")) world.leave("client0", 70, G);
  });
  world.scheduler.runUntilIdle();
  EXPECT_EQ(world.rows().size(), 2 * last);
  EXPECT_EQ(changes->vlanGroupCount() + changes->vlanCount(), 0U);
  EXPECT_TRUE(world.inject->vpnInjectReviewSm()->firstReviewComplete());
}

TEST(EgressMachinesDeathTest, StatusesAreTakenByTheirName) {
  EgressWorld world;
  world.decap->nameIs(stringValue(Routing::Multicast::irbDecapReduced()));
  EXPECT_DEATH(
      (void)Ombra::make<L2InjectSm>(L2InjectSm::Inputs{.tunnelVlanGroupStatus = world.decap}),
      "Routing::Multicast::irbRemoteDomainDecapStatus\\(\\) \\)");
  EXPECT_DEATH((void)Ombra::make<OverlayMembershipChangeSm>(OverlayMembershipChangeSm::Inputs{
                   .joinStatusColl = world.joins, .tunnelVlanGroupStatus = world.decapRemote}),
               "Routing::Multicast::irbDecapReduced\\(\\) \\)");
}

}  // namespace
}  // namespace Irb::Multicast::Egress
