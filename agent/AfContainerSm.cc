#include "agent/AfContainerSm.h"

#include "agent/CorvaneAgent.h"
#include "platform/Toggles.h"
#include "runtime/Trace.h"

namespace Multicast::Vpn {
namespace {

Vesk::TraceHandle trace("AfContainerSm");

}  // namespace

AfContainerSm::AfContainerSm(Pavlin::AddressFamily family, Inputs inputs)
    : af(family), in(std::move(inputs)) {
  handleInit();
  handleGatewayStatus();
  clearLeftovers();
}

bool AfContainerSm::snooping() const {
  return af == Pavlin::ipv4() ? in.igmpSnoopingStatus->snoopingActive() != 0
                              : in.mldSnoopingStatus->snoopingEnabled();
}

Ombra::Ptr<DomainContainerSm> AfContainerSm::domainCntrSm(Irb::Multicast::Domain domain) {
  switch (domain) {
    case Irb::Multicast::Domain::localDomain:
      return localDomainCntrSm();
    case Irb::Multicast::Domain::remoteDomain:
      return remoteDomainCntrSm();
  }
  Ombra::fatal("assertion failed: Unsupported domain");
}

std::vector<Ombra::Ptr<DomainContainerSm>> AfContainerSm::domainCntrSms() {
  std::vector<Ombra::Ptr<DomainContainerSm>> running;
  for (const auto domain : domains)
    if (auto machine = domainCntrSm(domain)) running.push_back(std::move(machine));
  return running;
}

void AfContainerSm::handleInit() {
  AfContainer& container = *in.container;
  sbdIntfSmIs({.vtiStatusDir = agent().vtiStatusDir(),
               .sbdVlanMcastGroup = container.sbdVlanMcastGroup(),
               .multicastIntfsAppDir = container.multicastIntfAppDir()});
  overlayVrfSmIs({.af = af,
                  .mcastEnabledStatus = container.mcastEnabledStatus(),
                  .multicastAppDirRoot = container.multicastAppDirRoot(),
                  .mcastIntfSmRoot = container.mcastIntfSmRoot()});
  makeSbdMachine();
  vxlanSrcIntfSmIs({.vtiStatusDir = agent().vtiStatusDir(),
                    .ipTunnelGroupStatus = container.localDomainContainer()->encapVlanGroupStatus(),
                    .multicastIntfsAppDir = container.underlayMulticastIntfAppDir()});
  makeLeakMachines();
  makeVpnInjectSm();
  if (snooping()) {
    addIpTunnelConfigStateMachines();
  } else {
    markNothingToDo();
  }
  updateMultipleUnderlayGroupStateMachines();
  makeFloodAndEvpnMachines();
  if (toggleOismGatewayEnabled()) {
    makeForwarderMachines();
    gatewayStatusIs(agent().gatewayESStatus());
  }
}

void AfContainerSm::clearLeftovers() {
  bool takesRoutes = false;
  for (const auto domain : domains) {
    const auto machine = domainCntrSm(domain);
    const auto container = in.container->domainContainer(domain);
    if (container && !machine) container->clearGroupStatus();
    takesRoutes = takesRoutes || (machine && machine->ingressL3RouteSm());
  }
  const auto& requests = in.container->proactiveArpConfig();
  if (requests && !takesRoutes) requests->requestDelAll();
}

void AfContainerSm::makeSbdMachine() {
  const AfContainer& container = *in.container;
  const auto& mcastIrbStatus = in.container->mcastIrbStatus();
  if (toggleOismMplsTunnelEnabled()) {
    mcastIrbStatusSmIs({.igmpProxyStatus = container.mergedGmpProxyStatus(),
                        .gmpProxyStatus = in.gmpProxyStatus,
                        .vtiStatusDir = agent().vtiStatusDir(),
                        .mcastIntfColl = container.mcastIntfSmRoot(),
                        .mcastIrbStatus = mcastIrbStatus,
                        .smControl = {}});
  } else {
    vxlanSmIs({.vtiStatusDir = agent().vtiStatusDir(),
               .igmpProxyStatus = container.mergedGmpProxyStatus(),
               .mcastIntfRoot = container.mcastIntfSmRoot(),
               .mcastIrbStatus = mcastIrbStatus});
  }
}

void AfContainerSm::makeVpnInjectSm() {
  AfContainer& container = *in.container;
  const auto local = container.domainContainer(Irb::Multicast::Domain::localDomain);
  const auto remote = container.domainContainer(Irb::Multicast::Domain::remoteDomain);
  vpnInjectSmIs({.af = af,
                 .taskScheduler = Sylva::TaskSchedulerRoot::findOrCreateScheduler(),
                 .membershipJoinStatusColl = container.membershipJoinStatusColl(),
                 .tunnelVlanGroupStatus = local->decapVlanGroupStatus(),
                 .tunnelStatusRemoteDomain = remote ? remote->decapVlanGroupStatus() : nullptr,
                 .mcastIrbStatus = container.mcastIrbStatus(),
                 .vtiStatusDir = agent().vtiStatusDir(),
                 .mlagStatus = agent().mlagStatus(),
                 .mlagState = agent().mlagState(),
                 .mcastVrfLeakCtx = container.mcastVrfLeakCtx(),
                 .gatewayStatus = agent().gatewayESStatus(),
                 .filterSet = agent().underlayRouteFilterSet(),
                 .underlayInjectDedupTable = agent().underlayInjectDedupTable(),
                 .decapReadyStatus = local->decapReadyStatus(),
                 .decapReadyStatusRemoteDomain = remote ? remote->decapReadyStatus() : nullptr});
}

void AfContainerSm::makeFloodAndEvpnMachines() {
  AfContainer& container = *in.container;
  const auto encapStatus = container.localDomainContainer()->encapVlanGroupStatus();
  const auto remote = container.remoteDomainContainer();
  ipTunnelFloodGroupConfigSmIs({.vlanToGroupConfig = agent().ipTunnelGroupConfig(),
                                .vlanStatusDir = agent().vlanStatusDir(),
                                .vtiStatusDir = agent().vtiStatusDir(),
                                .vlanToGroupStatus = encapStatus});
  mcastEvpnStatusSmIs(
      {.tunnelVlanGroupStatus = encapStatus,
       .remoteDomainTunnelVlanGroupStatus = remote ? remote->encapVlanGroupStatus() : nullptr,
       .igmpProxyStatus = container.mergedGmpProxyStatus(),
       .mcastEvpnStatus = container.mcastEvpnStatus(),
       .hwCapabilities = agent().hwCapabilities(),
       .pimsmConfigColl = agent().pimsmConfigColl()});
}

void AfContainerSm::makeForwarderMachines() {
  AfContainer& container = *in.container;
  container.electedDfStatusDirIs();
  electedDfStatusSmIs({.evpnStatus = in.evpnStatus,
                       .electedDfStatusDir = container.electedDfStatusDir(),
                       .smControl = {}});
  edfSmIs({.electedDfStatusDir = container.electedDfStatusDir(),
           .pegDrStatus = agent().pegDrStatus(),
           .pegVlanStatus = container.pegVlanStatus(),
           .pegNeighborStatus = container.pegNeighborStatus(),
           .mcastIrbStatus = container.mcastIrbStatus(),
           .externalForwarderStatus = container.externalForwarderStatus(),
           .smControl = {}});
}

void AfContainerSm::makeLeakMachines() {
  Sylva::TaskScheduler* const scheduler = Sylva::TaskSchedulerRoot::findOrCreateScheduler();
  policyRootIs(Ombra::make<Routing::Policy::PolicyRoot>());
  const auto& lists = agent().aclListConfig();
  if (af == Pavlin::ipv4()) {
    adopt(prefixListConfigSmAttr,
          Routing::RouteMap::prefixListConfigSmFactory(scheduler, lists, policyRoot()));
  } else {
    adopt(ipv6PrefixListConfigSmAttr,
          Routing::RouteMap::ipv6PrefixListConfigSmFactory(scheduler, lists, policyRoot()));
  }
  const auto matcherStatus = Ombra::make<Routing::Multicast::VrfLeak::VrfLeakMatcherStatus>();
  const auto& leakConfig = in.container->vrfLeakConfig();
  vrfLeakHelperSmIs({.af = af,
                     .vrfLeakConfig = leakConfig,
                     .policyRoot = policyRoot(),
                     .matcherStatus = matcherStatus});
  in.container->mcastVrfLeakCtx()->vrfLeakMatcherStatusIs(matcherStatus);
  in.container->mcastVrfLeakCtx()->vrfLeakConfigIs(leakConfig);
}

void AfContainerSm::markNothingToDo() {
  // No stage may wait for a family that has no machines.
  if (!toggleEvpnMulticastSSOEnabled()) return;
  for (const auto& domain : in.container->domainContainers()) {
    if (!domain->encapReadyStatus()) continue;
    domain->encapReadyStatus()->vlanGroupStatusReadyIs(true);
    domain->encapReadyStatus()->forwardingStatusReadyIs(true);
  }
}

void AfContainerSm::addIpTunnelConfigStateMachines() {
  if (auto t = trace.at(8)) t << "addIpTunnelConfigStateMachines";
  if (!localDomainCntrSm())
    localDomainCntrSmIs(
        {.domain = Irb::Multicast::Domain::localDomain, .afContainer = in.container});
  if (toggleOismGatewayEnabled() && !remoteDomainCntrSm()) handleGatewayStatus();
  updateMultipleUnderlayGroupStateMachines();
}

void AfContainerSm::deleteIpTunnelConfigStateMachines() {
  if (auto t = trace.at(8)) t << "deleteIpTunnelConfigStateMachines";
  for (const auto& domain : domainCntrSms())
    domain->stopGroupConfig();
  localDomainCntrSmDel();
  remoteDomainCntrSmDel();
}

void AfContainerSm::handleGatewayStatus() {
  const bool gatewayPresent =
      toggleOismGatewayEnabled() && gatewayStatus() && gatewayStatus()->esVlanStatusCount() != 0;
  if (auto t = trace.at(8)) t << "handleGatewayStatus gatewayPresent: " << gatewayPresent;
  if (!gatewayPresent) {
    remoteDomainCntrSmDel();
  } else if (!remoteDomainCntrSm()) {
    remoteDomainCntrSmIs(
        {.domain = Irb::Multicast::Domain::remoteDomain, .afContainer = in.container});
    updateMultipleUnderlayGroupStateMachines();  // else nobody declares its L3 table ready
  }
}

void AfContainerSm::handleIgmpSnoopingStatus() {
  Ombra::assertThat(af == Pavlin::ipv4(), "af() == Pavlin::ipv4()");
  handleSnooping();
}

void AfContainerSm::handleMldSnoopingStatus() {
  Ombra::assertThat(af == Pavlin::ipv6(), "af() == Pavlin::ipv6()");
  handleSnooping();
}

void AfContainerSm::handleSnooping() {
  if (snooping()) {
    addIpTunnelConfigStateMachines();
  } else {
    deleteIpTunnelConfigStateMachines();
  }
  updateMultipleUnderlayGroupStateMachines();
}

void AfContainerSm::updateMultipleUnderlayGroupStateMachines() {
  if (auto t = trace.at(8)) t << "updateMultipleUnderlayGroupStateMachines";
  const bool takesRoutes = af == Pavlin::ipv4() && snooping();  // ipv6 has no route machines
  for (const auto& domain : domainCntrSms()) {
    const auto mappings = domain->domainContainer()->ipTunnelMappingStatus();
    domain->updateMultipleUnderlayGroupStateMachines(
        takesRoutes && mappings->multipleUnderlayGroupsDelayedVrfCount() != 0);
  }
}

void AfContainerSm::handleCleanup() {
  deleteIpTunnelConfigStateMachines();
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::AfContainerSm)
