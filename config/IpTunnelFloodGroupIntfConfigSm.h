// The flood groups that are configured below one VXLAN interface, as rows of the encapsulation
// status: the underlay group that carries a vlan's broadcast, unknown unicast and multicast flood.
// Owns nothing. Reads: the configuration, VtiStatus, active vlans. Writes: vlanToFloodGroup, at
// most one route a vlan. Runs: in reactors only, one vlan at a time; a change of the interface's
// state, VTEP or route type takes all configured vlans. Caveat: its end removes all flood rows, and
// the flag for head-end replication has no say here.
#pragma once

#include "records/Bridging.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/TunnelGroupConfig.h"
#include "records/Vxlan.h"
#include "runtime/Record.h"

namespace Routing::Multicast {

class IpTunnelFloodGroupIntfConfigSm final : public Vesk::Machine {
  VESK_RECORD(Routing::Multicast::IpTunnelFloodGroupIntfConfigSm)
  struct Inputs {
    Ombra::Ptr<IpTunnelGroupIntfConfig const> vlanToGroupIntfConfig;
    Ombra::Ptr<Bridging::VlanStatusDir const> vlanStatusDir;
    Ombra::Ptr<Vxlan::VtiStatus const> vtiStatus;
    Ombra::Ptr<IpTunnelVlanGroupStatus> vlanToGroupStatus;
    bool operator==(const Inputs&) const = default;
  };
  explicit IpTunnelFloodGroupIntfConfigSm(Inputs inputs);
  const Inputs in;

  /// Why a vlan has a flood row or has none: the first missing condition.
  enum class FloodReason : std::uint8_t { usable, noGroup, noVtep, vlanNotActive };
  [[nodiscard]] FloodReason judge(Bridging::VlanId vlan) const;

  /// The local VTEP address of the family, the unspecified address for any other family.
  [[nodiscard]] Pavlin::IpGenAddr vtepAddr(Pavlin::AddressFamily af) const;
  [[nodiscard]] TunnelType getTunnelType(VlanTunnelConfigType configType) const;

  void handleVlanToFloodGroup(Bridging::VlanId vlan);
  void handleVlanToFloodGroup();
  void handleVlanStatus(Bridging::VlanId vlan) { handleVlanToFloodGroup(vlan); }
  void refreshAll();
  void handleInitialized();
  void handleDelete();

  void review() override { handleInitialized(); }

 private:
  void handleCleanup() override { handleDelete(); }
  void vlanToFloodGroupDispatch(Bridging::VlanId vlan) { handleVlanToFloodGroup(vlan); }

  using Self = IpTunnelFloodGroupIntfConfigSm;
  Vesk::Watch vlanToFloodGroup_ = watch<&Self::vlanToFloodGroupDispatch>(
      in.vlanToGroupIntfConfig, IpTunnelGroupIntfConfig::vlanToFloodGroupAttr);
  Vesk::Watch floodUnderlayRouteType_ = watch<&Self::refreshAll>(
      in.vlanToGroupIntfConfig, IpTunnelGroupIntfConfig::floodUnderlayRouteTypeAttr);
  Vesk::Watch mcastUnderlayRouteType_ = watch<&Self::refreshAll>(
      in.vlanToGroupIntfConfig, IpTunnelGroupIntfConfig::mcastUnderlayRouteTypeAttr);
  Vesk::Watch vlanStatus_ =
      watch<&Self::handleVlanStatus>(in.vlanStatusDir, Bridging::VlanStatusDir::vlanStatusAttr);
  Vesk::Watch operStatus_ =
      watch<&Self::refreshAll>(in.vtiStatus, Vxlan::VtiStatus::operStatusAttr);
  Vesk::Watch localVtepAddr_ =
      watch<&Self::refreshAll>(in.vtiStatus, Vxlan::VtiStatus::localVtepAddrAttr);
  Vesk::Watch localVtepAddr6_ =
      watch<&Self::refreshAll>(in.vtiStatus, Vxlan::VtiStatus::localVtepAddr6Attr);
};

}  // namespace Routing::Multicast
