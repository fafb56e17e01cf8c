// The decapsulating side of one family over hand-made records, for tests: the machines come and go,
// the records stay.
#pragma once

#include <fstream>
#include <map>
#include <set>
#include <string>

#include "egress/MembershipReconcileSm.h"
#include "egress/VpnInjectSm.h"
#include "runtime/Toggle.h"
#include "tests/Changes.h"
#include "tests/TemporaryDirectory.h"

namespace Irb::Multicast::Egress {

using Bridging::VlanId;
using Pavlin::IntfId;
using Pavlin::IpGenAddr;
using Routing::Multicast::OverlayAddr;
using Routing::Multicast::OverlayVlanGroup;
using Routing::Multicast::UnderlayRoute;
using Rows = std::set<std::string>;
using Client = std::string;

inline IpGenAddr addr(const std::string& text) {
  return IpGenAddr::fromText(text);
}
inline UnderlayRoute route(const std::string& group) {
  return {addr("10.0.0.1"), Routing::Multicast::UnderlayAddr(addr(group)), {}};
}
inline OverlayVlanGroup vlanGroup(unsigned vlan, const std::string& group) {
  return {VlanId(vlan), OverlayAddr(addr(group))};
}
/// "232.1.1.1 Vlan10".
inline std::string rowText(const UnderlayRoute& route, VlanId vlan) {
  return route.underlayGroup.text() + " Vlan" + std::to_string(vlan.value());
}

template <class T>
struct Made : Ombra::Ptr<T> {
  template <class... Args>
  explicit Made(const Args&... args) : Ombra::Ptr<T>(Ombra::make<T>(args...)) {}
};

struct EgressWorld {
  using Ready = ::Multicast::Vpn::EncapDecapReadyClient;
  using Decap = Routing::Multicast::IpTunnelVlanGroupStatus;
  using Membership = Routing::Gmp::Briskel::Status;

  explicit EgressWorld(const char* toggleOff = nullptr) {
    if (toggleOff != nullptr)
      std::ofstream(directory / "CorvaneLib.json") << "{\"" << toggleOff << "\": false}";
    Orlane::toggleDirIs(directory.path());
    Orlane::forgetToggles();
    scheduler.yieldPolicyIs(&yield);
    decap->nameIs(stringValue(Routing::Multicast::irbDecapStatus()));
    decapRemote->nameIs(stringValue(Routing::Multicast::irbRemoteDomainDecapStatus()));
    leakCtx->mcastIrbStatusIs(irb);
    leakCtx->vxlanEnabledStatusIs(enabled);
    leakCtx->vrfLeakMatcherStatusIs(matcher);
    matcher->vrfLeakConfigIs(leakConfig);
    matcher->policyRootIs(policy);
    joins->mcastVrfLeakCtxIs(leakCtx);
  }
  ~EgressWorld() {
    stop();
    Orlane::toggleDirIs("");
    Orlane::forgetToggles();
  }

  void start() {
    readyColl = Ombra::make<::Multicast::Vpn::DecapReadyStatusColl>();
    ready = readyColl->statusIs(Ready::ipv4Local);
    readyRemote = readyColl->statusIs(Ready::ipv4Remote);
    notifiee = Ombra::make<MembershipDedupedLifetimeNotifiee>(
        MembershipDedupedLifetimeNotifiee::Inputs{.gmpStatus = gmp, .gmpStatus6 = gmp6});
    table = Ombra::make<Routing::Gmp::MembershipDedupTable>(
        Routing::Gmp::MembershipDedupTable::Inputs{.notifiee = notifiee});
    reconcile = Ombra::make<MembershipReconcileSm>(
        MembershipReconcileSm::Inputs{.decapReadyStatusColl = readyColl,
                                      .inputStatus = table,
                                      .outputStatus = gmp,
                                      .scheduler = &scheduler});
    inject =
        Ombra::make<VpnInjectSm>(VpnInjectSm::Inputs{.af = Pavlin::ipv4(),
                                                     .taskScheduler = &scheduler,
                                                     .membershipJoinStatusColl = joins,
                                                     .tunnelVlanGroupStatus = decap,
                                                     .tunnelStatusRemoteDomain = decapRemote,
                                                     .mcastIrbStatus = irb,
                                                     .mlagState = mlag,
                                                     .mcastVrfLeakCtx = leakCtx,
                                                     .gatewayStatus = gateway,
                                                     .filterSet = filters,
                                                     .underlayInjectDedupTable = table,
                                                     .decapReadyStatus = ready,
                                                     .decapReadyStatusRemoteDomain = readyRemote});
  }
  void stop() {
    inject = nullptr;
    reconcile = nullptr;
    table = nullptr;
  }
  /// The process dies, its rows stay.
  void crash() {
    const auto left = Ombra::make<Membership>();
    for (const auto& entry : gmp->membershipIterator())
      left->membershipIs(entry.value);
    stop();
    scheduler.reset();
    static_cast<Ombra::Ptr<Membership>&>(gmp) = left;
  }
  void startReviews() {
    ready->startReviewIs(true);
    readyRemote->startReviewIs(true);
  }

  Ombra::Ptr<Gmp::VlanMembershipJoin> joined(const Client& client, unsigned vlan) {
    if (!clients[client]) clientIs(client, Ombra::make<Gmp::MembershipJoinStatus>());
    return clients[client]->vlanIs(VlanId(vlan));
  }
  /// Null takes the client away.
  void clientIs(const Client& client, const Ombra::Ptr<Gmp::MembershipJoinStatus>& now) {
    if (now) now->nameIs(client);
    clients[client] = now;
    client == "client3" ? joins->peerMembershipIs(client, now)
                        : joins->localMembershipIs(client, now);
  }
  void join(const Client& client, unsigned vlan, const std::string& group) {
    joined(client, vlan)->groupIs(addr(group));
  }
  void leave(const Client& client, unsigned vlan, const std::string& group) {
    joined(client, vlan)->groupDel(addr(group));
  }
  auto peerSource(unsigned vlan, const std::string& group) {
    return joined("client3", vlan)->groupIs(addr(group))->sourceIs(addr("10.1.1.1"));
  }
  void sbdIs(unsigned vlan, unsigned sbd) { irb->vlanToSbdIs({VlanId(vlan), VlanId(sbd)}); }
  void offer(const Ombra::Ptr<Decap>& status, unsigned vlan, const std::string& group,
             const std::string& underlay) {
    status->vlanToMulticastGroupIs(vlanGroup(vlan, group))->multicastGroupIs(route(underlay));
  }

  [[nodiscard]] Rows rows() const {
    Rows texts;
    for (const auto& [key, row] : gmp->membershipIterator())
      texts.insert(key.group.text() + " " + key.intfId.stringValue());
    return texts;
  }
  /// What waits for a judgement, and takes it out.
  static Rows takeDue(const Ombra::Ptr<OverlayChangeSet>& changeSet) {
    Rows texts;
    for (const auto& key : changeSet->vlanGroupIterator())
      texts.insert(Vesk::textOf(key));
    changeSet->vlanGroupDelAll();
    changeSet->vlanDelAll();
    return texts;
  }

  TemporaryDirectory directory;
  Sylva::TaskScheduler scheduler;
  Sylva::ItemYield yield{1};
  Made<McastIrbStatus> irb;
  Made<Vxlan::EnabledStatus> enabled;
  Made<Routing::Multicast::VrfLeak::VrfLeakMatcherStatus> matcher;
  Made<Routing::Multicast::VrfLeak::McastVrfLeakConfig> leakConfig;
  Made<Routing::Policy::PolicyRoot> policy;
  Made<McastVrfLeakCtx> leakCtx;
  Made<MembershipJoinStatusColl> joins;
  Made<Decap> decap, decapRemote;
  Made<Routing::Multicast::MlagVxlanState> mlag;
  Made<GatewayEsStatus> gateway;
  Made<Routing::Multicast::UnderlayRouteFilterSet> filters;
  Made<Membership> gmp, gmp6;
  std::map<Client, Ombra::Ptr<Gmp::MembershipJoinStatus>> clients;

  Ombra::Ptr<::Multicast::Vpn::DecapReadyStatusColl> readyColl;
  Ombra::Ptr<::Multicast::Vpn::DecapReadyStatus> ready, readyRemote;
  Ombra::Ptr<MembershipDedupedLifetimeNotifiee> notifiee;
  Ombra::Ptr<Routing::Gmp::MembershipDedupTable> table;
  Ombra::Ptr<MembershipReconcileSm> reconcile;
  Ombra::Ptr<VpnInjectSm> inject;
};

}  // namespace Irb::Multicast::Egress
