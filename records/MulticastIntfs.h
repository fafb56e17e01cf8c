// The interfaces of one VRF on which an application wants multicast.
// Written by: each application in its own directory; this agent writes those of "corvane" and
// "mcasttunnel". Read by: the machine that joins all applications' interfaces of a VRF. A directory
// of applications holds a directory per application, which holds one entity per VRF, named by it.
#pragma once

#include <string>
#include <string_view>

#include <fmt/format.h>

#include "records/Keys.h"
#include "runtime/Record.h"

namespace Routing::Multicast {

class MulticastIntfsForApplications : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::MulticastIntfsForApplications)
  /// Presence counts.
  VESK_MAP(Pavlin::IntfId, bool, multicastIntf)

  /// The directory of all applications.
  [[nodiscard]] static std::string dirMountPath(Pavlin::AddressFamily af) {
    return af == Pavlin::AddressFamily::ipv6 ? "multicastIntfs6/application"
                                             : "multicastIntfs/application";
  }
  /// The directory of one application.
  [[nodiscard]] static std::string dirMountPath(Pavlin::AddressFamily af, std::string_view app) {
    return fmt::format("{}/{}", dirMountPath(af), app);
  }
};

}  // namespace Routing::Multicast
