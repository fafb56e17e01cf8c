// The root of the decapsulating side of one family: overlay receivers become rows of PIM's
// membership tables.
// Owns: the reduced statuses and the change sets of both domains, and all machines that fill and
// work them off. Reads: the gateway table, when the reviews may start. Writes: the remote domain's
// ready flags on a switch that is no gateway. Runs: in short reactors, which make and drop
// machines. Caveat: changes are collected from the beginning; nothing is judged, and no row
// touched, before `startReview`. The remote domain exists on gateways only.
#pragma once

#include "egress/L2InjectSm.h"
#include "egress/OverlayMembershipSm.h"
#include "egress/SbdVlanChangeSm.h"
#include "egress/VlanGroupIndex.h"
#include "egress/VpnInjectReviewSm.h"
#include "egress/VrfLeakConfigChangeSm.h"
#include "platform/IpTunnelVlanGroupReduceSm.h"
#include "platform/SbdToVlanSm.h"
#include "records/BriskelInputs.h"
#include "records/Mlag.h"
#include "records/UnderlayRouteFilter.h"

namespace Irb::Multicast::Egress {

class VpnInjectSm final : public Vesk::Machine {
  VESK_RECORD(Irb::Multicast::Egress::VpnInjectSm)
  using IpTunnelVlanGroupStatus = Routing::Multicast::IpTunnelVlanGroupStatus;
  using IpTunnelVlanGroupReduceSm = Routing::Multicast::IpTunnelVlanGroupReduceSm;
  using DecapReadyStatus = ::Multicast::Vpn::DecapReadyStatus;

  struct Inputs {
    Pavlin::AddressFamily af;
    Sylva::TaskScheduler* taskScheduler;
    Ombra::Ptr<MembershipJoinStatusColl const> membershipJoinStatusColl;
    Ombra::Ptr<IpTunnelVlanGroupStatus const> tunnelVlanGroupStatus;
    Ombra::Ptr<IpTunnelVlanGroupStatus const> tunnelStatusRemoteDomain;
    Ombra::Ptr<McastIrbStatus const> mcastIrbStatus;
    Ombra::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir;
    Ombra::Ptr<Mlag::Status const> mlagStatus;
    Ombra::Ptr<Routing::Multicast::MlagVxlanState const> mlagState;
    Ombra::Ptr<McastVrfLeakCtx const> mcastVrfLeakCtx;
    Ombra::Ptr<GatewayEsStatus const> gatewayStatus;
    Ombra::Ptr<Routing::Multicast::UnderlayRouteFilterSet const> filterSet;
    Ombra::Ptr<Routing::Gmp::MembershipDedupTable> underlayInjectDedupTable;
    Ombra::Ptr<DecapReadyStatus> decapReadyStatus;
    /// Null, like the gateway's and the remote domain's records, where there is no remote domain.
    Ombra::Ptr<DecapReadyStatus> decapReadyStatusRemoteDomain;
    bool operator==(const Inputs&) const = default;
  };
  explicit VpnInjectSm(Inputs inputs);
  const Inputs in;

  VESK_INSTANCE(OverlayChangeSet, changeSet)
  VESK_INSTANCE(OverlayChangeSet, changeSetRemoteDomain)
  VESK_INSTANCE(SbdToVlanStatus, sbdToVlanStatus)
  /// Both bear the name of a reduced status.
  VESK_INSTANCE(IpTunnelVlanGroupStatus, reducedVlanGroupStatus)
  VESK_INSTANCE(IpTunnelVlanGroupStatus, reducedTunnelStatusRemoteDomain)
  /// This switch is a gateway.
  VESK_VALUE(bool, oismGateway)
  VESK_INSTANCE(VlanGroupIndex, vlanGroupIndex)
  VESK_INSTANCE(VlanGroupIndex, vlanGroupIndexRemoteDomain)
  VESK_INSTANCE(ReceiverIndex, receiverIndex)
  VESK_INSTANCE(SbdToVlanSm, sbdToVlanSm)
  VESK_INSTANCE(IpTunnelVlanGroupReduceSm, ipTunnelVlanGroupReduceSm)
  VESK_INSTANCE(IpTunnelVlanGroupReduceSm, ipTunnelVlanGroupReduceSmRemoteDomain)
  VESK_INSTANCE(VpnInjectReviewSm, vpnInjectReviewSm)
  VESK_INSTANCE(VpnInjectReviewSm, vpnInjectReviewRemoteDomainSm)
  VESK_INSTANCE(OverlayMembershipChangeSm, overlayMembershipChangeSm)
  VESK_INSTANCE(SbdVlanChangeSm, sbdVlanChangeSm)
  VESK_INSTANCE(VrfLeakConfigChangeSm, vrfLeakConfigChangeSm)
  VESK_INSTANCE(L2InjectSm, l2InjectSm)
  VESK_INSTANCE(L2InjectSm, l2InjectSmRemoteDomain)
  /// All reviews exist that can be asked for.
  VESK_VALUE(bool, initialized)

  void review() override;

 private:
  void handleInitialized();
  void maybeInitReview();
  void handleGatewayStatus();
  void handleOismGateway();
  void startRemoteDomain();
  void stopRemoteDomain();

  using Self = VpnInjectSm;
  Vesk::Watch gateway_ =
      watch<&Self::handleGatewayStatus>(in.gatewayStatus, GatewayEsStatus::esVlanStatusAttr);
  Vesk::Watch startReview_ =
      watch<&Self::maybeInitReview>(in.decapReadyStatus, DecapReadyStatus::startReviewAttr);
  Vesk::Watch startReviewRemoteDomain_ = watch<&Self::handleOismGateway>(
      in.decapReadyStatusRemoteDomain, DecapReadyStatus::startReviewAttr);
};

}  // namespace Irb::Multicast::Egress
