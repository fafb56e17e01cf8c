// The whole agent with everything configured at once: 1,000 VRFs with 4,000 vlans and 100,000
// multicast routes, 131,000 receivers, 4,096 tunnels and 10,000 ports and vlans of Ethernet
// segments. Its start, the same rows by the direct computations of the histories, and a restart
// over them. The goals stand beside the figures: bench/agent_goals.py.
#include <malloc.h>
#include <map>
#include <memory>
#include <string>

#include "agent/MountCatalog.h"
#include "bench/RoutesWorld.h"
#include "bench/WholeAgent.h"
#include "records/Evpn.h"
#include "records/ExternalForwarderStatus.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/Tunnels.h"
#include "runtime/RowFile.h"
#include "tests/Changes.h"
#include "tests/history/DecapOracle.h"
#include "tests/history/RouteOracle.h"
#include "tests/history/StateOracle.h"

namespace {

using namespace Bench::Routes;
using Multicast::Tunnel::IrVxlanIpv4TunnelRequestTable;
using Multicast::Tunnel::McastTunnelClientType;
using Routing::Multicast::ExternalForwarderStatus;
using GmpTable = Routing::Gmp::Briskel::Status;
using Joins = Irb::Multicast::Gmp::MembershipJoinStatus;

constexpr unsigned vrfs = 1000, groupsOfVrf = 131, tunnels = 4096, ports = 10000;
/// Vlans of a VRF with hosts; the SBD vlan has none.
constexpr unsigned hostVlans = 3;

IpGenAddr groupOf(unsigned vrf, unsigned group) {
  return IpGenAddr(address(0xe9000000, 2 * vrf, group));
}

void configureReceivers() {
  using Irb::Multicast::IgmpProxyStatus;
  using namespace Routing::Multicast;
  const auto proxy =
      sharedInput<IgmpProxyStatus>(IgmpProxyStatus::mergedAfMountPath(Pavlin::ipv4()));
  const auto joins =
      sharedInput<Joins>(Joins::mountPath(Pavlin::ipv4(), Irb::Multicast::App::Client::client0));
  const auto decap = History::inputAt<IpTunnelVlanGroupStatus>(
      IpTunnelVlanGroupStatus::mountPath(Pavlin::ipv4(), irbDecapStatus()));
  for (unsigned vrf = 0; vrf < vrfs; ++vrf) {
    for (unsigned number = 0; number < hostVlans; ++number)
      proxy->igmpProxyVlanIs(vlanOf(vrf, number));
    for (unsigned number = 0; number < groupsOfVrf; ++number) {
      const IpGenAddr group = groupOf(vrf, number);
      joins->vlanIs(vlanOf(vrf, number % hostVlans))->groupIs(group);
      decap->vlanToMulticastGroupIs({vlanOf(vrf, 3), OverlayAddr(group)})
          ->multicastGroupIs({IpGenAddr(IpAddr(0x0a000009)),
                              UnderlayAddr(IpAddr(0xe8000000 + vrf % 100 * groupsOfVrf + number)),
                              TunnelType::PimSsm});
    }
  }
}

void configureTunnels() {
  const auto requests = sharedInput<IrVxlanIpv4TunnelRequestTable>(
      IrVxlanIpv4TunnelRequestTable::mountPath(McastTunnelClientType::client1));
  for (unsigned number = 0; number < tunnels; ++number)
    requests->tunnelRequestIs({{0, IpGenAddr(IpAddr(0x0a010000 + number))}});
}

void configurePorts() {
  for (unsigned number = 0; number < ports; ++number) {
    const auto segment = input<Evpn::EvpnStatus>()->segmentStatusIs(
        IntfId("Ethernet" + std::to_string(10 + number / 100)));
    const VlanId vlan(1 + number % 4000);
    segment->dfVlanIs(vlan);
    segment->configuredVlanIs(vlan);
  }
}

void configureEverything() {
  using namespace Multicast::Tunnel;
  for (const std::string& path :
       {McastTunnelStatus::mountPath(), IrVxlanIpv4TunnelTable::mountPath(),
        IrVxlanIpv4TunnelRequestTable::mountPath(McastTunnelClientType::client1)})
    VeskSharedMem::rowLimitIs(path, 2 * tunnels);
  configure(vrfs);
  fillFib(vrfs);
  input<Vxlan::VtiStatusDir>()->vtiStatus(Pavlin::vxlan1IntfId())->srcIntfIs(IntfId("Loopback0"));
  configureReceivers();
  configureTunnels();
  configurePorts();
}

struct Published {
  std::size_t forwarding, memberships, tunnels, roles;
};
Published published() {
  return {History::publishedRows(History::domains[0]).size(),
          sharedInput<GmpTable>(GmpTable::appMountPath(
                                    Pavlin::ipv4(), Routing::Gmp::Briskel::App::corvane, "default"))
              ->membershipCount(),
          sharedInput<Multicast::Tunnel::IrVxlanIpv4TunnelTable>()->encapCount(),
          sharedInput<ExternalForwarderStatus>(ExternalForwarderStatus::mountPath(Pavlin::ipv4()))
              ->intfStatusCount()};
}

/// Seconds, the longest time without yielding, and bytes.
void everythingStarts(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    History::AgentWorld world;
    const std::size_t empty = mallinfo2().uordblks;
    configureEverything();
    const std::size_t inputs = mallinfo2().uordblks;
    Bench::ProcessorTimeYield yield;
    Sylva::TaskSchedulerRoot::findOrCreateScheduler()->yieldPolicyIs(&yield);
    state.ResumeTiming();
    double slice = 0;
    const double start = Bench::seconds([&] { world.start(); });
    slice = Bench::longestSlice();
    state.PauseTiming();
    const Published rows = published();
    state.counters["start ms"] = start * 1000;
    state.counters["slice ms"] = slice * 1000;
    state.counters["input MB"] = static_cast<double>(inputs - empty) * 1e-6;
    state.counters["agent MB"] = static_cast<double>(mallinfo2().uordblks - inputs) * 1e-6;
    state.counters["forwarding rows"] = static_cast<double>(rows.forwarding);
    state.counters["memberships"] = static_cast<double>(rows.memberships);
    state.counters["tunnels"] = static_cast<double>(rows.tunnels);
    state.counters["roles"] = static_cast<double>(rows.roles);
    world.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(everythingStarts)->Iterations(1)->Unit(benchmark::kMillisecond);

/// The rows of both roads and of the smaller machines, as the histories compute them.
void everythingDirectly(benchmark::State& state) {
  History::AgentWorld world;
  configureEverything();
  world.begin(0);
  world.settle();
  for (auto _ : state) {
    if (History::wantedRows(History::domains[0]).size() != published().forwarding ||
        History::wantedMemberships().size() != published().memberships)
      state.SkipWithError("other rows than the agent's");
    if (const auto text = History::stateDifference({}); !text.empty())
      state.SkipWithError(text.c_str());
  }
  world.reset();
}
BENCHMARK(everythingDirectly)->Iterations(1)->Unit(benchmark::kMillisecond);

/// Counts the writes to every output but the agent's own state, which tells of each start.
class OutputWrites {
 public:
  OutputWrites() {
    auto& stored = Halden::StateDatabase::instance();
    auto& shared = *VeskSharedMem::EntityManager::getEntityManager();
    for (const auto& mount : Corvane::mountCatalog())
      if (mount.mounting != Corvane::Mounting::never && mount.access == Corvane::Access::write &&
          mount.type != McastCommon::AgentRunningStatus::veskName)
        outputs_[mount.path] = std::make_unique<Changes>(mount.store() == Corvane::Store::stateDb
                                                             ? stored.create(mount.path, mount.type)
                                                             : shared.open(mount.path, mount.type));
  }
  [[nodiscard]] std::size_t count(bool ofTunnels) const {
    std::size_t sum = 0;
    for (const auto& [path, changes] : outputs_)
      if (path.starts_with("multicast/tunnel/") == ofTunnels) sum += changes->count;
    return sum;
  }

 private:
  std::map<std::string, std::unique_ptr<Changes>> outputs_;
};

/// Over the rows of a predecessor that was killed. Rows of ingress replication, which the review of
/// PIM requests takes away at a start, are told apart.
void everythingRestarts(benchmark::State& state) {
  History::AgentWorld world;
  configureEverything();
  world.begin(0);
  world.settle();
  for (auto _ : state) {
    state.PauseTiming();
    world.crash();
    auto writes = std::make_unique<OutputWrites>();
    state.ResumeTiming();
    world.start();
    world.settle();
    state.PauseTiming();
    state.counters["writes"] = static_cast<double>(writes->count(false));
    state.counters["tunnel writes"] = static_cast<double>(writes->count(true));
    writes = nullptr;
    state.ResumeTiming();
  }
  world.reset();
}
BENCHMARK(everythingRestarts)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
