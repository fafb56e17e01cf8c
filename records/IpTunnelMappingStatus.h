// The configuration in force for each vlan, and which underlay group it gives an overlay group.
// Written by: the tunnel configuration machine of the domain. Read by: the overlay machines of the
// domain. In-process. Caveat: the rows read through references into the configuration, which
// changes under them; who needs a computed group watches the entries behind it.
#pragma once

#include "records/Enums.h"
#include "records/Keys.h"
#include "records/TunnelGroupConfig.h"
#include "runtime/Record.h"

namespace Multicast::Vpn {

/// Immediate groups of one VRF, prefixes expanded.
class ImmediateGroupVrfStatus : public Vesk::Keyed<L3::VrfName> {
  VESK_RECORD(Multicast::Vpn::ImmediateGroupVrfStatus)
  VESK_KEY(vrfName)
  VESK_MAP(Routing::Multicast::OverlayAddr, Routing::Multicast::UnderlayAddr,
           immediateOverlayToUnderlayGroup)
};

class VlanToGroupMapping : public Vesk::Keyed<Bridging::VlanId> {
  VESK_RECORD(Multicast::Vpn::VlanToGroupMapping)
  VESK_KEY(vlanId)
  VESK_VALUE(bool, isSbdVlan)
  VESK_REF(Routing::Multicast::IpTunnelConfigEntry const, vlanTunnelConfigEntry)
  VESK_REF(Routing::Multicast::IpTunnelConfigEntry const, vrfTunnelConfigEntry)
  VESK_REF(ImmediateGroupVrfStatus const, vrfImmediateGroupStatus)

  /// The vlan's default group, else that of its VRF, else none.
  [[nodiscard]] Routing::Multicast::UnderlayAddr effDefaultUnderlayGroup() const;
  /// The vlan's own immediate groups: those of its VRF for an SBD vlan, else those of its own
  /// entry.
  [[nodiscard]] bool ownsImmediateGroup(const Routing::Multicast::OverlayAddr& overlay) const;
  template <class F>
  void forEachImmediateGroup(F f) const {
    const auto eachOf = [&](const auto& source) {
      if (!source) return;
      for (const auto& group : source->immediateOverlayToUnderlayGroupIterator())
        f(group.key);
    };
    isSbdVlan() ? eachOf(vrfImmediateGroupStatus()) : eachOf(vlanTunnelConfigEntry());
  }
  /// None if the group is not an immediate one, as the any group never is. A vlan that is no SBD
  /// vlan has, for groups that it does not map itself, those of its VRF.
  [[nodiscard]] Routing::Multicast::UnderlayAddr effImmediateUnderlayGroup(
      const Routing::Multicast::OverlayAddr& overlay) const;
  /// The group that the configuration gives the overlay group: the immediate one, else one out of
  /// the VRF's pool, else the default. The any group always has the default.
  [[nodiscard]] Routing::Multicast::UnderlayAddr underlayGroup(
      const Routing::Multicast::OverlayAddr& overlay) const;
};

class IpTunnelMappingStatus : public Vesk::Entity {
  VESK_RECORD(Multicast::Vpn::IpTunnelMappingStatus)
  VESK_INSTANCES(Bridging::VlanId, VlanToGroupMapping, vlanStatus)
  VESK_INSTANCES(L3::VrfName, ImmediateGroupVrfStatus, vrfImmediateGroupStatus)
  /// VRFs with a pool of underlay groups.
  VESK_SET(L3::VrfName, multipleUnderlayGroupsDelayedVrf)
  VESK_VALUE(Routing::Multicast::TunnelType, tunnelType, Routing::Multicast::TunnelType::PimAsm)
  VESK_VALUE(Pavlin::IpAddr, localVtepAddr)
  VESK_VALUE(Pavlin::Ip6Addr, localVtepAddr6)
  /// Never cleared once set.
  VESK_VALUE(bool, ready)
};

}  // namespace Multicast::Vpn

namespace Routing::Multicast {

/// Overlay groups by vlan, kept by the tunnel configuration machine.
class VlanToOverlayGroup : public Vesk::Keyed<Bridging::VlanId> {
  VESK_RECORD(Routing::Multicast::VlanToOverlayGroup)
  VESK_KEY(vlanId)
  VESK_SET(OverlayAddr, overlayGroup)
};

}  // namespace Routing::Multicast
