// What the bridge tells us: active vlans, learnt addresses, snooping and hardware capabilities.
// Written by: the bridging agents. Read by: the frame, the configuration machines and the route
// machines. Caveat: the two snooping records are mounted for writing, and only read.
#pragma once

#include <string>

#include "records/Keys.h"
#include "runtime/Record.h"

namespace Bridging {

/// Its presence says that the vlan is active.
class VlanStatus : public Vesk::Keyed<VlanId> {
  VESK_RECORD(Bridging::VlanStatus)
  VESK_KEY(vlanId)
};

class VlanStatusDir : public Vesk::Entity {
  VESK_RECORD(Bridging::VlanStatusDir)
  VESK_INSTANCES(VlanId, VlanStatus, vlanStatus)

  [[nodiscard]] static std::string mountPath() { return "bridging/vlan/status"; }
};

class HwCapabilities : public Vesk::Entity {
  VESK_RECORD(Bridging::HwCapabilities)
  VESK_VALUE(bool, makeBeforeBreakSupported)

  [[nodiscard]] static std::string mountPath() { return "bridging/hwcapabilities"; }
};

}  // namespace Bridging

namespace Bridging::IgmpSnooping {

/// IGMP snooping as the forwarding plane has it.
class Status : public Vesk::Entity {
  VESK_RECORD(Bridging::IgmpSnooping::Status)
  /// Anything but 0: snooping is in force.
  VESK_VALUE(std::uint32_t, snoopingActive)

  [[nodiscard]] static std::string mountPath() { return "bridging/igmpsnooping/forwarding/status"; }
};

/// MLD snooping as configured.
class Config : public Vesk::Entity {
  VESK_RECORD(Bridging::IgmpSnooping::Config)
  VESK_VALUE(bool, snoopingEnabled)

  [[nodiscard]] static std::string mountPath() { return "bridging/mldsnooping/config"; }
};

}  // namespace Bridging::IgmpSnooping
