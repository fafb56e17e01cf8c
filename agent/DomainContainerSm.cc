#include "agent/DomainContainerSm.h"

#include "agent/CorvaneAgent.h"
#include "runtime/Trace.h"

namespace Multicast::Vpn {
namespace {

Vesk::TraceHandle trace("DomainContainerSm");

}  // namespace

DomainContainerSm::DomainContainerSm(Inputs inputs) : in(std::move(inputs)) {
  handleInit();
}

void DomainContainerSm::handleInit() {
  Agent& agent = *in.afContainer->agent();
  DomainContainer& domain = *domainContainer();
  Sylva::TaskScheduler* const scheduler = Sylva::TaskSchedulerRoot::findOrCreateScheduler();
  domain.encapReadyStatusIs(agent.encapReadyStatusColl()->statusIs(domain.domainClient()));
  defaultOverlayGroupSmIs({.af = in.afContainer->af(),
                           .ipTunnelMappingStatus = domain.ipTunnelMappingStatus(),
                           .vlanGroupTable = domain.vlanGroupTableColl()->table(
                               VlanGroupTableColl::getDefaultTableName())});
  ipTunnelGroupConfigSmIs({.vlanToGroupConfig = traitsOf(in.domain).groupConfig(agent),
                           .vlanStatusDir = agent.vlanStatusDir(),
                           .vtiStatusDir = agent.vtiStatusDir(),
                           .mcastIntfRoot = in.afContainer->mcastIntfSmRoot(),
                           .vlanToGroupStatus = domain.encapVlanGroupStatus(),
                           .ipTunnelMappingStatus = domain.ipTunnelMappingStatus()});
  ipTunnelMappingSmIs({.vlanToGroupStatus = domain.encapVlanGroupStatus(),
                       .ipTunnelMappingStatus = domain.ipTunnelMappingStatus(),
                       .forwardingStatus = domain.ipTunnelForwardingStatus(),
                       .encapReadyStatus = domain.encapReadyStatus(),
                       .taskScheduler = scheduler});
  ipTunnelVlanMcastGroupSmIs({.scheduler = scheduler,
                              .vlanGroupTableColl = domain.vlanGroupTableColl(),
                              .ipTunnelMappingStatus = domain.ipTunnelMappingStatus(),
                              .vlanToGroupStatus = domain.encapVlanGroupStatus(),
                              .encapReadyStatus = domain.encapReadyStatus()});
}

void DomainContainerSm::updateMultipleUnderlayGroupStateMachines(bool shouldEnable) {
  const std::string domainText = Vesk::textOf(in.domain);
  if (auto t = trace.at(8))
    t << "updateMultipleUnderlayGroupStateMachines domain: " << domainText
      << " shouldEnable: " << shouldEnable;
  DomainContainer& domain = *domainContainer();
  const auto l3OverlayRouteTable =
      domain.vlanGroupTableColl()->table(VlanGroupTableColl::getL3TableName());
  Ombra::assertThat(l3OverlayRouteTable != nullptr, "l3OverlayRouteTable");
  if (shouldEnable) {
    Agent& agent = *in.afContainer->agent();
    Sylva::TaskScheduler* const scheduler = Sylva::TaskSchedulerRoot::findOrCreateScheduler();
    l3OverlayGroupSmIs({.scheduler = scheduler,
                        .ingressL3RouteStatus = domain.ingressL3RouteStatus(),
                        .vtiStatusDir = agent.vtiStatusDir(),
                        .vlanGroupDedupTable = domain.vlanGroupDedupTable(),
                        .vlanGroupTable = l3OverlayRouteTable});
    ingressL3RouteSmIs({.scheduler = scheduler,
                        .addressFamily = in.afContainer->af(),
                        .ipTunnelMappingStatus = domain.ipTunnelMappingStatus(),
                        .mfibStatus = in.afContainer->mfibHwStatus(),
                        .vtiStatusDir = agent.vtiStatusDir(),
                        .arpBriskelVrfIdMap = agent.vrfIdMapStatus(),
                        .arpStatus = agent.arpStatus(),
                        .bridgingStatus = agent.bridgingStatus(),
                        .pegDrStatus = agent.pegDrStatus(),
                        .mcastEvpnConfig = in.afContainer->mcastEvpnConfig(),
                        .ingressL3RouteStatus = domain.ingressL3RouteStatus(),
                        .proactiveArpConfig = in.afContainer->proactiveArpConfig(),
                        .gatewayESStatus = agent.gatewayESStatus(),
                        .proactiveArpUse = in.afContainer->proactiveArpUseIs()});
    return;
  }
  l3OverlayGroupSmDel();
  ingressL3RouteSmDel();
  if (!l3OverlayRouteTable->ready()) {
    if (auto t = trace.at(8)) t << "Marking l3OverlayRouteTable ready for domain " << domainText;
    l3OverlayRouteTable->readyIs(true);
  }
  if (domain.ingressL3RouteStatus() && !domain.ingressL3RouteStatus()->ready()) {
    if (auto t = trace.at(8)) t << "Marking ingressL3RouteStatus ready for domain " << domainText;
    domain.ingressL3RouteStatus()->readyIs(true);
  }
}

void DomainContainerSm::stopGroupConfig() {
  const auto config = ipTunnelGroupConfigSm();
  const auto mapping = ipTunnelMappingSm();
  if (config) config->hasNotificationActiveIs(false);
  if (mapping) mapping->hasNotificationActiveIs(false);
  ipTunnelGroupConfigSmDel();
  ipTunnelMappingSmDel();
}

void DomainContainerSm::handleCleanup() {
  if (auto t = trace.at(8)) t << "handleCleanup";
  if (ipTunnelVlanMcastGroupSm()) ipTunnelVlanMcastGroupSm()->cleanup();
  const auto container = domainContainer();
  const auto statusColl = in.afContainer->agent()->encapReadyStatusColl();
  if (statusColl && container) statusColl->statusDel(container->domainClient());
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::DomainContainerSm)
