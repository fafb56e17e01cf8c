// The working tables of the encapsulating side of one domain: overlay groups per vlan, and the
// routes behind them. Written by: the overlay group machines and the ingress route machine. Read
// by: the vlan group machine, which turns the tables into the published group status. All
// in-process, rebuilt at every start. Caveat: the L3 table is filled by handles, so that two routes
// of one vlan and group keep one row.
#pragma once

#include <string>

#include "records/Keys.h"
#include "runtime/Record.h"

namespace Multicast::Vpn {

/// The overlay groups of one vlan.
class GroupTable : public Vesk::Keyed<Bridging::VlanId> {
  VESK_RECORD(Multicast::Vpn::GroupTable)
  VESK_KEY(vlanId)
  VESK_SET(Pavlin::IpGenAddr, group)
};

class VlanGroupTable : public Vesk::Keyed<std::string> {
  VESK_RECORD(Multicast::Vpn::VlanGroupTable)
  VESK_KEY(name)
  VESK_INSTANCES(Bridging::VlanId, GroupTable, vlan)
  /// The first pass over the inputs has ended.
  VESK_VALUE(bool, ready)
};

/// The groups that configuration wants, and those that routes want.
class VlanGroupTableColl : public Vesk::Entity {
  VESK_RECORD(Multicast::Vpn::VlanGroupTableColl)
  VESK_INSTANCES(std::string, VlanGroupTable, table)

  [[nodiscard]] static std::string getDefaultTableName() { return "DefaultOverlayTable"; }
  [[nodiscard]] static std::string getL3TableName() { return "L3OverlayRouteTable"; }
};

/// Routes of one VRF that enter the overlay at this switch.
class IngressVrfStatus : public Vesk::Keyed<L3::VrfName> {
  VESK_RECORD(Multicast::Vpn::IngressVrfStatus)
  VESK_KEY(vrfName)
  VESK_SET(Routing::Multicast::OverlayRouteKey, route)
};

class IngressL3RouteStatus : public Vesk::Entity {
  VESK_RECORD(Multicast::Vpn::IngressL3RouteStatus)
  VESK_INSTANCES(L3::VrfName, IngressVrfStatus, vrfStatus)
  VESK_VALUE(bool, ready)
};

/// Groups of one VRF that need a neighbour kept resolved.
class VrfGroupColl : public Vesk::Keyed<L3::VrfName> {
  VESK_RECORD(Multicast::Vpn::VrfGroupColl)
  VESK_KEY(vrfName)
  VESK_SET(Pavlin::IpGenAddr, group)
};

/// Who needs one neighbour.
class ArpEntryVrfColl : public Vesk::Keyed<Arp::ProactiveArp::Entry> {
  VESK_RECORD(Multicast::Vpn::ArpEntryVrfColl)
  VESK_KEY(entry)
  VESK_INSTANCES(L3::VrfName, VrfGroupColl, vrf)
};

/// Groups whose change of underlay route waits for its delay.
class IpTunnelMappingSmPendingGroups : public Vesk::Entity {
  VESK_RECORD(Multicast::Vpn::IpTunnelMappingSmPendingGroups)
  VESK_SET(Routing::Multicast::OverlayVlanGroup, group)
};

}  // namespace Multicast::Vpn
