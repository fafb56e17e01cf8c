#include "agent/CorvaneAgent.h"

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
                             const Ombra::Ptr<Halden::EntityManager>&) {
  if (auto t = trace.at(8)) t << "doMountsComplete";
  Ombra::assertThat(mountStatus == Halden::mountSuccess(), "mountStatus == Halden::mountSuccess()");
  keepMounts(Corvane::Moment::mountsComplete);
  decapReadyStatusCollIs();
  encapReadyStatusCollIs();
  underlayRouteFilterSetIs();
  mlagStateIs();
  makeMlagFilter();

  for (const auto af : Pavlin::families)
    doMountsCompleteAf(af);

  // May build the launcher in its constructor: what that needs stands by now.
  redundancyStatusSmIs({.redundancyStatus = redundancyStatus(), .corvaneAgent = this});
  if (holds(Corvane::Condition::standby, standbyMode())) {
    waitForStages();
  } else {
    for (const auto& [client, status] : decapReadyStatusColl()->statusIterator())
      status->startReviewIs(true);
  }
  handleStandbyMode();
}

void Agent::makeMlagFilter() {
  const auto filter = Ombra::make<Routing::Multicast::MlagUnderlayRouteFilter>(mlagState());
  mlagUnderlayRouteChangeSmIs({.mlagState = mlagState(), .filter = filter});
  underlayRouteFilterSet()->filterIs(filter);
}

void Agent::makeGatewayFilter() {
  // One for the process's life: it stays in the set over a stop and a start.
  if (gatewayUnderlayRouteChangeSm()) return;
  const auto filter =
      Ombra::make<Routing::Multicast::GatewayUnderlayRouteFilter>(gatewayESStatus());
  gatewayUnderlayRouteChangeSmIs({.gatewayEsStatus = gatewayESStatus(), .filter = filter});
  underlayRouteFilterSet()->filterIs(filter);
}

void Agent::makeMembershipTable() {
  Sylva::TaskScheduler* const scheduler = Sylva::TaskSchedulerRoot::findOrCreateScheduler();
  const auto gmpStatus = afContainer(Pavlin::ipv4())->underlayGmpStatus();
  const auto gmpStatus6 = afContainer(Pavlin::ipv6())->underlayGmpStatus();
  underlayInjectNotifieeIs({.gmpStatus = gmpStatus, .gmpStatus6 = gmpStatus6});
  underlayInjectDedupTableIs({.notifiee = underlayInjectNotifiee()});
  membershipReconcileSm4Is({.decapReadyStatusColl = decapReadyStatusColl(),
                            .inputStatus = underlayInjectDedupTable(),
                            .outputStatus = gmpStatus,
                            .scheduler = scheduler});
  membershipReconcileSm6Is({.decapReadyStatusColl = decapReadyStatusColl(),
                            .inputStatus = underlayInjectDedupTable(),
                            .outputStatus = gmpStatus6,
                            .scheduler = scheduler});
}

void Agent::waitForStages() {
  keepMounts(Corvane::Moment::standby);
  const auto& [config, status, progress, completion] = stageMounts;
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

void Agent::doMountsCompleteAf(Pavlin::AddressFamily af) {
  if (auto t = trace.at(8)) t << "doMountsCompleteAf " << Pavlin::stringValue(af);
  AfContainer& container = *afContainerIs(af, {.agent = this});
  for (const auto domain : domains)
    if (holds(traitsOf(domain).condition, standbyMode()))
      container.domainContainerIs(domain)->domainClientIs(traitsOf(domain).client(af));
  keepMounts(Corvane::Moment::mountsComplete, af);
  for (const auto& domain : container.domainContainers()) {
    domain->decapReadyStatusIs(decapReadyStatusColl()->statusIs(domain->domainClient()));
    domain->ipTunnelMappingStatusIs();
    domain->ingressL3RouteStatusIs();
  }
  // That of the remote domain comes with its machines.
  DomainContainer& local = *container.localDomainContainer();
  local.encapReadyStatusIs(encapReadyStatusColl()->statusIs(local.domainClient()));
  container.mcastIntfSmRootIs();
  container.mcastVrfLeakCtxIs();
}

void Agent::handleStandbyMode() {
  if (auto t = trace.at(8)) t << "handleStandbyMode standbyMode: " << standbyMode();
  if (standbyMode()) return;
  const bool isStart = !launcherSm();
  launcherSmIs({.vtiStatusDir = vtiStatusDir(),
                .v4McastStatus = afContainer(Pavlin::ipv4())->mcastStatus(),
                .v6McastStatus = afContainer(Pavlin::ipv6())->mcastStatus(),
                .evpnStatus = evpnStatus(),
                .evpnStaticStatus = evpnStaticStatus(),
                .agentStatus = agentStatus(),
                .corvaneAgent = this});
  if (isStart && !agentStatus()->running()) clearLeftovers();
}

void Agent::startup() {
  if (auto t = trace.at(1)) t << "Initiating agent";
  tunnelRootIs({.entityManager = entityManager()});
  tunnelRootSmIs({.root = tunnelRoot()});
  doBriskelMount();
  for (const auto af : Pavlin::families)
    doBriskelMountAf(af);
  if (toggleOismGatewayEnabled()) makeGatewayFilter();
  makeMembershipTable();
  mlagVxlanStateSmIs({.vtiStatusDir = vtiStatusDir(),
                      .mlagStatus = mlagStatus(),
                      .mlagProtoStatus = mlagProtoStatus(),
                      .mlagVxlanStatus = mlagVxlanStatus(),
                      .mlagVxlanState = mlagState()});
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
  staticRemoteVniToSBDVlanConfigSmIs({.vlanToGroupConfig = ipTunnelGroupConfig(),
                                      .vtiStatusDir = vtiStatusDir(),
                                      .remoteVniToSBDVlan = remoteVniToSBDVlan()});
  if (holds(Corvane::Condition::gatewayOrMpls, standbyMode()))
    gmpProxyStatusSmIs({.mvpnIntfStatus = mvpnIntfStatus(),
                        .vtiStatusDir = vtiStatusDir(),
                        .vrfIdStatus = vrfIdMapStatus(),
                        .gmpProxyStatus = gmpProxyStatus(),
                        .smControl = {}});
}

void Agent::shutdown() {
  if (auto t = trace.at(1)) t << "Initiating agent shutdown";
  for (const auto af : Pavlin::families)
    afContainerSmDel(af);
  staticRemoteVniToSBDVlanConfigSmDel();
  tunnelRootSmDel();
  tunnelRootDel();
  underlayInjectNotifieeDel();
  underlayInjectDedupTableDel();
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
