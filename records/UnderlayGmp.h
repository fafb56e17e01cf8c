// Joins of underlay groups: what this switch has to receive so that it can decapsulate it.
// Written by: the membership handles' notifiee and the reconcile machine. Read by: the IGMP/MLD and
// PIM agents. Caveat: `intfStatus` is part of the table's layout; this agent neither reads nor
// writes it.
#pragma once

#include <string>
#include <string_view>

#include <fmt/format.h>

#include "records/Enums.h"
#include "records/Keys.h"
#include "records/Rows.h"
#include "runtime/Record.h"

namespace Routing::Gmp::Briskel {

class Status : public Vesk::Entity {
  VESK_RECORD(Routing::Gmp::Briskel::Status)
  VESK_SHARED_ROWS(RouteIntfKey, Membership, membership, 131072)
  VESK_SHARED_MAP(Pavlin::IntfId, std::uint8_t, intfStatus, 4000)

  [[nodiscard]] static std::string typeName() { return std::string(veskName); }
  [[nodiscard]] static std::string appMountPath(Pavlin::AddressFamily af, App app,
                                                std::string_view instance) {
    return fmt::format("routing/gmp/{}/status/{}/{}", Pavlin::stringValue(af), Vesk::enumText(app),
                       instance);
  }
};

}  // namespace Routing::Gmp::Briskel
