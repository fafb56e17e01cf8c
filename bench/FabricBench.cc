// The whole agent at the size of a fabric: vlans with eight immediate groups each.
// From a configured state database to the last forwarding row, the same rows by direct computation,
// and what one vlan's change costs among all others.
#include "bench/WholeAgent.h"
#include "records/AgentStatus.h"
#include "records/Bridging.h"
#include "records/Vxlan.h"

namespace {

using Bridging::VlanId;
using History::input;
using Routing::Multicast::OverlayAddr;
using Routing::Multicast::UnderlayAddr;

constexpr unsigned groupsPerVlan = 8;

UnderlayAddr underlay(std::uint32_t number) {
  return UnderlayAddr(Pavlin::IpAddr(0xe8000000U + number));
}

auto vlanEntry(VlanId vlan) {
  return History::groupConfig(Irb::Multicast::Domain::localDomain)
      ->intfConfigIs(Pavlin::vxlan1IntfId())
      ->vlanToMulticastGroupIs(vlan)
      ->tunnelConfigEntryIs();
}

void configure(unsigned vlans) {
  input<Bridging::IgmpSnooping::Status>()->snoopingActiveIs(1);
  input<McastCommon::AgentStatus>(Pavlin::ipv4())->multicastRoutingIs(true);
  const auto vti = input<Vxlan::VtiStatusDir>()->vtiStatusIs(Pavlin::vxlan1IntfId());
  vti->operStatusIs(Vxlan::IntfOperStatus::up);
  vti->localVtepAddrIs(Pavlin::IpAddr(0x0a000001));
  History::groupConfig(Irb::Multicast::Domain::localDomain)
      ->intfConfigIs(Pavlin::vxlan1IntfId())
      ->mcastOverlayV4Is(true);
  for (unsigned number = 1; number <= vlans; ++number) {
    const VlanId vlan(number);
    input<Bridging::VlanStatusDir>()->vlanStatusIs(vlan);
    vti->vlanToVniMapIs(vlan, {});
    const auto entry = vlanEntry(vlan);
    entry->defaultUnderlayGroupIs(underlay(number));
    for (unsigned group = 0; group < groupsPerVlan; ++group)
      entry->immediateOverlayToUnderlayGroupIs(
          OverlayAddr(Pavlin::IpAddr(0xef000000U + number * groupsPerVlan + group)),
          underlay(number + group));
  }
}

/// Until the last forwarding row stands, the agent's start included.
void startToRows(benchmark::State& state) {
  History::AgentWorld world;
  configure(static_cast<unsigned>(state.range(0)));
  const std::size_t rows = Bench::startUntilLastRow(state, world);
  world.reset();
  Bench::count(state, rows, "per row", static_cast<double>(rows));
}
BENCHMARK(startToRows)->Arg(100)->Arg(1000)->Arg(4000)->Unit(benchmark::kMillisecond);

/// The same rows computed directly from the inputs, into an ordinary map.
void directComputation(benchmark::State& state) {
  History::AgentWorld world;
  configure(static_cast<unsigned>(state.range(0)));
  std::size_t rows = 0;
  for (auto _ : state)
    rows = History::wantedRows(History::domains[0]).size();
  world.reset();
  Bench::count(state, rows, "per row", static_cast<double>(rows));
}
BENCHMARK(directComputation)->Arg(100)->Arg(1000)->Arg(4000)->Unit(benchmark::kMillisecond);

/// One vlan moves to another default group, among all the others.
void oneVlanChanges(benchmark::State& state) {
  History::AgentWorld world;
  configure(static_cast<unsigned>(state.range(0)));
  world.begin(0);
  world.settle();
  const auto entry = vlanEntry(VlanId(7));
  std::uint32_t number = 0;
  for (auto _ : state) {
    entry->defaultUnderlayGroupIs(underlay(9000 + (++number & 1U)));
    world.settle();
  }
  world.reset();
}
BENCHMARK(oneVlanChanges)->Arg(100)->Arg(1000)->Arg(4000)->Unit(benchmark::kMicrosecond);

}  // namespace
