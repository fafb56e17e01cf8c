// One agent in a world of its own: manual time, injected slices, a directory of shared tables that
// goes with it. Used by random histories and by measurements of the whole agent.
#pragma once

#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "agent/CorvaneAgent.h"
#include "records/ProactiveArp.h"
#include "runtime/Clock.h"
#include "runtime/Log.h"
#include "runtime/Toggle.h"
#include "tests/history/EncapOracle.h"
#include "tests/history/Inputs.h"

namespace History {

inline constexpr std::array<Domain, 4> domains{
    {{Pavlin::AddressFamily::ipv4, Irb::Multicast::Domain::localDomain},
     {Pavlin::AddressFamily::ipv4, Irb::Multicast::Domain::remoteDomain},
     {Pavlin::AddressFamily::ipv6, Irb::Multicast::Domain::localDomain},
     {Pavlin::AddressFamily::ipv6, Irb::Multicast::Domain::remoteDomain}}};

/// One agent in its world: manual time, slices of a few items, a directory of its own.
class AgentWorld {
 public:
  /// Toggles that are off from here on, each by its file and name.
  using Toggles = std::vector<std::pair<std::string, std::string>>;

  explicit AgentWorld(const Toggles& off = {})
      : directory_(std::filesystem::temp_directory_path() /
                   ("corvane-history-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(directory_ / "toggles");
    for (const auto& [file, name] : off)
      std::ofstream(directory_ / "toggles" / file) << "{\"" << name << "\": false}";
    Orlane::toggleDirIs(directory_ / "toggles");
    Orlane::forgetToggles();
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
    Orlane::toggleDirIs("");
    Orlane::forgetToggles();
  }

  /// Starts the agent with slices, task order and subscriber order drawn from the seed; 0 leaves
  /// all of them natural.
  void begin(std::uint64_t seed) {
    yield_ = std::make_unique<Sylva::ItemYield>(seed % 4);
    scheduler().yieldPolicyIs(yield_.get());
    scheduler().shuffleSeedIs(seed == 0 ? std::optional<std::uint64_t>() : seed);
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
    Vesk::Publisher::dropWrites();
    Halden::StateDatabase::instance().dropSubscribers();
    scheduler().reset();
    VeskSharedMem::EntityManager::forgetProcess();
  }
  [[nodiscard]] const Multicast::Vpn::Agent& agent() const { return *agent_; }
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
    clearRows();
    Halden::StateDatabase::instance().root()->deleteAll();
    sharedInput<Irb::Multicast::GatewayEsStatus>()->esVlanStatusDelAll();
    sharedInput<Irb::Multicast::GatewayEsStatus>()->underlayRouteStatusDelAll();
    sharedInput<Routing::Multicast::MvpnIntfStatus>()->vrfIntfIdDelAll();
    for (const auto af : Pavlin::families) {
      using Irb::Multicast::IgmpProxyStatus;
      using Irb::Multicast::Gmp::MembershipJoinStatus;
      sharedInput<IgmpProxyStatus>(IgmpProxyStatus::mergedAfMountPath(af))->igmpProxyVlanDelAll();
      for (const auto client : Irb::Multicast::Gmp::joinClients()) {
        const auto path = MembershipJoinStatus::mountPath(af, client);
        if (sharedTable<MembershipJoinStatus>(path)->vlanCount() != 0)
          sharedInput<MembershipJoinStatus>(path)->vlanDelAll();
      }
    }
    sharedInput<Arp::Table::Status>()->arpEntryDelAll();
    sharedInput<Briskel::Bridging::Status>()->fdbEntryDelAll();
    sharedInput<Vrf::VrfIdMap::Status>()->vrfIdToNameDelAll();
    using namespace Routing::Multicast;
    sharedInput<PegDrStatus>(PegDrStatus::mountPath(Pavlin::ipv4()))->pegDrVlanDelAll();
    for (const auto af : Pavlin::families) {
      sharedInput<PegVlanStatus>(PegVlanStatus::mountPath(af))->pegVlanDelAll();
      sharedInput<PegNeighborStatus>(PegNeighborStatus::mountPath(af))->pegVlanNeighborDelAll();
    }
    using namespace Multicast::Tunnel;
    for (const auto client : {McastTunnelClientType::client1, McastTunnelClientType::client2}) {
      sharedInput<IrVxlanIpv4TunnelRequestTable>(IrVxlanIpv4TunnelRequestTable::mountPath(client))
          ->tunnelRequestDelAll();
      sharedInput<PimVxlanTunnelRequestTable>(PimVxlanTunnelRequestTable::mountPath(client))
          ->tunnelRequestDelAll();
    }
  }
  /// The agent goes, and the rows of its tables with it.
  void clearRows() {
    agent_ = nullptr;
    scheduler().reset();
    for (const Domain& domain : domains) {
      using Status = Routing::Multicast::IpTunnelForwardingStatus;
      const bool local = domain.domain == Irb::Multicast::Domain::localDomain;
      sharedInput<Status>(local ? Status::mountPath(domain.af)
                                : Status::remoteDomainMountPath(domain.af))
          ->vlanStatusDelAll();
    }
    sharedInput<Arp::ProactiveArp::ClientConfig>()->requestDelAll();
    sharedInput<Vxlan::RemoteVniToVlanStatus>(
        Vxlan::RemoteVniToVlanStatus::mountPath("static", Pavlin::vxlan1IntfId()))
        ->remoteVniToVlanDelAll();
    sharedInput<Multicast::Tunnel::McastTunnelStatus>()->mcastTunnelSetDelAll();
    sharedInput<Multicast::Tunnel::IrVxlanIpv4TunnelTable>()->encapDelAll();
    for (const auto af : Pavlin::families) {
      using Routing::Multicast::ExternalForwarderStatus;
      sharedInput<ExternalForwarderStatus>(ExternalForwarderStatus::mountPath(af))
          ->intfStatusDelAll();
      using Irb::Multicast::McastIrbStatus;
      using GmpStatus = Routing::Gmp::Briskel::Status;
      sharedInput<McastIrbStatus>(
          McastIrbStatus::mountPath(af, Irb::Multicast::App::Client::client3))
          ->vlanToSbdDelAll();
      sharedInput<GmpStatus>(
          GmpStatus::appMountPath(af, Routing::Gmp::Briskel::App::corvane, "default"))
          ->membershipDelAll();
    }
  }

 private:
  static Sylva::TaskScheduler& scheduler() {
    return *Sylva::TaskSchedulerRoot::findOrCreateScheduler();
  }
  std::filesystem::path directory_;
  Vesk::ManualClock clock_{1000};
  std::unique_ptr<Sylva::YieldPolicy> yield_;
  Ombra::Ptr<Multicast::Vpn::Agent> agent_;
};

}  // namespace History
