// Which SBD vlan serves a vlan, and the reverse.
// Written by: the SBD pipeline, or the VXLAN machine where there is no MPLS; the reverse,
// in-process, by its own machine. Read by: membership, reduction and forwarder machines, and by the
// agents that forward between vlans. Caveat: an SBD vlan of 1 in `vlanToSbd`, the default, means
// that the vlan has none.
#pragma once

#include <optional>
#include <string>

#include <fmt/format.h>

#include "records/Enums.h"
#include "records/Keys.h"
#include "records/Rows.h"
#include "runtime/Record.h"

namespace Irb::Multicast {

class McastIrbStatus : public Vesk::Entity {
  VESK_RECORD(Irb::Multicast::McastIrbStatus)
  VESK_SHARED_ROWS(Bridging::VlanId, VlanToSbd, vlanToSbd, 4000)

  /// The SBD vlan that serves the vlan, none if there is none or its row reads as corrupt.
  [[nodiscard]] std::optional<Bridging::VlanId> sbdOf(Bridging::VlanId vlan) const {
    const VlanToSbd row = vlanToSbd(vlan);
    return row == VlanToSbd{} ? std::nullopt : std::optional(row.sbdVlan);
  }
  /// The vlan that the vlan's overlay traffic comes out in: its SBD vlan, or itself.
  [[nodiscard]] Bridging::VlanId targetOf(Bridging::VlanId vlan) const {
    return sbdOf(vlan).value_or(vlan);
  }

  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af, App::Client client) {
    return fmt::format("multicast/{}/irb/status/{}", Pavlin::stringValue(af),
                       App::stringValue(client));
  }
};

/// The vlans that one SBD vlan serves.
class SbdVlanState : public Vesk::Keyed<Bridging::VlanId> {
  VESK_RECORD(Irb::Multicast::SbdVlanState)
  VESK_KEY(sbdVlan)
  VESK_SET(Bridging::VlanId, vlanId)
};

class SbdToVlanStatus : public Vesk::Entity {
  VESK_RECORD(Irb::Multicast::SbdToVlanStatus)
  VESK_INSTANCES(Bridging::VlanId, SbdVlanState, sbdStatus)
};

}  // namespace Irb::Multicast
