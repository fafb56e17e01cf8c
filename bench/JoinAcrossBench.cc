// One join on its way through three roles: a client writes its table, an agent in a process of its
// own takes that up, and a reader of PIM's table sees the row; then the leave. All sleep in
// between, as they do in a switch, so that each step costs a wake-up. Time of the clock on the
// wall.
#include <algorithm>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "records/MembershipJoin.h"
#include "records/UnderlayGmp.h"
#include "tests/TemporaryDirectory.h"
#include "tests/history/Inputs.h"
#include "tests/host/Program.h"

namespace {

using Bridging::VlanId;
using Clock = std::chrono::steady_clock;
using Pavlin::IpAddr;
using Pavlin::IpGenAddr;
using Routing::Gmp::Briskel::RouteIntfKey;
using GmpTable = Routing::Gmp::Briskel::Status;
using Joins = Irb::Multicast::Gmp::MembershipJoinStatus;

constexpr unsigned groups = 100;
constexpr IpAddr overlayGroup(unsigned number) {
  return IpAddr(0xef010100U + number);
}
constexpr IpAddr underlayGroup(unsigned number) {
  return IpAddr(0xe8010100U + number);
}

/// An agent that lives on over a vlan with groups that nobody has joined.
class Agent {
 public:
  Agent() : program_("play --keep " + directory_ / "live" + " --stay " + scenario()) {
    if (program_.lineWith("the agent stays").empty())
      throw std::runtime_error("the agent does not stay");
  }
  [[nodiscard]] std::string tables() const { return directory_ / "live/shm"; }

 private:
  std::string scenario() {
    const std::string file = directory_ / "agent.yaml";
    std::ofstream text(file);
    text << "title: A vlan with groups that nobody has joined\nsteps:\n  - write:\n"
            "      multicast/ipv4/agent/status:multicastRouting: true\n"
            "      interface/status/eth/vxlan:vtiStatus[Vxlan1]: {operStatus: up}\n"
            "      multicast/ipv4/tunnel/group/status/irbDecapStatus:vlanToMulticastGroup:\n";
    for (unsigned number = 0; number < groups; ++number)
      text << fmt::format("        10,{}: {{multicastGroup: [\"10.0.0.9,{},PimSsm\"]}}\n",
                          Vesk::textOf(overlayGroup(number)), Vesk::textOf(underlayGroup(number)));
    text << "  - start:\n";
    return file;
  }

  TemporaryDirectory directory_;
  Program program_;
};

void joinFromAnotherProcess(benchmark::State& state) {
  const Agent agent;
  VeskSharedMem::EntityManager::directoryIs(agent.tables());
  const auto tables = VeskSharedMem::EntityManager::getEntityManager();
  const auto vlan = History::sharedInput<Joins>(
                        Joins::mountPath(Pavlin::ipv4(), Irb::Multicast::App::Client::client0))
                        ->vlanIs(VlanId(10));
  const auto memberships = boost::dynamic_pointer_cast<GmpTable const>(tables->doMount(
      GmpTable::appMountPath(Pavlin::ipv4(), Routing::Gmp::Briskel::App::corvane, "default"),
      GmpTable::veskName, VeskBriskel::MountInfo(VeskBriskel::VeskBriskelType::reader)));

  std::vector<double> microseconds;
  const auto measure = [&](const RouteIntfKey& row, bool isThere, auto change) {
    const auto begin = Clock::now();
    change();
    tables->wakeReaders();
    while (memberships->membershipHas(row) != isThere) {
      if (Clock::now() - begin > std::chrono::seconds(5)) return false;
      tables->waitForChanges(std::chrono::milliseconds(1000));
      tables->takeUpChanges([] { return false; });
    }
    microseconds.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
    return true;
  };
  const auto joinAndLeave = [&](unsigned number) {
    const IpGenAddr group(overlayGroup(number));
    const RouteIntfKey row{IpGenAddr(IpAddr(0x0a000009U)), IpGenAddr(underlayGroup(number)),
                           Pavlin::VlanIntfId::vlanIdToIntfId(VlanId(10))};
    return measure(row, true, [&] { vlan->groupIs(group); }) &&
           measure(row, false, [&] { vlan->groupDel(group); });
  };
  joinAndLeave(0);  // the tables come, and are found
  microseconds.clear();
  for (auto _ : state)
    for (unsigned turn = 0; turn < state.range(0); ++turn)
      if (!joinAndLeave(turn % groups)) return state.SkipWithError("the row does not follow");
  std::sort(microseconds.begin(), microseconds.end());
  state.counters["median us"] = microseconds[microseconds.size() / 2];
  state.counters["p99 us"] = microseconds[microseconds.size() * 99 / 100];
  VeskSharedMem::EntityManager::forgetProcess();
}
BENCHMARK(joinFromAnotherProcess)
    ->Arg(100)
    ->Arg(10000)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
