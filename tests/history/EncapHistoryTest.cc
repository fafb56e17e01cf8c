// Random histories of the encapsulating road: whatever happens and in whatever order, at rest the forwarding rows are those
// that the present inputs want; and a restart at rest writes none.
// CORVANE_HISTORIES (default 2000), CORVANE_HISTORY_EVENTS (50) and CORVANE_SEED set the run; a failure prints its seed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <random>

#include "agent/CorvaneAgent.h"
#include "runtime/Clock.h"
#include "runtime/Log.h"
#include "tests/history/EncapOracle.h"
#include "tests/history/EventGenerator.h"
#include "tests/history/Inputs.h"

namespace History {
namespace {

constexpr std::array<Domain, 4> domains{{{Pavlin::AddressFamily::ipv4, Irb::Multicast::Domain::localDomain},
                                         {Pavlin::AddressFamily::ipv4, Irb::Multicast::Domain::remoteDomain},
                                         {Pavlin::AddressFamily::ipv6, Irb::Multicast::Domain::localDomain},
                                         {Pavlin::AddressFamily::ipv6, Irb::Multicast::Domain::remoteDomain}}};

std::uint64_t setting(const char* name, std::uint64_t otherwise) {
  const char* text = std::getenv(name);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

/// One agent in its world: manual time, slices of a few items, a directory of its own.
class AgentWorld {
 public:
  AgentWorld() : directory_(std::filesystem::temp_directory_path() / ("corvane-history-" + std::to_string(getpid()))) {
    Vesk::System::clockIs(&clock_);
    VeskSharedMem::EntityManager::directoryIs(directory_.string());
    setenv("FLEETLOG_DISABLE", "1", 1);
    Vesk::logSinkIs([](const auto&, const auto&, const auto&) {});
  }
  ~AgentWorld() {
    agent_ = nullptr;
    reset();
    VeskSharedMem::EntityManager::forgetProcess();
    scheduler().yieldPolicyIs(nullptr);
    Vesk::System::clockIs(nullptr);
    Vesk::logSinkIs(nullptr);
    std::filesystem::remove_all(directory_);
  }

  void begin(std::uint64_t seed) {
    yield_ = std::make_unique<Sylva::ItemYield>(seed % 4);
    scheduler().yieldPolicyIs(yield_.get());
    scheduler().shuffleSeedIs(seed);
    Vesk::Publisher::shuffleSeedIs(seed);
    start();
  }
  void start() {
    agent_ = Multicast::Vpn::Agent::AgentIs("Corvane");
    agent_->start();
  }
  /// As by kill -9: nothing of the agent runs any more.
  void crash() {
    static auto& dead = *new std::vector<Ombra::Ptr<Multicast::Vpn::Agent>>;
    dead.push_back(std::move(agent_));
    agent_ = nullptr;
    Halden::StateDatabase::instance().dropSubscribers();
    scheduler().reset();
    VeskSharedMem::EntityManager::forgetProcess();
  }
  void run(std::size_t slices) { scheduler().runUntilIdle(slices); }
  void settle() { scheduler().runUntilIdle(); }
  void advance(double seconds) {
    const double until = clock_.now() + seconds;
    for (settle(); scheduler().nextExpiry() <= until; settle()) {
      clock_.advanceTo(std::max(clock_.now(), scheduler().nextExpiry()));
      scheduler().fireExpired(clock_.now());
    }
    clock_.advanceTo(until);
  }
  /// The world as new: no agent, no input, no row.
  void reset() {
    agent_ = nullptr;
    scheduler().reset();
    Halden::StateDatabase::instance().root()->deleteAll();
    for (const Domain& domain : domains) {
      using Status = Routing::Multicast::IpTunnelForwardingStatus;
      const bool local = domain.domain == Irb::Multicast::Domain::localDomain;
      sharedInput<Status>(local ? Status::mountPath(domain.af) : Status::remoteDomainMountPath(domain.af))
          ->vlanStatusDelAll();
    }
    sharedInput<Irb::Multicast::GatewayEsStatus>()->esVlanStatusDelAll();
    VeskSharedMem::EntityManager::forgetProcess();
  }

 private:
  static Sylva::TaskScheduler& scheduler() { return *Sylva::TaskSchedulerRoot::findOrCreateScheduler(); }
  std::filesystem::path directory_;
  Vesk::ManualClock clock_{1000};
  std::unique_ptr<Sylva::YieldPolicy> yield_;
  Ombra::Ptr<Multicast::Vpn::Agent> agent_;
};

std::size_t rowsCompared = 0;

/// At rest: every running domain publishes what it should. The first difference as text, or nothing.
std::string difference() {
  for (const Domain& domain : domains) {
    if (!domainRuns(domain)) continue;  // its rows stay as they were
    const Rows wanted = wantedRows(domain);
    const Rows found = publishedRows(domain);
    rowsCompared += wanted.size();
    if (wanted == found) continue;
    std::string text = Vesk::textOf(domain.af) + " " + Vesk::textOf(domain.domain) + ":";
    for (const auto& [key, route] : wanted)
      if (const auto at = found.find(key); at == found.end() || at->second != route)
        text += "\n  wanted " + key + " = " + route + (at == found.end() ? ", is absent" : ", is " + at->second);
    for (const auto& [key, route] : found)
      if (!wanted.contains(key)) text += "\n  unwanted " + key + " = " + route;
    return text;
  }
  return {};
}

/// Plays one history; the events before the first fault if there is one.
std::string play(AgentWorld& world, std::uint64_t seed, std::size_t events) {
  EventGenerator generator(seed);
  std::string told;
  generator.baseline();
  world.begin(seed);
  for (std::size_t i = 0; i <= events; ++i) {
    if (i < events) told += "\n  " + generator.next();
    const auto pace = generator.draw(10);
    if (i < events && pace >= 2) {
      if (pace >= 6) world.run(pace - 5);
      if (pace == 2) world.advance(generator.draw(20));
      continue;
    }
    world.advance(61);
    if (const std::string fault = difference(); !fault.empty()) return fault + "\nafter" + told;
    if (pace == 0 || i == events) {
      told += "\n  crash and restart";
      world.crash();
      world.start();
      world.advance(61);
      if (const std::string fault = difference(); !fault.empty()) return fault + "\nafter" + told;
    }
  }
  return {};
}

TEST(EncapHistory, RowsAtRestAreThoseTheInputsWant) {
  const std::uint64_t first = setting("CORVANE_SEED", 1);
  const std::uint64_t histories = setting("CORVANE_HISTORIES", 2000);
  const std::size_t events = setting("CORVANE_HISTORY_EVENTS", 50);
  std::printf("%lu histories of %zu events from seed %lu\n", histories, events, first);
  AgentWorld world;
  for (std::uint64_t seed = first; seed < first + histories; ++seed) {
    const std::string fault = play(world, seed, events);
    if (!fault.empty()) {
      std::size_t shortest = events;  // the shortest prefix of the same history that shows a fault
      std::string shown = fault;
      for (std::size_t n = 1; n < shortest; ++n) {
        world.reset();
        if (const std::string again = play(world, seed, n); !again.empty()) {
          shortest = n;
          shown = again;
        }
      }
      FAIL() << "seed " << seed << ", " << shortest << " events: " << shown;
    }
    world.reset();
  }
  std::printf("%zu rows compared\n", rowsCompared);
  EXPECT_GT(rowsCompared, 10 * histories) << "the histories disturb so much that nothing is left to compare";
}

}  // namespace
}  // namespace History
