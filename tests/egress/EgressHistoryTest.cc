#include <functional>
#include <random>

#include <gtest/gtest.h>

#include "tests/egress/EgressWorld.h"

namespace Irb::Multicast::Egress {
namespace {

const std::string any = "0.0.0.0";

/// Random events on one family's inputs, in slices and orders that are random too. At each rest the
/// rows must be those that the inputs ask for, worked out here without the machines.
class History : public EgressWorld {
 public:
  History(std::uint64_t seed, bool gatewayToggle)
      : EgressWorld(gatewayToggle ? nullptr : "OismGateway"),
        random_(seed),
        toggle_(gatewayToggle) {
    yield = Sylva::ItemYield(seed % 4);
    scheduler.shuffleSeedIs(seed);
    Vesk::Publisher::shuffleSeedIs(seed);
    for (const auto& [vlan, vrf] : {std::pair(100U, "red"), std::pair(200U, "blue")}) {
      enabled->sbdVlanToVrfIs(vlan, L3::VrfName(vrf));
      enabled->vrfToSBDVlanIs(L3::VrfName(vrf), static_cast<std::uint16_t>(vlan));
      leakConfig->vrfConfigIs(L3::VrfName(vrf))->leakPrefixListIs(vrf, L3::VrfName("green"));
      matcher->vrfStatusIs(L3::VrfName(vrf));
      policy->prefixListIs(vrf);
    }
    begin();
  }
  ~History() { Vesk::Publisher::shuffleSeedIs(0); }

  void event() {
    switch (draw(16)) {
      case 0:
      case 1:
      case 2:
        return join(client(), vlan(), group());
      case 3:
      case 4:
        return leave(client(), vlan(), group());
      case 5:
        if (clients[client()] != nullptr) clients[client_]->vlanDel(VlanId(vlan()));
        return;
      case 6:
        return replaceClient();
      case 7:
      case 8:
        return peerEvent();
      case 9:
        return draw(3) != 0 ? sbdIs(vlan(), flip() ? 100 : 200) : irb->vlanToSbdDel(VlanId(vlan()));
      case 10:
      case 11:
        return decapEvent(flip() ? decap : decapRemote);
      case 12:
        return floodEvent(flip() ? decap : decapRemote);
      case 13:
        return leakEvent(flip() ? "red" : "blue");
      case 14:
        return switchEvent();
      default:
        scheduler.runUntilIdle(draw(4));
    }
  }

  void rest() {
    scheduler.runUntilIdle();
    const Rows wanted = wantedRows();
    if (readyColl->reviewComplete()) {
      ASSERT_EQ(rows(), wanted);
    } else {  // what an earlier life has left may stand there still
      Rows all = wanted;
      all.insert(left_.begin(), left_.end());
      ASSERT_TRUE(std::ranges::includes(rows(), wanted));
      ASSERT_TRUE(std::ranges::includes(all, rows()));
    }
    Changes changes(gmp);
    inject->reviewAll();
    reconcile->reviewAll();
    scheduler.runUntilIdle();
    ASSERT_EQ(changes.count, 0);
  }

 private:
  void begin() {
    start();
    if (draw(4) != 0) startReviews();
  }
  unsigned draw(unsigned n) { return static_cast<unsigned>(random_() % n); }
  bool flip() { return draw(2) == 0; }
  unsigned vlan() { return std::array{10U, 20U, 100U, 200U}[draw(4)]; }
  std::string group() {
    return std::array{"239.1.1.1", "239.1.1.1", "239.1.1.1", "239.1.1.2", "0.0.0.0"}[draw(5)];
  }
  const Client& client() {
    static const std::array<Client, 4> names{"client0", "client1", "client5", "client11"};
    return client_ = names[draw(4)];
  }
  UnderlayRoute underlay() { return route(std::array{"232.1.1.1", "232.1.1.2"}[draw(2)]); }

  void replaceClient() {
    const Client name = draw(4) == 0 ? "client3" : client();
    const auto now = flip() ? Ombra::make<Gmp::MembershipJoinStatus>() : nullptr;
    if (now) {
      const auto joined = now->vlanIs(VlanId(vlan()))->groupIs(addr(group()));
      joined->sourceIs(addr("10.1.1.1"))->firstIntfIs(IntfId("Ethernet1"));
    }
    clientIs(name, now);
  }
  void peerEvent() {
    const unsigned at = vlan();
    const std::string to = group();
    const IntfId intf(flip() ? "Ethernet1" : "McastTunnel1");
    switch (draw(4)) {
      case 0:
        return leave("client3", at, to);
      case 1:
        return peerSource(at, to)->secondIntfIs(intf);
      case 2:
        return peerSource(at, to)->firstIntfDel(intf);
      default:
        return peerSource(at, to)->firstIntfIs(intf);
    }
  }
  void decapEvent(const Ombra::Ptr<Decap>& status) {
    const OverlayVlanGroup key = vlanGroup(vlan(), group());
    if (draw(5) == 0) return status->vlanToMulticastGroupDel(key);
    const auto row = status->vlanToMulticastGroupIs(key);
    draw(4) == 0 ? row->multicastGroupDel(underlay()) : row->multicastGroupIs(underlay());
  }
  void floodEvent(const Ombra::Ptr<Decap>& status) {
    const VlanId at(vlan());
    if (draw(4) == 0) return status->vlanToFloodGroupDel(at);
    const auto row = status->vlanToFloodGroupIs(at);
    flip() ? row->floodGroupDel(underlay()) : row->floodGroupIs(underlay());
  }
  void leakEvent(const std::string& vrf) {
    const Pavlin::IpGenPrefix prefix(addr("239.1.1.1"));
    const auto list = policy->prefixList(vrf);
    flip() ? list->prefixIs(prefix) : list->prefixDel(prefix);
    const auto status = matcher->vrfStatus(L3::VrfName(vrf));
    status->versionIs(status->version() + 1);
  }
  void switchEvent() {
    using enum Routing::Multicast::MlagUnderlayJoin::State;
    switch (draw(5)) {
      case 0:
        left_ = rows();
        crash();
        return begin();
      case 1:
        return flip() ? gateway->esVlanStatusIs({VlanId(10), GatewayVlanState::perRoute})
                      : gateway->esVlanStatusDel(VlanId(10));
      case 2:
        return mlag->mlagUnderlayJoinIs(std::array{allGroups, noGroups, someGroups}[draw(3)]);
      case 3:
        return ready->startReviewIs(true);
      default:
        return readyRemote->startReviewIs(true);
    }
  }

  // --- the rows that the inputs ask for

  [[nodiscard]] VlanId target(VlanId vlan) const {
    return irb->vlanToSbdHas(vlan) ? irb->vlanToSbd(vlan).sbdVlan : vlan;
  }
  [[nodiscard]] bool leaks(VlanId vlan, const IpGenAddr& group) const {
    if (!irb->vlanToSbdHas(vlan)) return false;
    return policy->prefixList(target(vlan).value() == 100 ? "red" : "blue")->contains(group);
  }
  [[nodiscard]] bool peerJoins(Domain domain, const Gmp::GroupMembershipJoin& join) const {
    bool joins = false;
    const auto see = [&](IntfId intf) {
      joins |= domain == Domain::remoteDomain || intf.nameClass() != "McastTunnel";
    };
    for (const auto& [source, row] : join.sourceIterator()) {
      for (const IntfId intf : row->firstIntfIterator())
        see(intf);
      for (const IntfId intf : row->secondIntfIterator())
        see(intf);
    }
    return joins;
  }
  [[nodiscard]] bool hasReceivers(Domain domain, VlanId vlan, const IpGenAddr& group) const {
    for (const auto& [name, status] : clients) {
      const auto row = status ? status->vlan(vlan) : nullptr;
      if (!row || name == "client1" || (name == "client11" && domain == Domain::remoteDomain))
        continue;
      for (const auto& [of, join] : row->groupIterator()) {
        const bool asked = group.isUnspecified() || of == group;
        if (name == "client3" ? asked && peerJoins(domain, *join)
                              : (asked && !leaks(vlan, of)) || of == addr(any))
          return true;
      }
    }
    return false;
  }
  [[nodiscard]] Rows wantedRows() const {
    Rows wanted;
    if (ready->startReview()) want(Domain::localDomain, *decap, wanted);
    if (toggle_ && readyRemote->startReview() && gateway->esVlanStatusCount() != 0)
      want(Domain::remoteDomain, *decapRemote, wanted);
    return wanted;
  }
  void want(Domain domain, const Decap& status, Rows& wanted) const {
    for (const auto& [key, row] : status.vlanToMulticastGroupIterator()) {
      const VlanId to = target(key.vlan);
      bool joined = hasReceivers(domain, to, key.group.genAddr());
      for (const auto& [member, sbd] : irb->vlanToSbdIterator())
        if (sbd.sbdVlan == to) joined |= hasReceivers(domain, member, key.group.genAddr());
      if (!joined) continue;
      for (const UnderlayRoute& via : row->multicastGroupIterator())
        wanted.insert(rowText(via, to));
    }
    for (const auto& [vlan, row] : status.vlanToFloodGroupIterator())
      for (const UnderlayRoute& via : row->floodGroupIterator())
        if (mlag->mlagFilterUnderlayRoute(via)) wanted.insert(rowText(via, vlan));
  }

  std::mt19937_64 random_;
  const bool toggle_;
  Client client_;
  Rows left_;
};

class EgressHistoryTest : public testing::TestWithParam<bool> {};

TEST_P(EgressHistoryTest, RowsFollowTheInputs) {
  for (std::uint64_t seed = 1; seed <= 300; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    History history(seed, GetParam());
    for (int events = 1; events <= 60; ++events) {
      history.event();
      if (events % 6 != 0) continue;
      history.rest();
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Gateway, EgressHistoryTest, testing::Bool());

}  // namespace
}  // namespace Irb::Multicast::Egress
