// VXLAN interfaces and the vlans behind their network identifiers.
// Written by: the VXLAN agent; RemoteVniToVlanStatus by this agent, RemoteVniColl by one machine
// for itself. Read by: nearly every machine of the overlay side. Caveat: an SBD vlan of 0 in
// `VtiStatus.vrfToSBDVlan` counts as no entry.
#pragma once

#include <string>

#include "records/Enums.h"
#include "records/Keys.h"
#include "records/Rows.h"
#include "runtime/Record.h"

namespace Vxlan {

class VtiStatus : public Vesk::Keyed<Pavlin::IntfId> {
  VESK_RECORD(Vxlan::VtiStatus)
  VESK_KEY(intfId)
  VESK_VALUE(IntfOperStatus, operStatus)
  VESK_VALUE(Pavlin::IpAddr, localVtepAddr)
  VESK_VALUE(Pavlin::Ip6Addr, localVtepAddr6)
  /// Shared by the two switches of an MLAG pair.
  VESK_VALUE(Pavlin::IpAddr, mlagVtepAddr)
  VESK_VALUE(Pavlin::Ip6Addr, mlagVtepAddr6)
  /// Presence counts.
  VESK_MAP(Bridging::VlanId, VniSourcePair, vlanToVniMap)
  VESK_MAP(L3::VrfName, VniExtOrNone, vrfToVniMap)
  VESK_MAP(L3::VrfName, Bridging::VlanIdOrNone, vrfToSBDVlan)
  /// The interface whose address is the local VTEP.
  VESK_VALUE(Pavlin::IntfId, srcIntf)
};

class VtiStatusDir : public Vesk::Entity {
  VESK_RECORD(Vxlan::VtiStatusDir)
  VESK_INSTANCES(Pavlin::IntfId, VtiStatus, vtiStatus)

  [[nodiscard]] static std::string mountPath() { return "interface/status/eth/vxlan"; }
};

/// SBD vlans by VRF and back, as far as they are in force.
class EnabledStatus : public Vesk::Entity {
  VESK_RECORD(Vxlan::EnabledStatus)
  VESK_MAP(L3::VrfName, std::uint16_t, vrfToSBDVlan)
  VESK_MAP(std::uint32_t, L3::VrfName, sbdVlanToVrf)

  [[nodiscard]] static std::string mountPath() { return "vxlan/enabledStatus"; }
};

class VxlanConfig : public Vesk::Keyed<Pavlin::IntfId> {
  VESK_RECORD(Vxlan::VxlanConfig)
  VESK_KEY(intfId)
  /// Static flood list; presence counts.
  VESK_MAP(Pavlin::IpAddr, bool, floodVtepList)
};

class VxlanConfigDir : public Vesk::Entity {
  VESK_RECORD(Vxlan::VxlanConfigDir)
  VESK_INSTANCES(Pavlin::IntfId, VxlanConfig, vxlanConfig)

  [[nodiscard]] static std::string mountPath() { return "vxlan/config"; }
};

/// Vlans in which packets with a remote switch's network identifier are received.
class RemoteVniToVlanStatus : public Vesk::Entity {
  VESK_RECORD(Vxlan::RemoteVniToVlanStatus)
  VESK_SHARED_ROWS(VniExtOrNone, RemoteVniToVlan, remoteVniToVlan, 1024)

  [[nodiscard]] static std::string mountPath(const std::string& source,
                                             const Pavlin::IntfId& intf) {
    return "vxlan/remoteVniToVlan/" + source + "/" + intf.stringValue();
  }
};

/// The remote network identifiers of one VRF.
class RemoteVniColl : public Vesk::Keyed<L3::VrfName> {
  VESK_RECORD(Vxlan::RemoteVniColl)
  VESK_KEY(vrfName)
  VESK_SET(VniExtOrNone, vni)
};

}  // namespace Vxlan
