// The whole agent with a full table of multicast routes: 100 routes in each VRF, over four vlans
// and a routed port. From a filled forwarding table of the hardware to the last row for the
// tunnels, the same rows by direct computation, what one route's change costs among all others, the
// longest time without yielding, and the memory of a route.
#include <malloc.h>

#include "bench/RoutesWorld.h"
#include "bench/WholeAgent.h"

namespace {

using namespace Bench::Routes;

unsigned vrfsOf(const benchmark::State& state) {
  return static_cast<unsigned>(state.range(0)) / routesPerVrf;
}
void sizes(benchmark::internal::Benchmark* bench) {
  bench->Arg(1000)->Arg(10000)->Arg(100000);
}

void count(benchmark::State& state, std::size_t rows) {
  Bench::count(state, rows, "per route", static_cast<double>(state.range(0)));
}

/// Until the last forwarding row stands, the agent's start included.
void routesToRows(benchmark::State& state) {
  History::AgentWorld world;
  configure(vrfsOf(state));
  fillFib(vrfsOf(state));
  const std::size_t rows = Bench::startUntilLastRow(state, world);
  world.reset();
  count(state, rows);
}
BENCHMARK(routesToRows)->Apply(sizes)->Unit(benchmark::kMillisecond);

/// The same rows computed directly from the inputs, into an ordinary map.
void routesDirectly(benchmark::State& state) {
  History::AgentWorld world;
  configure(vrfsOf(state));
  fillFib(vrfsOf(state));
  std::size_t rows = 0;
  for (auto _ : state)
    rows = History::wantedRows(History::domains[0]).size();
  world.reset();
  count(state, rows);
}
BENCHMARK(routesDirectly)->Apply(sizes)->Unit(benchmark::kMillisecond);

/// A full table, and one route of it changes all the time.
template <class Change>
void oneRouteChanges(benchmark::State& state, Change change) {
  History::AgentWorld world;
  configure(vrfsOf(state));
  fillFib(vrfsOf(state));
  world.begin(0);
  world.settle();
  const auto route = fib()->vrfStatus(vrfName(3))->route(routeKey(3, 3));
  unsigned turn = 0;
  for (auto _ : state) {
    change(*route, ++turn);
    world.settle();
  }
  world.reset();
}
void oneRouteIsHeard(benchmark::State& state) {
  const double start = 1000;
  oneRouteChanges(state,
                  [&](auto& route, unsigned turn) { route.lastActivityTimeIs(start + turn % 2); });
}
BENCHMARK(oneRouteIsHeard)->Apply(sizes)->Unit(benchmark::kMicrosecond);
/// From the routed port to a vlan where its source is not local: a group, its forwarding row and
/// back.
void oneRouteEntersAndLeaves(benchmark::State& state) {
  const IntfId ports[] = {IntfId("Ethernet1"), sviOf(3, 0)};
  oneRouteChanges(state, [&](auto& route, unsigned turn) { route.iifIs(ports[turn % 2]); });
}
BENCHMARK(oneRouteEntersAndLeaves)->Apply(sizes)->Unit(benchmark::kMicrosecond);

/// The longest times without yielding, in milliseconds, and the bytes that a route takes.
void stretchesAndMemory(benchmark::State& state) {
  const auto milliseconds = [&](const char* what, double time) {
    state.counters[what] = time * 1000;
  };
  for (auto _ : state) {
    History::AgentWorld world;
    Bench::ProcessorTimeYield yield;
    Sylva::TaskSchedulerRoot::findOrCreateScheduler()->yieldPolicyIs(&yield);
    configure(vrfsOf(state));
    const std::size_t empty = mallinfo2().uordblks;
    fillFib(vrfsOf(state));
    const std::size_t filled = mallinfo2().uordblks;
    milliseconds("start ms", Bench::seconds([&] { world.start(); }));
    milliseconds("fill slice ms", Bench::longestSlice());
    const std::size_t running = mallinfo2().uordblks;
    fib()->vrfStatusDelAll();
    world.settle();
    const std::size_t idle = mallinfo2().uordblks;  // the agent without routes
    state.counters["table B/route"] =
        static_cast<double>(filled - empty) / static_cast<double>(state.range(0));
    state.counters["agent B/route"] =
        static_cast<double>(running - idle) / static_cast<double>(state.range(0)) -
        state.counters["table B/route"];
    fillFib(vrfsOf(state));
    world.settle();
    const auto vti = input<Vxlan::VtiStatusDir>()->vtiStatus(Pavlin::vxlan1IntfId());
    for (const auto oper : {Vxlan::IntfOperStatus::down, Vxlan::IntfOperStatus::up}) {
      const std::string word = oper == Vxlan::IntfOperStatus::up ? "up" : "down";
      milliseconds((word + " ms").c_str(), Bench::seconds([&] { vti->operStatusIs(oper); }));
      milliseconds((word + " slice ms").c_str(), Bench::longestSlice());
    }
    state.PauseTiming();
    world.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(stretchesAndMemory)->Apply(sizes)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
