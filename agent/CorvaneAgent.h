// The process's root object: the door of the library.
// Owns everything, by a tree of counted pointers. Makes all mounts and hands the pointers down; no
// machine mounts anything. Writes: its own attributes, the startReview flags of an agent that no
// stage holds back. Runs: doInit once, doMountsComplete when the mounts are done; then the launcher
// calls startup and shutdown, and the redundancy machine handleStandbyMode.
#pragma once

#include <string>
#include <tuple>

#include "agent/AfContainer.h"
#include "agent/AfContainerSm.h"
#include "agent/CorvaneNsfSm.h"
#include "agent/LauncherSm.h"
#include "agent/MountCatalog.h"
#include "egress/MembershipDedup.h"
#include "egress/MembershipReconcileSm.h"
#include "overlay/IpTunnelVlanGroupReduceGatewaySm.h"
#include "overlay/IpTunnelVlanGroupReduceMlagSm.h"
#include "pipeline/GmpProxyStatusSm.h"
#include "platform/CAgent.h"
#include "platform/StagesHelper.h"
#include "records/AgentStatus.h"
#include "records/Bridging.h"
#include "records/BriskelInputs.h"
#include "records/Evpn.h"
#include "records/GmpProxyStatus.h"
#include "records/Mlag.h"
#include "records/MlagVxlanState.h"
#include "records/Pim.h"
#include "records/Policy.h"
#include "records/ReadyStatus.h"
#include "records/TunnelGroupConfig.h"
#include "records/UnderlayRouteFilter.h"
#include "records/Vxlan.h"
#include "tunnel/McastTunnelRootSm.h"
#include "vxlan/MlagVxlanStateSm.h"
#include "vxlan/StaticRemoteVniToSBDVlanSm.h"

namespace Multicast::Vpn {

class Agent final : public Orlane::CAgent, public AgentControl {
  VESK_RECORD(Multicast::Vpn::Agent)

  /// The factory. The process holds one agent, named "Corvane".
  [[nodiscard]] static Ombra::Ptr<Agent> AgentIs(const std::string& name);
  explicit Agent(std::string name) : CAgent(std::move(name)) {}

  void doStage(const std::string& stageClass, const std::string& stage) override;
  /// Builds the launcher, unless this supervisor is standby.
  void handleStandbyMode() override;
  void startup() override;
  void shutdown() override;
  [[nodiscard]] bool isStandby() const override { return standbyMode(); }
  void isStandbyIs(bool standby) override { standbyModeIs(standby); }

  VESK_REF(Routing::Multicast::IpTunnelGroupConfig const, ipTunnelGroupConfig)
  VESK_REF(Routing::Multicast::IpTunnelGroupConfig const, ipTunnelRemoteDomainGroupConfig)
  VESK_REF(Bridging::VlanStatusDir const, vlanStatusDir)
  VESK_REF(Vxlan::VtiStatusDir const, vtiStatusDir)
  VESK_REF(McastCommon::AgentRunningStatus, agentStatus)
  VESK_REF(Bridging::IgmpSnooping::Status, igmpSnoopingStatus)
  VESK_REF(Bridging::IgmpSnooping::Config, mldSnoopingStatus)
  VESK_REF(Mlag::ProtoStatus const, mlagProtoStatus)
  VESK_REF(Mlag::Status const, mlagStatus)
  VESK_REF(Mlag::VxlanStatus const, mlagVxlanStatus)
  VESK_REF(Bridging::HwCapabilities const, hwCapabilities)
  VESK_REF(Routing::Pim::SparseMode::ConfigColl const, pimsmConfigColl)
  VESK_REF(Acl::AclListConfig const, aclListConfig)
  VESK_REF(Vxlan::EnabledStatus const, vxlanEnabledStatus)
  VESK_REF(Evpn::EvpnStatus const, evpnStatus)
  VESK_REF(Irb::Multicast::EvpnStaticStatus const, evpnStaticStatus)
  VESK_REF(Irb::Multicast::GmpProxyStatus, gmpProxyStatus)
  VESK_REF(Arp::Table::Status const, arpStatus)
  VESK_REF(Briskel::Bridging::Status const, bridgingStatus)
  VESK_REF(Vrf::VrfIdMap::Status const, vrfIdMapStatus)
  VESK_REF(Routing::Multicast::PegDrStatus const, pegDrStatus)
  VESK_REF(Vxlan::RemoteVniToVlanStatus, remoteVniToSBDVlan)
  VESK_REF(Routing::Multicast::MvpnIntfStatus const, mvpnIntfStatus)
  VESK_REF(Irb::Multicast::GatewayEsStatus const, gatewayESStatus)
  VESK_INSTANCE(DecapReadyStatusColl, decapReadyStatusColl)
  VESK_INSTANCE(EncapReadyStatusColl, encapReadyStatusColl)
  VESK_INSTANCE(Routing::Multicast::UnderlayRouteFilterSet, underlayRouteFilterSet)
  VESK_INSTANCE(Routing::Multicast::MlagVxlanState, mlagState)
  VESK_INSTANCE(Routing::Multicast::MlagUnderlayRouteChangeSm, mlagUnderlayRouteChangeSm)
  VESK_INSTANCE(Routing::Multicast::GatewayUnderlayRouteChangeSm, gatewayUnderlayRouteChangeSm)
  VESK_INSTANCE(Tunnel::McastTunnelRoot, tunnelRoot)
  VESK_INSTANCE(Tunnel::McastTunnelRootSm, tunnelRootSm)
  VESK_INSTANCE(Irb::Multicast::Egress::MembershipDedupedLifetimeNotifiee, underlayInjectNotifiee)
  VESK_INSTANCE(Routing::Gmp::MembershipDedupTable, underlayInjectDedupTable)
  VESK_INSTANCE(Irb::Multicast::Egress::MembershipReconcileSm, membershipReconcileSm4)
  VESK_INSTANCE(Irb::Multicast::Egress::MembershipReconcileSm, membershipReconcileSm6)
  VESK_INSTANCE(Routing::Pim::MlagVxlanStateSm, mlagVxlanStateSm)
  VESK_INSTANCE(Vxlan::StaticRemoteVniToSBDVlanConfigSm, staticRemoteVniToSBDVlanConfigSm)
  VESK_INSTANCE(Irb::Multicast::GmpProxyStatusSm, gmpProxyStatusSm)
  VESK_INSTANCE(Orlane::StagesHelper, ssoStagesHelper)
  VESK_INSTANCE(CorvaneNsfSm, corvaneNsfSm)
  VESK_INSTANCE(RedundancyStatusSm, redundancyStatusSm)
  VESK_INSTANCE(LauncherSm, launcherSm)
  VESK_VALUE(bool, standbyMode)
  VESK_INSTANCES(Pavlin::AddressFamily, AfContainer, afContainer)
  VESK_INSTANCES(Pavlin::AddressFamily, AfContainerSm, afContainerSm)

  /// What a standby mounts for its stages helper.
  std::tuple<Ombra::Ptr<Stage::AgentConfig>, Ombra::Ptr<Stage::AgentStatus const>,
             Ombra::Ptr<Stage::ProgressDir const>, Ombra::Ptr<Stage::CompletionStatusDir const>>
      stageMounts;

 private:
  void doInit() override;
  void doMountsComplete(Halden::MountStatus status,
                        const Ombra::Ptr<Halden::EntityManager>& em) override;
  void lastUserGone() override;

  void setupFlBuffer();
  void doSkarelMount();
  void doMountsCompleteAf(Pavlin::AddressFamily af);
  void waitForStages();
  /// An agent that cannot run at its start takes back what a stop takes back, in case an earlier
  /// life was cut short in one. Forwarding rows and memberships stay: it may run in a moment.
  void clearLeftovers();
  void makeMlagFilter();
  void makeGatewayFilter();
  void makeMembershipTable();
  void doBriskelMountAf(Pavlin::AddressFamily af);

  // By the list of mounts; of one family, or of the agent as a whole.
  static constexpr auto noFamily = Pavlin::AddressFamily::none;
  void doBriskelMount(Pavlin::AddressFamily af = noFamily);
  void doBriskelUnmount(Pavlin::AddressFamily af = noFamily);
  /// Hands every entity of the moment to its keeper.
  void keepMounts(Corvane::Moment moment, Pavlin::AddressFamily af = noFamily);
  [[nodiscard]] Ombra::Ptr<Vesk::Entity> entityOf(const Corvane::MountPath& mount) const;
};

}  // namespace Multicast::Vpn
