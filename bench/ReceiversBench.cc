// The whole agent with a full table of receivers: 100 VRFs, each with an SBD vlan that serves ten
// vlans, and a receiver of every group of an SBD vlan in one of those. From the inputs to the last
// row that PIM reads, the same rows by direct computation, a restart over them, what one join costs
// among all others, and what a change of the MLAG state moves. The goals stand beside the figures:
// bench/agent_goals.py.
#include <algorithm>
#include <array>
#include <malloc.h>
#include <vector>

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

#include "bench/WholeAgent.h"
#include "records/AgentStatus.h"
#include "records/BriskelInputs.h"
#include "records/Fib.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/Mlag.h"
#include "records/MulticastIntfs.h"
#include "records/Vxlan.h"
#include "tests/Changes.h"
#include "tests/history/DecapOracle.h"

namespace {

using Bridging::VlanId;
using History::input;
using History::inputAt;
using History::sharedInput;
using Pavlin::IpAddr;
using Pavlin::IpGenAddr;
using Routing::Gmp::Briskel::RouteIntfKey;
using Routing::Multicast::OverlayAddr;
using Routing::Multicast::UnderlayAddr;
using Routing::Multicast::UnderlayRoute;
using GmpTable = Routing::Gmp::Briskel::Status;
using Joins = Irb::Multicast::Gmp::MembershipJoinStatus;
using VlanGroupStatus = Routing::Multicast::IpTunnelVlanGroupStatus;

constexpr unsigned sbdVlans = 100;

/// How many groups an SBD vlan has, and how many vlans it serves.
struct Size {
  unsigned groups;
  unsigned members = 10;
  unsigned sbds = sbdVlans;
};
Size sizeOf(const benchmark::State& state) {
  return {.groups = static_cast<unsigned>(state.range(0)) / sbdVlans};
}

VlanId memberOf(const Size& size, unsigned sbd, unsigned number) {
  return VlanId(1001 + sbd * size.members + number);
}
IpGenAddr groupOf(unsigned sbd, unsigned number) {
  return IpGenAddr(IpAddr(0xef000000U + sbd * 0x10000U + number));
}
/// Who joins the group: no client's table holds all of them.
auto joins(unsigned sbd, unsigned number) {
  using enum Irb::Multicast::App::Client;
  constexpr std::array clients{client0, client2, client4,  client5,
                               client8, client9, client10, client13};
  return sharedInput<Joins>(
      Joins::mountPath(Pavlin::ipv4(), clients[(sbd * 1310 + number) % clients.size()]));
}
auto decapStatus() {
  return inputAt<VlanGroupStatus>(
      VlanGroupStatus::mountPath(Pavlin::ipv4(), Routing::Multicast::irbDecapStatus()));
}
auto membershipTable() {
  return sharedInput<GmpTable>(
      GmpTable::appMountPath(Pavlin::ipv4(), Routing::Gmp::Briskel::App::corvane, "default"));
}

void configure(const Size& size) {
  using Intfs = Routing::Multicast::MulticastIntfsForApplications;
  using Irb::Multicast::IgmpProxyStatus;
  input<McastCommon::AgentStatus>(Pavlin::ipv4())->multicastRoutingIs(true);
  const auto vti = input<Vxlan::VtiStatusDir>()->vtiStatusIs(Pavlin::vxlan1IntfId());
  vti->operStatusIs(Vxlan::IntfOperStatus::up);
  vti->localVtepAddrIs(IpAddr(0x0a000001));
  input<Mlag::Status>()->mlagStateIs(Mlag::MlagState::primary);
  input<Mlag::Status>()->failoverIs(true);
  input<Mlag::VxlanStatus>()->vtepTypeAddrIs(Vxlan::VtepType::vtepType1, IpAddr(0x0a000002));
  const auto proxy =
      sharedInput<IgmpProxyStatus>(IgmpProxyStatus::mergedAfMountPath(Pavlin::ipv4()));
  for (unsigned sbd = 0; sbd < size.sbds; ++sbd) {
    const std::string vrf = "vrf" + std::to_string(sbd);
    input<Routing::Multicast::Fib::VrfEnabledStatus>(Pavlin::ipv4())->vrfIs(L3::VrfName(vrf));
    vti->vrfToSBDVlanIs(L3::VrfName(vrf), VlanId(sbd + 1));
    const auto intfs = inputAt<Intfs>(Intfs::dirMountPath(Pavlin::ipv4(), "routing") + "/" + vrf);
    for (unsigned number = 0; number < size.members; ++number) {
      const VlanId vlan = memberOf(size, sbd, number);
      proxy->igmpProxyVlanIs(vlan);
      intfs->multicastIntfIs(Pavlin::VlanIntfId::vlanIdToIntfId(vlan), true);
    }
    for (unsigned group = 0; group < size.groups; ++group) {
      const IpGenAddr overlay = groupOf(sbd, group);
      decapStatus()
          ->vlanToMulticastGroupIs({VlanId(sbd + 1), OverlayAddr(overlay)})
          ->multicastGroupIs({IpGenAddr(IpAddr(0x0a000009)),
                              UnderlayAddr(IpAddr(overlay.v4Addr().value() - 0x07000000U)),
                              Routing::Multicast::TunnelType::PimSsm});
    }
  }
}
void fillJoins(const Size& size) {
  for (unsigned sbd = 0; sbd < size.sbds; ++sbd)
    for (unsigned group = 0; group < size.groups; ++group)
      joins(sbd, group)
          ->vlanIs(memberOf(size, sbd, group % size.members))
          ->groupIs(groupOf(sbd, group));
}

void sizes(benchmark::internal::Benchmark* bench) {
  bench->Arg(1000)->Arg(10000)->Arg(131000);
}

/// A join until its row stands, and its leave until that has gone, at a place among all others.
void joinAndLeave(benchmark::State& state) {
  History::AgentWorld world;
  const Size size = sizeOf(state);
  configure(size);
  fillJoins(size);
  world.begin(0);
  world.settle();
  const auto table = membershipTable();
  const std::uint32_t rows = table->membershipCount();
  unsigned turn = 0;
  for (auto _ : state) {
    turn = turn * 1103515245U + 12345U;
    const unsigned sbd = (turn >> 16) % size.sbds, group = (turn >> 4) % size.groups;
    const auto vlan = joins(sbd, group)->vlan(memberOf(size, sbd, group % size.members));
    vlan->groupDel(groupOf(sbd, group));
    world.settle();
    if (table->membershipCount() != rows - 1) state.SkipWithError("the row has not gone");
    vlan->groupIs(groupOf(sbd, group));
    world.settle();
    if (table->membershipCount() != rows) state.SkipWithError("the row is not there");
  }
  Bench::count(state, rows, "per event", 2.0);
  world.reset();
}
BENCHMARK(joinAndLeave)->Apply(sizes)->Unit(benchmark::kMicrosecond);

/// The same told apart: many leaves, each until its row has gone, then their joins.
void joinsBesideLeaves(benchmark::State& state) {
  History::AgentWorld world;
  const Size size = sizeOf(state);
  configure(size);
  fillJoins(size);
  world.begin(0);
  world.settle();
  const auto table = membershipTable();
  const std::uint32_t rows = table->membershipCount();
  const unsigned batch = std::min(5U, size.groups);
  unsigned turn = 0;
  double leaves = 0, comes = 0, events = 0;
  const auto each = [&](auto change) {
    for (unsigned sbd = 0; sbd < size.sbds; ++sbd)
      for (unsigned i = 0; i < batch; ++i) {
        const unsigned group = (turn + i * 7) % size.groups;
        change(*joins(sbd, group)->vlan(memberOf(size, sbd, group % size.members)),
               groupOf(sbd, group));
        world.settle();
      }
  };
  for (auto _ : state) {
    leaves += Bench::seconds([&] { each([](auto& vlan, auto group) { vlan.groupDel(group); }); });
    if (table->membershipCount() != rows - size.sbds * batch)
      state.SkipWithError("the rows have not gone");
    comes += Bench::seconds([&] { each([](auto& vlan, auto group) { vlan.groupIs(group); }); });
    if (table->membershipCount() != rows) state.SkipWithError("the rows are not there");
    events += size.sbds * batch;
    ++turn;
  }
  state.counters["join us"] = comes / events * 1e6;
  state.counters["leave us"] = leaves / events * 1e6;
  world.reset();
}
BENCHMARK(joinsBesideLeaves)->Apply(sizes)->Unit(benchmark::kMillisecond);

/// One more receiver of a group that every vlan of the SBD vlan has receivers of, and its leave.
void popularGroup(benchmark::State& state) {
  History::AgentWorld world;
  const Size size{.groups = 1, .members = static_cast<unsigned>(state.range(0)), .sbds = 1};
  configure(size);
  for (unsigned number = 0; number < size.members; ++number)
    joins(0, 0)->vlanIs(memberOf(size, 0, number))->groupIs(groupOf(0, 0));
  world.begin(0);
  world.settle();
  unsigned turn = 0;
  for (auto _ : state) {
    const auto vlan = joins(0, 0)->vlan(memberOf(size, 0, turn++ % size.members));
    vlan->groupDel(groupOf(0, 0));
    world.settle();
    vlan->groupIs(groupOf(0, 0));
    world.settle();
  }
  Bench::count(state, membershipTable()->membershipCount(), "per event", 2.0);
  world.reset();
}
BENCHMARK(popularGroup)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);

/// From the inputs to the last row, the agent's start included.
void startToMemberships(benchmark::State& state) {
  History::AgentWorld world;
  const Size size = sizeOf(state);
  configure(size);
  fillJoins(size);
  std::size_t rows = 0;
  for (auto _ : state) {
    world.begin(0);
    world.settle();
    state.PauseTiming();
    rows = membershipTable()->membershipCount();
    world.clearRows();
    state.ResumeTiming();
  }
  Bench::count(state, rows, "per row", static_cast<double>(rows));
  world.reset();
}
BENCHMARK(startToMemberships)->Apply(sizes)->Unit(benchmark::kMillisecond);

struct KeyHash {
  std::size_t operator()(const RouteIntfKey& key) const { return Vesk::hashValue(key); }
};
using KeySet = absl::flat_hash_set<RouteIntfKey, KeyHash>;

/// The rows that the inputs want, by hash maps of values.
KeySet directly(const Size& size) {
  absl::flat_hash_map<unsigned, std::vector<unsigned>> members;
  const auto vti = input<Vxlan::VtiStatusDir>()->vtiStatus(Pavlin::vxlan1IntfId());
  for (unsigned sbd = 0; sbd < size.sbds; ++sbd)
    for (unsigned number = 0; number < size.members; ++number)
      members[sbd + 1].push_back(memberOf(size, sbd, number).value());
  const bool all = input<Mlag::Status>()->failover();
  std::vector<Ombra::Ptr<Joins>> clients;
  for (unsigned number = 0; number < 8; ++number)
    clients.push_back(joins(0, number));
  KeySet rows;
  for (const auto& [key, entry] : decapStatus()->vlanToMulticastGroupIterator()) {
    const auto& served = members[key.vlan.value()];
    const bool wanted = std::any_of(served.begin(), served.end(), [&](unsigned vlan) {
      return std::any_of(clients.begin(), clients.end(), [&](const auto& client) {
        const auto joined = client->vlan(VlanId(vlan));
        return joined && joined->groupHas(key.group.genAddr());
      });
    });
    if (!wanted) continue;
    const auto intf = Pavlin::VlanIntfId::vlanIdToIntfId(key.vlan);
    for (const UnderlayRoute& route : entry->multicastGroupIterator())
      if (all || (route.underlayGroup.genAddr().v4Addr().value() & 1U) == 0)
        rows.insert({route.underlaySource(), route.underlayGroup.genAddr(), intf});
  }
  return rows;
}
void membershipsDirectly(benchmark::State& state) {
  History::AgentWorld world;
  const Size size = sizeOf(state);
  configure(size);
  fillJoins(size);
  std::size_t rows = 0;
  for (auto _ : state)
    rows = directly(size).size();
  Bench::count(state, rows, "per row", static_cast<double>(rows));
  world.reset();
}
BENCHMARK(membershipsDirectly)->Apply(sizes)->Unit(benchmark::kMillisecond);

/// The same rows by hash maps of plain values alone. Reading the inputs out is part of it.
std::size_t fromValues() {
  const auto joined = [](unsigned vlan, const IpGenAddr& group) {
    return std::uint64_t{vlan} << 32 | group.v4Addr().value();
  };
  absl::flat_hash_set<std::uint64_t> receivers;
  for (unsigned number = 0; number < 8; ++number)
    for (const auto& [vlan, membership] : joins(0, number)->vlanIterator())
      for (const auto& [group, join] : membership->groupIterator())
        receivers.insert(joined(vlan.value(), group));
  const Size size{.groups = 0};
  absl::flat_hash_map<unsigned, std::vector<unsigned>> members;
  for (unsigned sbd = 0; sbd < size.sbds; ++sbd)
    for (unsigned number = 0; number < size.members; ++number)
      members[sbd + 1].push_back(memberOf(size, sbd, number).value());
  const bool all = input<Mlag::Status>()->failover();
  KeySet rows;
  for (const auto& [key, entry] : decapStatus()->vlanToMulticastGroupIterator()) {
    const auto& served = members[key.vlan.value()];
    if (std::none_of(served.begin(), served.end(), [&](unsigned vlan) {
          return receivers.contains(joined(vlan, key.group.genAddr()));
        }))
      continue;
    const auto intf = Pavlin::VlanIntfId::vlanIdToIntfId(key.vlan);
    for (const UnderlayRoute& route : entry->multicastGroupIterator())
      if (all || (route.underlayGroup.genAddr().v4Addr().value() & 1U) == 0)
        rows.insert({route.underlaySource(), route.underlayGroup.genAddr(), intf});
  }
  return rows.size();
}
void membershipsFromValues(benchmark::State& state) {
  History::AgentWorld world;
  const Size size = sizeOf(state);
  configure(size);
  fillJoins(size);
  std::size_t rows = 0;
  for (auto _ : state)
    rows = fromValues();
  if (rows != directly(size).size()) state.SkipWithError("other rows than by the entities");
  Bench::count(state, rows, "per row", static_cast<double>(rows));
  world.reset();
}
BENCHMARK(membershipsFromValues)->Apply(sizes)->Unit(benchmark::kMillisecond);

/// A crash and a start over the rows that are there.
void restartOverMemberships(benchmark::State& state) {
  History::AgentWorld world;
  const Size size = sizeOf(state);
  configure(size);
  fillJoins(size);
  world.begin(0);
  world.settle();
  for (auto _ : state) {
    state.PauseTiming();
    world.crash();
    const auto table = membershipTable();
    auto writes = std::make_unique<Changes>(table);
    state.ResumeTiming();
    world.start();
    world.settle();
    state.PauseTiming();
    state.counters["writes"] = static_cast<double>(writes->count);
    writes = nullptr;
    state.ResumeTiming();
  }
  state.counters["rows"] = membershipTable()->membershipCount();
  world.reset();
}
BENCHMARK(restartOverMemberships)->Apply(sizes)->Iterations(3)->Unit(benchmark::kMillisecond);

/// The pair shares its groups, or one peer takes all; half of the rows go or come.
void mlagStateChanges(benchmark::State& state) {
  History::AgentWorld world;
  configure(sizeOf(state));
  fillJoins(sizeOf(state));
  world.begin(0);
  world.settle();
  bool all = true;
  for (auto _ : state) {
    all = !all;
    input<Mlag::Status>()->failoverIs(all);
    world.settle();
  }
  Bench::count(state, membershipTable()->membershipCount(), "per row",
               static_cast<double>(state.range(0)));
  world.reset();
}
BENCHMARK(mlagStateChanges)->Apply(sizes)->Unit(benchmark::kMillisecond);

/// The longest time without yielding in the same change: the write itself, with whatever follows
/// inside it, and the tasks in slices of ten milliseconds.
void mlagLongestSlice(benchmark::State& state) {
  for (auto _ : state) {
    History::AgentWorld world;
    configure(sizeOf(state));
    fillJoins(sizeOf(state));
    world.begin(0);
    world.settle();
    Bench::ProcessorTimeYield yield;
    Sylva::TaskSchedulerRoot::findOrCreateScheduler()->yieldPolicyIs(&yield);
    double write = 0, slice = 0;
    for (const bool all : {false, true}) {
      write = std::max(write, Bench::seconds([&] { input<Mlag::Status>()->failoverIs(all); }));
      slice = std::max(slice, Bench::longestSlice());
    }
    state.counters["write ms"] = write * 1000;
    state.counters["slice ms"] = slice * 1000;
    world.reset();
  }
}
BENCHMARK(mlagLongestSlice)->Apply(sizes)->Iterations(1)->Unit(benchmark::kMillisecond);

/// What a membership takes in the agent, beside its inputs.
void bytesOfMembership(benchmark::State& state) {
  for (auto _ : state) {
    History::AgentWorld world;
    const Size size = sizeOf(state);
    const std::size_t empty = mallinfo2().uordblks;
    configure(size);
    fillJoins(size);
    const std::size_t inputs = mallinfo2().uordblks - empty;
    world.begin(0);
    world.settle();
    const std::size_t running = mallinfo2().uordblks - empty - inputs;
    const auto rows = static_cast<double>(membershipTable()->membershipCount());
    state.counters["input B/row"] = static_cast<double>(inputs) / rows;
    state.counters["agent B/row"] = static_cast<double>(running) / rows;
    world.reset();
  }
}
BENCHMARK(bytesOfMembership)->Apply(sizes)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
