// The multicast forwarding table of the hardware, and the VRFs that route multicast.
// Written by: the multicast routing agents. Read by: the frame (VRFs) and the ingress route machine
// (routes). Caveat: activity times are of the process clock, in seconds; 0 means never.
#pragma once

#include <string>

#include <fmt/format.h>

#include "records/Keys.h"
#include "runtime/Record.h"

namespace Routing::Multicast::Fib {

class VrfEnabledStatus : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::Fib::VrfEnabledStatus)
  VESK_SET(L3::VrfName, vrf)

  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af) {
    return fmt::format("multicast/{}/fib/vrfEnabledStatus", Pavlin::stringValue(af));
  }
};

}  // namespace Routing::Multicast::Fib

namespace Routing::Multicast::Fib::Hardware {

class RouteStatus : public Vesk::Keyed<IpGenRouteKey> {
  VESK_RECORD(Routing::Multicast::Fib::Hardware::RouteStatus)
  VESK_KEY(key)
  /// The interface on which packets are accepted; empty if none.
  VESK_VALUE(Pavlin::IntfId, iif)
  VESK_VALUE(double, lastActivityTime)
};

class VrfStatus : public Vesk::Keyed<L3::VrfName> {
  VESK_RECORD(Routing::Multicast::Fib::Hardware::VrfStatus)
  VESK_KEY(vrfName)
  VESK_INSTANCES(IpGenRouteKey, RouteStatus, route)
};

class Status : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::Fib::Hardware::Status)
  VESK_INSTANCES(L3::VrfName, VrfStatus, vrfStatus)

  [[nodiscard]] static std::string mountPath(Pavlin::AddressFamily af) {
    return fmt::format("multicast/{}/fib/hardware/status", Pavlin::stringValue(af));
  }
};

}  // namespace Routing::Multicast::Fib::Hardware

namespace Routing::Multicast::Fib::PimIntf {

struct PrefixRouteInfo {
  /// True if the route's group is a range of groups, not one group.
  [[nodiscard]] static bool isPrefixGroup(const Pavlin::IpGenPrefix& group);
};

}  // namespace Routing::Multicast::Fib::PimIntf
