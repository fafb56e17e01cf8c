// The role of each port and vlan towards the world outside of the overlay.
// Written by: the external forwarder pipeline. Read by: the agents that program ports.
// A row exists for each elected port and vlan; its role is `none` where this switch does not
// forward.
#pragma once

#include <optional>
#include <string>

#include <fmt/format.h>

#include "records/BriskelInputs.h"
#include "records/Keys.h"
#include "records/McastIrbStatus.h"
#include "records/Rows.h"
#include "runtime/Record.h"

namespace Routing::Multicast {

class ExternalForwarderStatus : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::ExternalForwarderStatus)
  VESK_SHARED_ROWS(::Multicast::L2PortVlan, ExternalForwarderIntfStatus, intfStatus, 40960)

  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af) {
    return fmt::format("multicast/{}/externalForwarderStatus", Pavlin::stringValue(af));
  }
  /// The row of the port and vlan that was elected; none without an election. Only the designated
  /// forwarder has a role: alone in a vlan that is none of gateways to the outside, else as their
  /// designated router, or because no other gateway is a neighbour in the SBD vlan.
  [[nodiscard]] static std::optional<ExternalForwarderIntfStatus> determineRole(
      const std::optional<ElectedDFStatus>& electedDfStatus,
      const Irb::Multicast::McastIrbStatus& mcastIrbStatus, const PegVlanStatus& pegVlanStatus,
      const PegNeighborStatus& pegNeighborStatus, const PegDrStatus& pegDrStatus);
};

}  // namespace Routing::Multicast
