// Random histories of the encapsulating road: whatever happens and in whatever order, at rest the
// routes that enter here, their groups, the neighbours asked for and the forwarding rows are those
// that the present inputs want; after a restart too. CORVANE_HISTORIES (default 8000),
// CORVANE_HISTORY_EVENTS (80) and CORVANE_SEED set the run; a failure prints its seed.
#include <cstdlib>

#include <gtest/gtest.h>

#include "tests/history/AgentWorld.h"
#include "tests/history/EncapOracle.h"
#include "tests/history/EventGenerator.h"
#include "tests/history/RouteEvents.h"
#include "tests/history/RouteOracle.h"

namespace History {
namespace {

std::uint64_t setting(const char* name, std::uint64_t otherwise) {
  const char* text = std::getenv(name);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

std::size_t rowsCompared = 0;
std::size_t routesCompared = 0;

/// What one side has and the other has not, each with its own word.
template <class Set>
std::string setDifference(const std::string& what, const Set& wanted, const Set& found,
                          const auto& textOf) {
  std::string text;
  for (const auto& item : wanted)
    if (!found.contains(item)) text += "\n  wanted " + what + " " + textOf(item);
  for (const auto& item : found)
    if (!wanted.contains(item)) text += "\n  unwanted " + what + " " + textOf(item);
  return text;
}

std::string routeDifference(const Multicast::Vpn::Agent& agent) {
  std::string text;
  std::set<std::string> wantedRequests;
  std::set<std::string> heldRequests;
  for (const Domain& domain : domains) {
    if (!domainRuns(domain) || !routesRun(domain)) continue;
    const IngressRoutes wanted = wantedIngress(domain);
    const IngressRoutes held = heldIngress(agent, domain);
    routesCompared += wanted.routes.size();
    wantedRequests.insert(wanted.requests.begin(), wanted.requests.end());
    heldRequests = held.requests;
    const std::string where = Vesk::textOf(domain.domain) + " ";
    text += setDifference(where + "route", wanted.routes, held.routes,
                          [](const auto& route) { return route; });
    text += setDifference(where + "group", wanted.groups, held.groups, [](const auto& group) {
      return std::to_string(group.first) + "," + group.second.stringValue();
    });
  }
  return text + setDifference("request", wantedRequests, heldRequests,
                              [](const auto& request) { return request; });
}

/// At rest: every running domain publishes what it should. The first difference as text, or
/// nothing.
std::string difference(const AgentWorld& world) {
  for (const Domain& domain : domains) {
    if (!domainRuns(domain)) continue;  // its rows stay as they were
    const Rows wanted = wantedRows(domain);
    const Rows found = publishedRows(domain);
    rowsCompared += wanted.size();
    if (wanted == found) continue;
    std::string text = Vesk::textOf(domain.af) + " " + Vesk::textOf(domain.domain) + ":";
    for (const auto& [key, route] : wanted)
      if (const auto at = found.find(key); at == found.end() || at->second != route)
        text += "\n  wanted " + key + " = " + route +
                (at == found.end() ? ", is absent" : ", is " + at->second);
    for (const auto& [key, route] : found)
      if (!wanted.contains(key)) text += "\n  unwanted " + key + " = " + route;
    return text;
  }
  return routeDifference(world.agent());
}

/// Plays one history; the events before the first fault if there is one.
std::string play(AgentWorld& world, std::uint64_t seed, std::size_t events) {
  EventGenerator generator(seed);
  RouteEvents routes(generator);
  std::string told;
  const auto event = [&] { return generator.draw(2) == 0 ? routes.next() : generator.next(); };
  generator.baseline();
  routes.baseline();
  world.begin(seed);
  for (std::size_t i = 0; i <= events; ++i) {
    if (i < events) told += "\n  " + event();
    const auto pace = generator.draw(30);
    if (i < events && pace == 6 && generator.draw(2) == 0) {
      // In the middle of whatever is under way. What others write meets an agent that is dead, or
      // one whose start is not over.
      told += "\n  crash";
      world.crash();
      for (auto left = generator.draw(4); left > 0; --left)
        told += "\n  " + event();
      told += "\n  start";
      world.start();
      world.run(generator.draw(6));
      continue;
    }
    if (i < events && pace >= 6) {
      if (pace >= 18) world.run(pace / 3 - 5);
      if (pace < 9) routes.pass(world, static_cast<double>(generator.draw(40)));
      continue;
    }
    routes.rest(world);
    if (const std::string fault = difference(world); !fault.empty())
      return fault + "\nafter" + told;
    if (pace == 0 || i == events) {
      told += "\n  crash and restart";
      world.crash();
      world.start();
      routes.rest(world);
      if (const std::string fault = difference(world); !fault.empty())
        return fault + "\nafter" + told;
    }
  }
  return {};
}

constexpr std::uint64_t shares = 16;

/// Toggles are given to a process at its start.
AgentWorld::Toggles togglesOff(std::uint64_t share) {
  switch (share % 4) {
    case 1:
      return {{"CorvaneLib.json", "OismGateway"}};
    case 2:
      return {{"BerrinLib.json", "OismMplsTunnel"}, {"StageMgr.json", "EvpnMulticastSSO"}};
    default:
      return {};
  }
}

/// A share of the histories each, so that they run side by side, and none runs long on a busy
/// machine.
class EncapHistory : public testing::TestWithParam<std::uint64_t> {};
INSTANTIATE_TEST_SUITE_P(Share, EncapHistory, testing::Range<std::uint64_t>(0, shares));

TEST_P(EncapHistory, RowsAtRestAreThoseTheInputsWant) {
  const std::uint64_t histories = setting("CORVANE_HISTORIES", 8000) / shares;
  const std::uint64_t first = setting("CORVANE_SEED", 1) + GetParam() * histories;
  const std::size_t events = setting("CORVANE_HISTORY_EVENTS", 80);
  std::printf("%lu histories of %zu events from seed %lu\n", histories, events, first);
  AgentWorld world(togglesOff(GetParam()));
  rowsCompared = routesCompared = 0;
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
  std::printf("%zu rows and %zu routes compared\n", rowsCompared, routesCompared);
  // A few of them may have few routes by chance.
  if (histories >= 200) {
    EXPECT_GT(std::min(rowsCompared, 10 * routesCompared), 10 * histories)
        << "the histories disturb so much that nothing is left to compare";
  }
}

}  // namespace
}  // namespace History
