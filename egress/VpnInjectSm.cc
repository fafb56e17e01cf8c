#include "egress/VpnInjectSm.h"

#include "platform/Toggles.h"
#include "runtime/Trace.h"

namespace Irb::Multicast::Egress {

using ::Multicast::Vpn::toggleOismGatewayEnabled;
using Routing::Multicast::irbDecapReduced;

namespace {

const Vesk::TraceHandle traceHandle{"VpnInjectSm"};

}  // namespace

VpnInjectSm::VpnInjectSm(Inputs inputs) : in(std::move(inputs)) {
  changeSetRemoteDomainIs();
  handleInitialized();
}

/// Each step needs those before it.
void VpnInjectSm::handleInitialized() {
  changeSetIs();
  sbdToVlanStatusIs();
  for (const auto& reduced : {reducedVlanGroupStatusIs(), reducedTunnelStatusRemoteDomainIs()}) {
    reduced->nameIs(stringValue(irbDecapReduced()));
    reduced->afIs(in.af);
  }
  vlanGroupIndexIs({.tunnelVlanGroupStatus = reducedVlanGroupStatus()});
  vlanGroupIndexRemoteDomainIs({.tunnelVlanGroupStatus = reducedTunnelStatusRemoteDomain()});
  receiverIndexIs(
      {.joinStatusColl = in.membershipJoinStatusColl, .mcastIrbStatus = in.mcastIrbStatus});
  sbdToVlanSmIs({.mcastIrbStatus = in.mcastIrbStatus, .sbdToVlanStatus = sbdToVlanStatus()});
  ipTunnelVlanGroupReduceSmIs({.domain = Domain::localDomain,
                               .source = in.tunnelVlanGroupStatus,
                               .mcastIrbStatus = in.mcastIrbStatus,
                               .sbdToVlanStatus = sbdToVlanStatus(),
                               .taskScheduler = in.taskScheduler,
                               .filterSet = in.filterSet,
                               .reduced = reducedVlanGroupStatus()});

  const ReviewTarget local{changeSet(), vlanGroupIndex()};
  const ReviewTarget remote{changeSetRemoteDomain(), vlanGroupIndexRemoteDomain()};
  overlayMembershipChangeSmIs({.joinStatusColl = in.membershipJoinStatusColl,
                               .mcastIrbStatus = in.mcastIrbStatus,
                               .sbdToVlanStatus = sbdToVlanStatus(),
                               .tunnelVlanGroupStatus = reducedVlanGroupStatus(),
                               .local = local,
                               .remote = remote,
                               .receivers = receiverIndex()});
  const auto helper = ReviewHelper::createReviewHelper(local, remote, ReceiverDomain::plainIntf);
  sbdVlanChangeSmIs({.sbdToVlanStatus = sbdToVlanStatus(), .reviewHelper = helper});
  maybeInitReview();
  handleGatewayStatus();
  handleOismGateway();
  vrfLeakConfigChangeSmIs({.mcastVrfLeakCtx = in.mcastVrfLeakCtx,
                           .sbdToVlanStatus = sbdToVlanStatus(),
                           .tunnelVlanGroupStatus = reducedVlanGroupStatus(),
                           .reviewHelper = helper});
}

void VpnInjectSm::review() {
  maybeInitReview();
  handleGatewayStatus();
  handleOismGateway();
}

void VpnInjectSm::maybeInitReview() {
  if (initialized()) {
    if (auto t = traceHandle.at(8)) t << " Already initialized";
    return;
  }
  if (!in.decapReadyStatus->startReview()) return;
  if (auto t = traceHandle.at(8)) t << " Initializing";
  vpnInjectReviewSmIs({.taskScheduler = in.taskScheduler,
                       .af = in.af,
                       .domain = Domain::localDomain,
                       .joinStatusColl = in.membershipJoinStatusColl,
                       .tunnelVlanGroupStatus = reducedVlanGroupStatus(),
                       .changeSet = changeSet(),
                       .sbdToVlanStatus = sbdToVlanStatus(),
                       .underlayInjectDedupTable = in.underlayInjectDedupTable,
                       .decapReadyStatus = in.decapReadyStatus,
                       .receivers = receiverIndex()});
  l2InjectSmIs({.tunnelVlanGroupStatus = in.tunnelVlanGroupStatus,
                .mlagState = in.mlagState,
                .underlayInjectDedupTable = in.underlayInjectDedupTable,
                .decapReadyStatus = in.decapReadyStatus});
  initializedIs(!toggleOismGatewayEnabled() || vpnInjectReviewRemoteDomainSm() != nullptr);
}

void VpnInjectSm::handleGatewayStatus() {
  if (!toggleOismGatewayEnabled()) return;
  const bool gateway = in.gatewayStatus && in.gatewayStatus->esVlanStatusCount() != 0;
  if (gateway != oismGateway()) {
    oismGatewayIs(gateway);
    handleOismGateway();
  }
  if (!initialized() && vpnInjectReviewSm())
    initializedIs(vpnInjectReviewRemoteDomainSm() != nullptr);
}

void VpnInjectSm::handleOismGateway() {
  if (!toggleOismGatewayEnabled()) return;
  oismGateway() ? startRemoteDomain() : stopRemoteDomain();
}

void VpnInjectSm::startRemoteDomain() {
  ipTunnelVlanGroupReduceSmRemoteDomainIs({.domain = Domain::remoteDomain,
                                           .source = in.tunnelStatusRemoteDomain,
                                           .mcastIrbStatus = in.mcastIrbStatus,
                                           .sbdToVlanStatus = sbdToVlanStatus(),
                                           .taskScheduler = in.taskScheduler,
                                           .filterSet = in.filterSet,
                                           .reduced = reducedTunnelStatusRemoteDomain()});
  const auto& ready = in.decapReadyStatusRemoteDomain;
  if (!ready || !ready->startReview()) return;
  vpnInjectReviewRemoteDomainSmIs({.taskScheduler = in.taskScheduler,
                                   .af = in.af,
                                   .domain = Domain::remoteDomain,
                                   .joinStatusColl = in.membershipJoinStatusColl,
                                   .tunnelVlanGroupStatus = reducedTunnelStatusRemoteDomain(),
                                   .changeSet = changeSetRemoteDomain(),
                                   .sbdToVlanStatus = sbdToVlanStatus(),
                                   .underlayInjectDedupTable = in.underlayInjectDedupTable,
                                   .decapReadyStatus = ready,
                                   .receivers = receiverIndex()});
  l2InjectSmRemoteDomainIs({.tunnelVlanGroupStatus = in.tunnelStatusRemoteDomain,
                            .mlagState = in.mlagState,
                            .underlayInjectDedupTable = in.underlayInjectDedupTable,
                            .decapReadyStatus = ready});
  initializedIs(vpnInjectReviewSm() && vpnInjectReviewRemoteDomainSm());
}

void VpnInjectSm::stopRemoteDomain() {
  ipTunnelVlanGroupReduceSmRemoteDomainDel();
  vpnInjectReviewRemoteDomainSmDel();
  l2InjectSmRemoteDomainDel();
  // There is nothing to review on a switch that is no gateway, so nobody must wait for it.
  if (const auto& ready = in.decapReadyStatusRemoteDomain; ready && ready->startReview()) {
    ready->vpnInjectReadyIs(true);
    ready->l2InjectReadyIs(true);
  }
  initializedIs(vpnInjectReviewSm() != nullptr);
}

}  // namespace Irb::Multicast::Egress

VESK_REGISTER(Irb::Multicast::Egress::VpnInjectSm)
