// Random histories of both roads: whatever happens and in whatever order, at rest the routes that
// enter here, their groups, the neighbours asked for, the forwarding rows, the SBD vlans, the
// memberships and what the smaller machines publish are those that the present inputs want; after a
// restart too, and through the stages of a switchover. CORVANE_HISTORIES (default 4000),
// CORVANE_HISTORY_EVENTS (80) and CORVANE_SEED set the run; a failure prints its seed.
#include <cstdlib>

#include <gtest/gtest.h>

#include "platform/Toggles.h"
#include "tests/history/AgentWorld.h"
#include "tests/history/DecapEvents.h"
#include "tests/history/DecapOracle.h"
#include "tests/history/EncapOracle.h"
#include "tests/history/EventGenerator.h"
#include "tests/history/RouteEvents.h"
#include "tests/history/RouteOracle.h"
#include "tests/history/StateEvents.h"
#include "tests/history/StateOracle.h"
#include "tests/history/Switchover.h"

namespace History {
namespace {

std::uint64_t setting(const char* name, std::uint64_t otherwise) {
  const char* text = std::getenv(name);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

std::size_t rowsCompared = 0;
std::size_t routesCompared = 0;
std::size_t membershipsCompared = 0;

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

/// Every running domain publishes what it should.
std::string rowDifference() {
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
  return {};
}

/// Rows that a dead agent has left stay where nobody says that all reviews are through.
/// A row that is wanted is the agent's own from then on.
std::string membershipDifference(MembershipRows& left) {
  const MembershipRows wanted = wantedMemberships();
  MembershipRows found = publishedMemberships();
  membershipsCompared += wanted.size();
  for (const auto& row : wanted)
    left.erase(row);
  for (const auto& row : left)
    found.erase(row);
  return setDifference("membership", wanted, found, [](const auto& row) {
    return Vesk::textOf(row.first) + " " + Vesk::textOf(row.second);
  });
}

/// One history under way: the agent's world, who writes into it, and what has been told of it.
class Play {
 public:
  Play(AgentWorld& world, std::uint64_t share, std::uint64_t seed)
      : world_(world),
        generator_(seed),
        routes_(generator_),
        receivers_(generator_, share),
        states_(generator_) {
    generator_.listenerIs([this] { note(); });
    generator_.baseline();
    routes_.baseline();
    receivers_.baseline();
    road_ = generator_.draw(3);
    if (Multicast::Vpn::toggleEvpnMulticastSSOEnabled() && generator_.draw(8) == 0)
      switchover_ = Switchover::fromTheStart();
    begins();
    world_.begin(seed);
  }

  /// The events before the first fault if there is one.
  std::string tell(std::size_t events) {
    for (std::size_t i = 0; i <= events; ++i) {
      if (i < events) told_ += "\n  " + event();
      const auto pace = generator_.draw(30);
      if (i < events && pace == 6 && generator_.draw(2) == 0) {
        dieUnderWay();
        continue;
      }
      if (i < events && pace >= 6) {
        if (pace >= 18) world_.run(pace / 3 - 5);
        if (pace < 9) routes_.pass(world_, static_cast<double>(generator_.draw(40)));
        continue;
      }
      if (const std::string fault = rest(); !fault.empty()) return fault;
      if (pace == 0 || i == events) {
        told_ += "\n  crash and restart";
        crash();
        start();
        if (const std::string fault = rest(); !fault.empty()) return fault;
      }
    }
    return {};
  }

 private:
  std::string event() {
    if (switchover_.isUnderWay() && generator_.draw(8) == 0) return "stage " + switchover_.next();
    if (generator_.draw(8) == 0) return states_.next();
    const auto side = road_ == 2 ? generator_.draw(2) : road_;
    if (side == 1 && generator_.draw(2) != 0) return generator_.next();
    std::string words = side == 0 ? receivers_.next() : routes_.next();
    note();
    return words;
  }
  void note() {
    claimsClashed_ = claimsClashed_ || claimsClash();
    remains_.note();
  }
  /// What was before the start of a process is forgotten.
  void begins() {
    claimsClashed_ = claimsClash();
    remains_.vtiWent = false;
    remains_.note();
  }

  /// In the middle of whatever is under way. What others write meets an agent that is dead, or one
  /// whose start is not over.
  void dieUnderWay() {
    told_ += "\n  crash";
    crash();
    for (auto left = generator_.draw(4); left > 0; --left)
      told_ += "\n  " + event();
    told_ += "\n  start";
    start();
    world_.run(generator_.draw(6));
  }
  void crash() {
    if (!Multicast::Vpn::toggleEvpnMulticastSSOEnabled()) left_.merge(publishedMemberships());
    world_.crash();
    hasRun_ = false;
  }
  void start() {
    begins();
    switchover_.restarted();
    world_.start();
  }

  std::string rest() {
    routes_.rest(world_);
    const std::string fault = difference();
    return fault.empty() ? fault : fault + "\nafter" + told_;
  }
  std::string difference() {
    if (!switchover_.mayWrite()) return isCleared() ? "" : "a standby agent has written";
    std::string fault = rowDifference();
    if (fault.empty()) fault = routeDifference(world_.agent());
    hasRun_ = hasRun_ || agentRuns();
    // The machine of the VRFs' SBD vlans outlives an orderly stop, all others end with it.
    if (fault.empty() && hasRun_) fault = proxyDifference(!claimsClashed_);
    if (!fault.empty() || !hasRun_) return fault;
    if (!agentRuns()) {
      left_.clear();
      return isCleared() ? "" : "rows outlive an orderly stop";
    }
    fault = sbdDifference() + stateDifference(remains_);
    if (fault.empty()) fault = switchover_.difference();
    if (!fault.empty()) return fault;
    if (switchover_.mayReview()) return membershipDifference(left_);
    return publishedMemberships().empty() ? "" : "a join before its stage";
  }

  AgentWorld& world_;
  EventGenerator generator_;
  RouteEvents routes_;
  DecapEvents receivers_;
  StateEvents states_;
  Switchover switchover_;
  std::uint64_t road_ = 0;      ///< 0: receivers, 1: senders, 2: both
  bool hasRun_ = false;         ///< at a rest in the life of this process
  bool claimsClashed_ = false;  ///< at some time in the life of this process
  Remains remains_;
  MembershipRows left_;
  std::string told_;
};

constexpr std::uint64_t shares = 16;

/// Toggles are given to a process at its start.
AgentWorld::Toggles togglesOff(std::uint64_t share) {
  switch (share % 8) {
    case 1:
      return {{"CorvaneLib.json", "OismGateway"}};
    case 2:
      return {{"BerrinLib.json", "OismMplsTunnel"}, {"StageMgr.json", "EvpnMulticastSSO"}};
    case 4:
      return {{"BerrinLib.json", "OismMplsTunnel"}};
    case 5:
      return {{"CorvaneLib.json", "OismGateway"}, {"BerrinLib.json", "OismMplsTunnel"}};
    case 6:
      return {{"StageMgr.json", "EvpnMulticastSSO"}};
    default:
      return {};
  }
}

/// A share of the histories each, so that they run side by side, and none runs long on a busy
/// machine.
class AgentHistory : public testing::TestWithParam<std::uint64_t> {};
INSTANTIATE_TEST_SUITE_P(Share, AgentHistory, testing::Range<std::uint64_t>(0, shares));

TEST_P(AgentHistory, RowsAtRestAreThoseTheInputsWant) {
  const std::uint64_t histories = setting("CORVANE_HISTORIES", 4000) / shares;
  const std::uint64_t first = setting("CORVANE_SEED", 1) + GetParam() * histories;
  const std::size_t events = setting("CORVANE_HISTORY_EVENTS", 80);
  std::printf("%lu histories of %zu events from seed %lu\n", histories, events, first);
  AgentWorld world(togglesOff(GetParam()));
  rowsCompared = routesCompared = membershipsCompared = 0;
  const auto play = [&](std::uint64_t seed, std::size_t length) {
    return Play(world, GetParam(), seed).tell(length);
  };
  for (std::uint64_t seed = first; seed < first + histories; ++seed) {
    const std::string fault = play(seed, events);
    if (!fault.empty()) {
      std::size_t shortest = events;  // the shortest prefix of the same history that shows a fault
      std::string shown = fault;
      for (std::size_t n = 1; n < shortest; ++n) {
        world.reset();
        if (const std::string again = play(seed, n); !again.empty()) {
          shortest = n;
          shown = again;
        }
      }
      FAIL() << "seed " << seed << ", " << shortest << " events: " << shown;
    }
    world.reset();
  }
  std::printf("%zu rows, %zu routes and %zu memberships compared\n", rowsCompared, routesCompared,
              membershipsCompared);
  // A few of them may have few routes by chance.
  if (histories >= 200) {
    EXPECT_GT(std::min({rowsCompared, 10 * routesCompared, membershipsCompared}), 10 * histories)
        << "the histories disturb so much that nothing is left to compare";
  }
}

}  // namespace
}  // namespace History
