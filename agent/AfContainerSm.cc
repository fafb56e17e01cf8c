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
}

bool AfContainerSm::snooping() const {
  return af == Pavlin::ipv4() ? in.igmpSnoopingStatus->snoopingActive() != 0
                              : in.mldSnoopingStatus->snoopingEnabled();
}

void AfContainerSm::handleInit() {
  AfContainer& container = *in.container;
  overlayVrfSmIs({.af = af,
                  .mcastEnabledStatus = container.mcastEnabledStatus(),
                  .multicastAppDirRoot = container.multicastAppDirRoot(),
                  .mcastIntfSmRoot = container.mcastIntfSmRoot()});
  makeLeakMachines();
  if (snooping()) {
    addIpTunnelConfigStateMachines();
  } else {
    markNothingToDo();
  }
  updateMultipleUnderlayGroupStateMachines();
  if (toggleOismGatewayEnabled()) {
    container.electedDfStatusDirIs();
    gatewayStatusIs(agent().gatewayESStatus());
  }
}

void AfContainerSm::makeLeakMachines() {
  Sylva::TaskScheduler* const scheduler = Sylva::TaskSchedulerRoot::findOrCreateScheduler();
  policyRootIs(Ombra::make<Routing::Policy::PolicyRoot>());
  const Routing::RouteMap::PrefixListConfigSm::Inputs lists{
      .scheduler = scheduler,
      .af = af,
      .aclListConfig = agent().aclListConfig(),
      .policyRoot = policyRoot()};
  if (af == Pavlin::ipv4()) {
    prefixListConfigSmIs(lists);
  } else {
    ipv6PrefixListConfigSmIs(lists);
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
  for (const auto& domain :
       {in.container->localDomainContainer(), in.container->remoteDomainContainer()}) {
    if (!domain || !domain->encapReadyStatus()) continue;
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
  for (const auto& domain : {localDomainCntrSm(), remoteDomainCntrSm()})
    if (domain) domain->stopGroupConfig();
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
  // Of ipv4 only: ipv6 has no route machines.
  const auto shouldEnable = [this](const Ombra::Ptr<DomainContainer>& domain) {
    return af == Pavlin::ipv4() && snooping() &&
           domain->ipTunnelMappingStatus()->multipleUnderlayGroupsDelayedVrfCount() != 0;
  };
  if (localDomainCntrSm())
    localDomainCntrSm()->updateMultipleUnderlayGroupStateMachines(
        shouldEnable(in.container->localDomainContainer()));
  if (toggleOismGatewayEnabled() && remoteDomainCntrSm())
    remoteDomainCntrSm()->updateMultipleUnderlayGroupStateMachines(
        shouldEnable(in.container->remoteDomainContainer()));
}

void AfContainerSm::handleCleanup() {
  deleteIpTunnelConfigStateMachines();
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::AfContainerSm)
