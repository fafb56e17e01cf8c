// The agent's trace ring and its shared-memory mounts. The order of mounting is the order in which
// inputs may be relied on.
#include <cstdlib>
#include <sstream>

#include "agent/CorvaneAgent.h"
#include "agent/MountHelpers.h"
#include "platform/Toggles.h"
#include "runtime/Fleetlog.h"
#include "runtime/Trace.h"

namespace Multicast::Vpn {
namespace {

using Irb::Multicast::App::Client;
using VeskBriskel::MountInfo;
using VeskBriskel::VeskBriskelType;
using MembershipJoinStatus = Irb::Multicast::Gmp::MembershipJoinStatus;
using ForwardingStatus = Routing::Multicast::IpTunnelForwardingStatus;
using GmpStatus = Routing::Gmp::Briskel::Status;
using PegDrStatus = Routing::Multicast::PegDrStatus;
using PegVlanStatus = Routing::Multicast::PegVlanStatus;
using MvpnIntfStatus = Routing::Multicast::MvpnIntfStatus;
using ForwarderStatus = Routing::Multicast::ExternalForwarderStatus;

Vesk::TraceHandle trace("CorvaneAgent");

const Pavlin::IntfId vxlan1 = Pavlin::VxlanTunnelIntfId::vxlanTunnelToIntfId(1);

/// A table that this agent writes: each collection sized as its record declares.
template <class T>
[[nodiscard]] MountInfo writerOf() {
  MountInfo info(VeskBriskelType::writer);
  for (const Vesk::FieldInfo* field : T::veskType().fields())
    if (field->capacity != 0) info.collectionInfoIs({std::string(field->name), field->capacity});
  return info;
}

VeskSharedMem::EntityManager& shmem() {
  return *VeskSharedMem::EntityManager::getEntityManager();
}

/// Mounts at once and reads the table back.
template <class T>
Ombra::Ptr<T> mountTable(const std::string& path, const MountInfo& info) {
  shmem().doMount(path, T::veskName, info);
  return sharedAt<T>(path);
}

void cleanAndUnmount(const std::string& path) {
  shmem().cleanup(path);
  shmem().doUnmount(path);
}

/// The clients whose joins are read, in mount order.
[[nodiscard]] std::vector<Client> joinClients() {
  std::vector<Client> clients;
  for (const unsigned number : {0U, 2U, 3U, 5U, 8U, 9U, 10U, 4U, 13U})
    clients.push_back(static_cast<Client>(number));
  if (toggleOismGatewayEnabled())
    for (const unsigned number : {11U, 12U})
      clients.push_back(static_cast<Client>(number));
  return clients;
}

constexpr Client peerClient = static_cast<Client>(3);
constexpr Client irbStatusClient = peerClient;
constexpr auto gmpApp = static_cast<Routing::Gmp::Briskel::App>(4);

[[nodiscard]] std::string irbStatusPath(Pavlin::AddressFamily af) {
  return Irb::Multicast::McastIrbStatus::mountPath(af, irbStatusClient);
}
[[nodiscard]] std::string gmpStatusPath(Pavlin::AddressFamily af) {
  return GmpStatus::appMountPath(af, gmpApp, "default");
}
[[nodiscard]] std::string remoteVniPath() {
  return Vxlan::RemoteVniToVlanStatus::mountPath("static", vxlan1);
}

/// Sizes of the ring's buffers, with those that the environment gives in place of the first ones.
[[nodiscard]] Fleetlog::Sizes ringSizes() {
  Fleetlog::Sizes sizes{30, 30, 30, 30, 30, 30, 30, 90, 90, 90};
  const char* given = std::getenv("PIMFLSIZE");
  if (given == nullptr) return sizes;
  std::istringstream tokens(given);
  std::string token;
  std::size_t i = 0;
  for (; i < sizes.size() && tokens >> token; ++i)
    sizes[i] = static_cast<unsigned>(std::strtoul(token.c_str(), nullptr, 10));
  if (auto t = trace.at(1)) t << ", using new fleetlog sizes";
  for (std::size_t k = 0; k < sizes.size(); ++k)
    if (auto t = trace.at(1)) t << "  FL buffer " << k << " " << sizes[k];
  if (i == sizes.size() && tokens >> token)
    fmt::print(stderr, "PIMFLSIZE: more than {} sizes, '{}' and what follows are ignored\n",
               sizes.size(), token);
  return sizes;
}

}  // namespace

void Agent::setupFlBuffer() {
  if (std::getenv("FLEETLOG_DISABLE") != nullptr) return;
  std::string fileName = agentName();
  if (std::getenv("FLEETLOGDIR") == nullptr) fileName += "-%d";
  fileName += ".fl";
  Fleetlog::initialize(fileName, ringSizes(), nullptr, 0, 24, 0, true, 512);
}

void Agent::doSkarelMount() {
  const bool gateway = toggleOismGatewayEnabled();
  auto& group = getShmemMountGroup();
  for (const auto af : Pavlin::families) {
    for (const Client client : joinClients())
      group.doMount(MembershipJoinStatus::mountPath(af, client), MembershipJoinStatus::veskName,
                    VeskSkarel::MountInfo{false, true, true});
    group.doMount(Irb::Multicast::IgmpProxyStatus::mergedAfMountPath(af),
                  Irb::Multicast::IgmpProxyStatus::veskName,
                  MountInfo(VeskBriskelType::readerTracked));
    group.doMount(ForwardingStatus::mountPath(af), ForwardingStatus::veskName,
                  VeskSkarel::MountInfo{false, false, true});
    if (!gateway) continue;
    group.doMount(ForwardingStatus::remoteDomainMountPath(af), ForwardingStatus::veskName,
                  VeskSkarel::MountInfo{false, false, true});
    group.doMount(Routing::Multicast::PegNeighborStatus::mountPath(af),
                  Routing::Multicast::PegNeighborStatus::veskName,
                  VeskSkarel::MountInfo{false, true, true});
  }
  if (gateway)
    group.doMount(Irb::Multicast::GatewayEsStatus::mountPath(),
                  Irb::Multicast::GatewayEsStatus::veskName,
                  MountInfo(VeskBriskelType::readerTracked));
  group.doClose();
}

void Agent::doBriskelMount() {
  const MountInfo tracked(VeskBriskelType::readerTracked);
  arpStatusIs(mountTable<Arp::Table::Status>(Arp::Table::Status::mountPath(), tracked));
  bridgingStatusIs(
      mountTable<Briskel::Bridging::Status>(Briskel::Bridging::Status::mountPath(), tracked));
  vrfIdMapStatusIs(mountTable<Vrf::VrfIdMap::Status>(Vrf::VrfIdMap::Status::mountPath(),
                                                     MountInfo(VeskBriskelType::reader)));
  pegDrStatusIs(mountTable<PegDrStatus>(PegDrStatus::mountPath(Pavlin::ipv4()), tracked));
  remoteVniToSBDVlanIs(mountTable<Vxlan::RemoteVniToVlanStatus>(
      remoteVniPath(), writerOf<Vxlan::RemoteVniToVlanStatus>()));
  if (toggleOismGatewayEnabled() || toggleOismMplsTunnelEnabled())
    mvpnIntfStatusIs(mountTable<MvpnIntfStatus>(
        MvpnIntfStatus::mountPath(),
        MountInfo(VeskBriskelType::reader).collectionInfoIs({"vrfIntfId", 1024, true})));
  if (toggleOismGatewayEnabled())  // mounted with the deferred group
    gatewayESStatusIs(
        sharedAt<Irb::Multicast::GatewayEsStatus>(Irb::Multicast::GatewayEsStatus::mountPath()));
}

void Agent::doBriskelMountAf(Pavlin::AddressFamily af) {
  const bool gateway = toggleOismGatewayEnabled();
  AfContainer& container = *afContainer(af);
  container.mcastIrbStatusIs(mountTable<Irb::Multicast::McastIrbStatus>(
      irbStatusPath(af), writerOf<Irb::Multicast::McastIrbStatus>()));
  if (gateway) {
    container.electedDfStatusDirIs();
    container.externalForwarderStatusIs(
        mountTable<ForwarderStatus>(ForwarderStatus::mountPath(af), writerOf<ForwarderStatus>()));
    container.pegVlanStatusIs(mountTable<PegVlanStatus>(PegVlanStatus::mountPath(af),
                                                        MountInfo(VeskBriskelType::readerTracked)));
  }
  if (af == Pavlin::ipv4())
    container.proactiveArpConfigIs(mountTable<Arp::ProactiveArp::ClientConfig>(
        Arp::ProactiveArp::ClientConfig::mountPath(), writerOf<Arp::ProactiveArp::ClientConfig>()));
  mountMembershipJoins(container);
  const auto group = shmem().getMountGroup();
  group->doMount(gmpStatusPath(af), GmpStatus::typeName(), writerOf<GmpStatus>());
  group->doClose();
  sharedTo(AfContainer::underlayGmpStatusAttr, container, gmpStatusPath(af));
  container.localDomainContainer()->ipTunnelForwardingStatusIs(
      sharedAt<ForwardingStatus>(ForwardingStatus::mountPath(af)));
  if (gateway)
    container.remoteDomainContainer()->ipTunnelForwardingStatusIs(
        sharedAt<ForwardingStatus>(ForwardingStatus::remoteDomainMountPath(af)));
  sharedTo(AfContainer::mergedGmpProxyStatusAttr, container,
           Irb::Multicast::IgmpProxyStatus::mergedAfMountPath(af));
}

void Agent::mountMembershipJoins(AfContainer& container) {
  const auto joins = container.membershipJoinStatusCollIs();
  const auto leakCtx = container.mcastVrfLeakCtx();
  leakCtx->mcastIrbStatusIs(container.mcastIrbStatus());
  leakCtx->vxlanEnabledStatusIs(vxlanEnabledStatus());
  joins->mcastVrfLeakCtxIs(leakCtx);
  for (const Client client : joinClients()) {
    const auto joined =
        sharedAt<MembershipJoinStatus>(MembershipJoinStatus::mountPath(container.af(), client));
    if (client == peerClient) {
      joins->peerMembershipIs(joined);
    } else {
      joins->localMembershipIs(joined);
    }
  }
}

void Agent::doBriskelUnmount(Pavlin::AddressFamily af) {
  cleanAndUnmount(irbStatusPath(af));
  cleanAndUnmount(gmpStatusPath(af));
  if (af == Pavlin::ipv4()) shmem().doUnmount(Arp::ProactiveArp::ClientConfig::mountPath());
  if (!toggleOismGatewayEnabled()) return;
  shmem().doUnmount(PegVlanStatus::mountPath(af));
  cleanAndUnmount(ForwarderStatus::mountPath(af));
}

void Agent::doBriskelUnmount() {
  shmem().doUnmount(Vrf::VrfIdMap::Status::mountPath());
  shmem().doUnmount(Arp::Table::Status::mountPath());
  shmem().doUnmount(Briskel::Bridging::Status::mountPath());
  shmem().doUnmount(PegDrStatus::mountPath(Pavlin::ipv4()));
  cleanAndUnmount(remoteVniPath());
  if (toggleOismMplsTunnelEnabled() || toggleOismGatewayEnabled())
    shmem().doUnmount(MvpnIntfStatus::mountPath());
}

}  // namespace Multicast::Vpn
