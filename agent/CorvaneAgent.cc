#include "agent/CorvaneAgent.h"

#include "agent/MountHelpers.h"
#include "platform/Cell.h"
#include "platform/Toggles.h"
#include "runtime/Trace.h"

namespace Multicast::Vpn {
namespace {

Vesk::TraceHandle trace("CorvaneAgent");

}  // namespace

Ombra::Ptr<Agent> Agent::AgentIs(const std::string& name) {
  return Ombra::make<Agent>(name);
}

void Agent::doInit() {
  if (auto t = trace.at(8)) t << "doInit";
  setupFlBuffer();
  const auto group = entityManager()->getMountGroup(this);
  group->doMountAll("Corvane");
  doSkarelMount();
  group->doClose(false, "", 0);
}

void Agent::doMountsComplete(Halden::MountStatus mountStatus,
                             const Ombra::Ptr<Halden::EntityManager>& manager) {
  if (auto t = trace.at(8)) t << "doMountsComplete";
  Ombra::assertThat(mountStatus == Halden::mountSuccess(), "mountStatus == Halden::mountSuccess()");
  const Halden::EntityManager& em = *manager;
  const bool gateway = toggleOismGatewayEnabled();
  mountedTo(ipTunnelGroupConfigAttr, *this, em,
            Routing::Multicast::IpTunnelGroupConfig::mountPath());
  if (gateway)
    mountedTo(ipTunnelRemoteDomainGroupConfigAttr, *this, em,
              Routing::Multicast::IpTunnelGroupConfig::remoteDomainMountPath());
  mountedTo(vlanStatusDirAttr, *this, em, Bridging::VlanStatusDir::mountPath());
  mountedTo(vtiStatusDirAttr, *this, em, Vxlan::VtiStatusDir::mountPath());
  mountedTo(agentStatusAttr, *this, em,
            McastCommon::AgentRunningStatus::mountPath(Pavlin::AddressFamily{}, agentName()));
  mountedTo(igmpSnoopingStatusAttr, *this, em, Bridging::IgmpSnooping::Status::mountPath());
  mountedTo(mldSnoopingStatusAttr, *this, em, Bridging::IgmpSnooping::Config::mountPath());
  mountedTo(hwCapabilitiesAttr, *this, em, Bridging::HwCapabilities::mountPath());
  mountedTo(mlagStatusAttr, *this, em, Mlag::Status::mountPath());
  mountedTo(mlagProtoStatusAttr, *this, em, Mlag::ProtoStatus::mountPath());
  mountedTo(mlagVxlanStatusAttr, *this, em, Mlag::VxlanStatus::mountPath());
  mountedTo(pimsmConfigCollAttr, *this, em,
            Routing::Pim::SparseMode::ConfigColl::mountPath(Pavlin::ipv4()));
  mountedTo(aclListConfigAttr, *this, em, Acl::AclListConfig::mountPath());
  mountedTo(vxlanEnabledStatusAttr, *this, em, Vxlan::EnabledStatus::mountPath());

  decapReadyStatusCollIs();
  encapReadyStatusCollIs();
  underlayRouteFilterSetIs();
  mlagStateIs();

  for (const auto af : Pavlin::families)
    doMountsCompleteAf(af, em);

  // Read before the redundancy machine stands: it may build the launcher in its constructor.
  if (gateway || toggleOismMplsTunnelEnabled()) {
    mountedTo(evpnStatusAttr, *this, em, Evpn::EvpnStatus::mountPath());
    mountedTo(gmpProxyStatusAttr, *this, em, Irb::Multicast::GmpProxyStatus::mountPath());
    mountedTo(evpnStaticStatusAttr, *this, em, Irb::Multicast::EvpnStaticStatus::mountPath());
  }
  redundancyStatusSmIs({.redundancyStatus = redundancyStatus(), .corvaneAgent = this});
  if (toggleEvpnMulticastSSOEnabled() && standbyMode()) {
    waitForStages(em);
  } else {
    for (const auto& [client, status] : decapReadyStatusColl()->statusIterator())
      status->startReviewIs(true);
  }
  handleStandbyMode();
}

void Agent::waitForStages(const Halden::EntityManager& em) {
  const auto status = mounted<Stage::AgentStatus>(em, Cell::path(Stage::AgentStatus::mountPath()));
  const auto progress =
      mounted<Stage::ProgressDir>(em, Cell::path(Stage::ProgressDir::mountPath()));
  const auto config = mounted<Stage::AgentConfig>(em, Cell::path(Stage::AgentConfig::mountPath()));
  const auto completion =
      mounted<Stage::CompletionStatusDir>(em, Cell::path(Stage::CompletionStatusDir::mountPath()));
  ssoStagesHelperIs({.name = CorvaneNsfSm::stageClassName,
                     .status = status,
                     .progressDir = progress,
                     .agentConfig = config,
                     .agent = this});
  ssoStagesHelper()->setInstanceCompletionStatusDir(completion);
  corvaneNsfSmIs({.encapReadyStatusColl = encapReadyStatusColl(),
                  .decapReadyStatusColl = decapReadyStatusColl(),
                  .ssoStagesHelper = ssoStagesHelper()});
  ssoStagesHelper()->waitForStage(CorvaneNsfSm::encapReconcileStage);
  ssoStagesHelper()->waitForStage(CorvaneNsfSm::decapReconcileStage);
}

void Agent::doMountsCompleteAf(Pavlin::AddressFamily af, const Halden::EntityManager& em) {
  using GroupStatus = Routing::Multicast::IpTunnelVlanGroupStatus;
  using Type = Routing::Multicast::IpTunnelGroupStatusType;
  using Client = EncapDecapReadyClient;
  using Intfs = Routing::Multicast::MulticastIntfsForApplications;
  if (auto t = trace.at(8)) t << "doMountsCompleteAf " << Pavlin::stringValue(af);
  const bool gateway = toggleOismGatewayEnabled();
  const bool v4 = af == Pavlin::ipv4();
  AfContainer& container = *afContainerIs(af, {.agent = this});
  DomainContainer& local = *container.localDomainContainerIs({Irb::Multicast::Domain::localDomain});
  local.domainClientIs(v4 ? Client::ipv4Local : Client::ipv6Local);
  DomainContainer* remote = nullptr;
  if (gateway) {
    remote = container.remoteDomainContainerIs({Irb::Multicast::Domain::remoteDomain}).get();
    remote->domainClientIs(v4 ? Client::ipv4Remote : Client::ipv6Remote);
  }
  local.encapVlanGroupStatusIs(
      mounted<GroupStatus>(em, GroupStatus::mountPath(af, Type::irbEncapStatus)));
  if (remote != nullptr)
    remote->encapVlanGroupStatusIs(
        mounted<GroupStatus>(em, GroupStatus::mountPath(af, Type::irbRemoteDomainEncapStatus)));
  if (gateway)
    container.pegNeighborStatusIs(sharedAt<Routing::Multicast::PegNeighborStatus>(
        Routing::Multicast::PegNeighborStatus::mountPath(af)));
  local.decapVlanGroupStatusIs(
      mounted<GroupStatus>(em, GroupStatus::mountPath(af, Type::irbDecapStatus)));
  if (remote != nullptr)
    remote->decapVlanGroupStatusIs(
        mounted<GroupStatus>(em, GroupStatus::mountPath(af, Type::irbRemoteDomainDecapStatus)));

  mountedTo(AfContainer::mcastEvpnStatusAttr, container, em,
            Routing::Multicast::McastEvpnStatus::mountPath(af));
  mountedTo(AfContainer::mcastStatusAttr, container, em, McastCommon::AgentStatus::mountPath(af));
  mountedTo(AfContainer::mcastEnabledStatusAttr, container, em,
            Routing::Multicast::Fib::VrfEnabledStatus::mountPath(af));
  if (v4) {
    mountedTo(AfContainer::mfibHwStatusAttr, container, em,
              Routing::Multicast::Fib::Hardware::Status::mountPath(af));
    mountedTo(AfContainer::mcastEvpnConfigAttr, container, em,
              Routing::Multicast::Evpn::Config::mountPath(af));
    container.sbdVlanMcastGroupIs(Ombra::make<IpGen::Ipv4MulticastGroupsForApplications>(
        mounted<Ip::MulticastGroupsForApplications>(
            em, Ip::MulticastGroupsForApplications::mountPath())));
  } else {
    container.sbdVlanMcastGroupIs(Ombra::make<IpGen::Ipv6MulticastGroupsForApplications>(
        mounted<Ip6::MulticastGroupsForApplications>(
            em, Ip6::MulticastGroupsForApplications::mountPath())));
  }
  mountedTo(AfContainer::multicastIntfAppDirAttr, container, em,
            Intfs::dirMountPath(af, "corvane"));
  mountedTo(AfContainer::underlayMulticastIntfAppDirAttr, container, em,
            Intfs::dirMountPath(af, "mcasttunnel"));
  mountedTo(AfContainer::multicastAppDirRootAttr, container, em, Intfs::dirMountPath(af));

  local.decapReadyStatusIs(decapReadyStatusColl()->statusIs(local.domainClient()));
  local.encapReadyStatusIs(encapReadyStatusColl()->statusIs(local.domainClient()));
  if (remote != nullptr)
    remote->decapReadyStatusIs(decapReadyStatusColl()->statusIs(remote->domainClient()));
  mountedTo(AfContainer::vrfLeakConfigAttr, container, em,
            Routing::Multicast::VrfLeak::McastVrfLeakConfig::mountPath(af));
  container.mcastIntfSmRootIs();
  for (DomainContainer* domain : {&local, remote}) {
    if (domain == nullptr) continue;
    domain->ipTunnelMappingStatusIs();
    domain->ingressL3RouteStatusIs();
  }
  container.mcastVrfLeakCtxIs();
}

void Agent::handleStandbyMode() {
  if (auto t = trace.at(8)) t << "handleStandbyMode standbyMode: " << standbyMode();
  if (standbyMode()) return;
  launcherSmIs({.vtiStatusDir = vtiStatusDir(),
                .v4McastStatus = afContainer(Pavlin::ipv4())->mcastStatus(),
                .v6McastStatus = afContainer(Pavlin::ipv6())->mcastStatus(),
                .evpnStatus = evpnStatus(),
                .evpnStaticStatus = evpnStaticStatus(),
                .agentStatus = agentStatus(),
                .corvaneAgent = this});
}

void Agent::startup() {
  if (auto t = trace.at(1)) t << "Initiating agent";
  doBriskelMount();
  for (const auto af : Pavlin::families)
    doBriskelMountAf(af);
  afContainerSmIs(Pavlin::ipv4(), {.container = afContainer(Pavlin::ipv4()),
                                   .igmpSnoopingStatus = igmpSnoopingStatus(),
                                   .mldSnoopingStatus = nullptr,
                                   .evpnStatus = evpnStatus(),
                                   .gmpProxyStatus = gmpProxyStatus(),
                                   .encapReadyStatusColl = encapReadyStatusColl()});
  afContainerSmIs(Pavlin::ipv6(), {.container = afContainer(Pavlin::ipv6()),
                                   .igmpSnoopingStatus = nullptr,
                                   .mldSnoopingStatus = mldSnoopingStatus(),
                                   .evpnStatus = evpnStatus(),
                                   .gmpProxyStatus = gmpProxyStatus(),
                                   .encapReadyStatusColl = encapReadyStatusColl()});
}

void Agent::shutdown() {
  if (auto t = trace.at(1)) t << "Initiating agent shutdown";
  for (const auto af : Pavlin::families)
    afContainerSmDel(af);
  for (const auto af : Pavlin::families)
    doBriskelUnmount(af);
  doBriskelUnmount();
  if (auto t = trace.at(1)) t << "Agent shutdown complete";
}

void Agent::doStage(const std::string& stageClass, const std::string& stage) {
  if (corvaneNsfSm()) corvaneNsfSm()->doStage(stageClass, stage);
}

void Agent::lastUserGone() {
  // The launcher first: nothing may start the machines again while they are taken down.
  launcherSmDel();
  redundancyStatusSmDel();
  afContainerSmDelAll();
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::Agent)
