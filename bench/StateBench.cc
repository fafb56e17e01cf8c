// The smaller machines of a whole agent among many others of their kind: what one event costs must
// not grow with those that it does not concern.
#include "bench/WholeAgent.h"
#include "records/AgentStatus.h"
#include "records/BriskelInputs.h"
#include "records/Evpn.h"
#include "records/ExternalForwarderStatus.h"
#include "records/Tunnels.h"
#include "records/Vxlan.h"
#include "runtime/RowFile.h"

namespace {

using Bridging::VlanIdOrNone;
using History::input;

/// Of so many VRFs, each with an SBD vlan and a remote VNI of its own, one moves to another vlan
/// and back: its interfaces of both families, the groups on them, its remote VNI.
void sbdVlanMoves(benchmark::State& state) {
  History::AgentWorld world;
  input<McastCommon::AgentStatus>(Pavlin::ipv4())->multicastRoutingIs(true);
  const auto vti = input<Vxlan::VtiStatusDir>()->vtiStatusIs(Pavlin::vxlan1IntfId());
  vti->operStatusIs(Vxlan::IntfOperStatus::up);
  const auto config = History::groupConfig(Irb::Multicast::Domain::localDomain)
                          ->intfConfigIs(Pavlin::vxlan1IntfId());
  config->mcastOverlayV4Is(true);
  for (unsigned number = 0; number < state.range(0); ++number) {
    const L3::VrfName vrf("vrf" + std::to_string(number));
    vti->vrfToSBDVlanIs(vrf, VlanIdOrNone(1 + number));
    config->remoteVniToVrfIs(Vxlan::VniExtOrNone(5000 + number), vrf);
  }
  world.begin(0);
  world.settle();
  const L3::VrfName moving("vrf7");
  for (auto _ : state)
    for (const unsigned vlan : {4000U, 8U}) {
      vti->vrfToSBDVlanIs(moving, VlanIdOrNone(vlan));
      world.settle();
    }
  Bench::count(state, static_cast<std::size_t>(state.range(0)), "per move", 2.0);
  world.reset();
}
BENCHMARK(sbdVlanMoves)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);

/// So many ports and vlans of Ethernet segments, a hundred vlans to a port: one is elected away and
/// back, and one of its vlan's tables changes, each until the roles of both families stand.
void forwarderChanges(benchmark::State& state) {
  using Routing::Multicast::ExternalForwarderStatus;
  using Routing::Multicast::PegVlanStatus;
  constexpr unsigned vlansOfPort = 100;
  History::AgentWorld world;
  input<McastCommon::AgentStatus>(Pavlin::ipv4())->multicastRoutingIs(true);
  input<Vxlan::VtiStatusDir>()->vtiStatusIs(Pavlin::vxlan1IntfId());
  const auto evpn = input<Evpn::EvpnStatus>();
  const auto portOf = [](unsigned number) {
    return Pavlin::IntfId("Ethernet" + std::to_string(1 + number / vlansOfPort));
  };
  for (unsigned number = 0; number < state.range(0); ++number) {
    const auto segment = evpn->segmentStatusIs(portOf(number));
    const Bridging::VlanId vlan(1 + number % 4000);
    segment->dfVlanIs(vlan);
    segment->configuredVlanIs(vlan);
  }
  world.begin(0);
  world.settle();
  const auto segment = evpn->segmentStatus(portOf(0));
  const Bridging::VlanId vlan(7);
  const auto gateways =
      History::sharedInput<PegVlanStatus>(PegVlanStatus::mountPath(Pavlin::ipv4()));
  bool mine = true;
  std::uint32_t elections = 0;
  for (auto _ : state) {
    mine = !mine;
    mine ? segment->dfVlanIs(vlan) : segment->dfVlanDel(vlan);
    segment->designatedForwarderTepIpAddrIs(vlan, Pavlin::IpAddr(0x0a000001U + ++elections % 2));
    gateways->pegVlanIs({vlan, mine});
    world.settle();
  }
  Bench::count(state,
               History::sharedInput<ExternalForwarderStatus>(
                   ExternalForwarderStatus::mountPath(Pavlin::ipv4()))
                   ->intfStatusCount(),
               "per change", 2.0);
  world.reset();
}
BENCHMARK(forwarderChanges)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

using Multicast::Tunnel::IrVxlanIpv4TunnelRequestTable;
using Multicast::Tunnel::McastTunnelClientType;

/// An agent with room for so many tunnels of ingress replication, and a client's requests.
struct TunnelWorld {
  explicit TunnelWorld(unsigned tunnels) : count(tunnels) {
    using namespace Multicast::Tunnel;
    const std::string own =
        IrVxlanIpv4TunnelRequestTable::mountPath(McastTunnelClientType::client1);
    for (const std::string& path :
         {McastTunnelStatus::mountPath(), IrVxlanIpv4TunnelTable::mountPath(), own})
      VeskSharedMem::rowLimitIs(path, 2 * tunnels);
    input<McastCommon::AgentStatus>(Pavlin::ipv4())->multicastRoutingIs(true);
    input<Vxlan::VtiStatusDir>()
        ->vtiStatusIs(Pavlin::vxlan1IntfId())
        ->operStatusIs(Vxlan::IntfOperStatus::up);
    requests = History::sharedInput<IrVxlanIpv4TunnelRequestTable>(own);
    world.begin(0);
    world.settle();
  }
  ~TunnelWorld() {
    requests = nullptr;
    world.reset();
  }
  void ask(unsigned number) { requests->tunnelRequestIs({endpoint(number)}); }
  void withdraw(unsigned number) { requests->tunnelRequestDel(endpoint(number)); }
  [[nodiscard]] bool isServed(unsigned number) const {
    return History::sharedTable<Multicast::Tunnel::McastTunnelStatus>()->mcastTunnelSetHas(
        endpoint(number));
  }
  static Multicast::Tunnel::McastTunnelEndpoint endpoint(unsigned number) {
    return {0, Pavlin::IpGenAddr(Pavlin::IpAddr(0x0a010000 + number))};
  }

  History::AgentWorld world;
  unsigned count;
  Ombra::Ptr<IrVxlanIpv4TunnelRequestTable> requests;
};

/// The first requests of a running agent, until the encapsulation and the status row of each stand.
void tunnelRequestsCold(benchmark::State& state) {
  TunnelWorld tunnels(static_cast<unsigned>(state.range(0)));
  for (auto _ : state) {
    for (unsigned number = 0; number < tunnels.count; ++number)
      tunnels.ask(number);
    if (!tunnels.isServed(0) || !tunnels.isServed(tunnels.count - 1))
      state.SkipWithError("the rows are not there");
    state.PauseTiming();
    for (unsigned number = 0; number < tunnels.count; ++number)
      tunnels.withdraw(number);
    state.ResumeTiming();
  }
  Bench::count(state, tunnels.count, "per request", tunnels.count);
}
BENCHMARK(tunnelRequestsCold)->Arg(16)->Arg(4096)->Unit(benchmark::kMicrosecond);

/// One that goes and comes among all others.
void tunnelRequestsWarm(benchmark::State& state) {
  TunnelWorld tunnels(static_cast<unsigned>(state.range(0)));
  for (unsigned number = 0; number < tunnels.count; ++number)
    tunnels.ask(number);
  unsigned turn = 0;
  for (auto _ : state) {
    const unsigned number = turn++ * 7 % tunnels.count;
    tunnels.withdraw(number);
    if (tunnels.isServed(number)) state.SkipWithError("the row has not gone");
    tunnels.ask(number);
    if (!tunnels.isServed(number)) state.SkipWithError("the row is not there");
  }
  Bench::count(state, tunnels.count, "per event", 2.0);
}
BENCHMARK(tunnelRequestsWarm)->Arg(16)->Arg(4096)->Unit(benchmark::kMicrosecond);

}  // namespace
