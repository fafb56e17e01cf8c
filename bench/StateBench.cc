// The smaller machines of a whole agent among many others of their kind: what one event costs must
// not grow with those that it does not concern.
#include "bench/WholeAgent.h"
#include "records/AgentStatus.h"
#include "records/Vxlan.h"

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

}  // namespace
