// A world with a full table of multicast routes: 100 routes in each VRF, over four vlans and a
// routed port. For measurements of the whole agent.
#pragma once

#include <string>

#include "records/AgentStatus.h"
#include "records/Bridging.h"
#include "records/BriskelInputs.h"
#include "records/Fib.h"
#include "records/MulticastIntfs.h"
#include "records/Vxlan.h"
#include "runtime/Clock.h"
#include "tests/history/Inputs.h"

namespace Bench::Routes {

using Bridging::VlanId;
using History::input;
using History::sharedInput;
using Pavlin::IntfId;
using Pavlin::IpAddr;
using Pavlin::IpGenAddr;
using Routing::Multicast::Fib::IpGenRouteKey;

inline constexpr unsigned routesPerVrf = 100;
inline constexpr unsigned vlansPerVrf =
    4;  // two with a source each, one with routes of any source, and the SBD vlan

inline L3::VrfName vrfName(unsigned vrf) {
  return L3::VrfName("vrf" + std::to_string(vrf));
}
inline VlanId vlanOf(unsigned vrf, unsigned number) {
  return VlanId(vrf * vlansPerVrf + number + 1);
}
inline IntfId sviOf(unsigned vrf, unsigned number) {
  return Pavlin::VlanIntfId::vlanIdToIntfId(
      static_cast<std::uint16_t>(vlanOf(vrf, number).value()));
}
inline IpAddr address(unsigned base, unsigned vrf, unsigned number) {
  return IpAddr(base + vrf * 128 + number);
}
inline auto fib() {
  return input<Routing::Multicast::Fib::Hardware::Status>(Pavlin::ipv4());
}

inline IpGenRouteKey routeKey(unsigned vrf, unsigned route) {
  const unsigned number = route % vlansPerVrf;  // 2: any source; 3: by the routed port
  const IpAddr source = number == 2 ? IpAddr() : address(0x0a000000, vrf, number);
  return {Pavlin::IpGenPrefix(IpGenAddr(source)),
          Pavlin::IpGenPrefix(IpGenAddr(address(0xef000000, vrf, route)))};
}

inline void configure(unsigned vrfs) {
  input<Bridging::IgmpSnooping::Status>()->snoopingActiveIs(1);
  input<McastCommon::AgentStatus>(Pavlin::ipv4())->multicastRoutingIs(true);
  const auto vti = input<Vxlan::VtiStatusDir>()->vtiStatusIs(Pavlin::vxlan1IntfId());
  vti->operStatusIs(Vxlan::IntfOperStatus::up);
  vti->localVtepAddrIs(IpAddr(0x0a000001));
  const auto config = History::groupConfig(Irb::Multicast::Domain::localDomain)
                          ->intfConfigIs(Pavlin::vxlan1IntfId());
  config->mcastOverlayV4Is(true);
  const auto roles = sharedInput<Routing::Multicast::PegDrStatus>(
      Routing::Multicast::PegDrStatus::mountPath(Pavlin::ipv4()));
  for (unsigned vrf = 0; vrf < vrfs; ++vrf) {
    const auto entry = config->vrfToMulticastGroupIs(vrfName(vrf))->tunnelConfigEntryIs();
    entry->defaultUnderlayGroupIs(Routing::Multicast::UnderlayAddr(IpGenAddr(IpAddr(0xe8000001))));
    entry->underlayGroupRangeIs(Vesk::valueOf<Pavlin::IpGenPrefix>("232.64.0.0/16"));
    vti->vrfToSBDVlanIs(vrfName(vrf), Bridging::VlanIdOrNone(vlanOf(vrf, 3).value()));
    roles->pegDrVlanIs({vlanOf(vrf, 3), Routing::Multicast::PegDrRole::dr});
    const Vrf::VrfIdMap::VrfId id(vrf + 1);
    sharedInput<Vrf::VrfIdMap::Status>()->vrfIdToNameIs({id, vrfName(vrf)});
    input<Routing::Multicast::Fib::VrfEnabledStatus>(Pavlin::ipv4())->vrfIs(vrfName(vrf));
    const auto routed = History::inputAt<Routing::Multicast::MulticastIntfsForApplications>(
        Routing::Multicast::MulticastIntfsForApplications::dirMountPath(Pavlin::ipv4(), "routing") +
        "/" + std::string(vrfName(vrf).str()));
    for (unsigned number = 0; number < vlansPerVrf; ++number) {
      const VlanId vlan = vlanOf(vrf, number);
      input<Bridging::VlanStatusDir>()->vlanStatusIs(vlan);
      vti->vlanToVniMapIs(vlan, {});
      if (number < 3) routed->multicastIntfIs(sviOf(vrf, number), true);
      if (number >= 2) continue;
      const Pavlin::EthAddr mac = Pavlin::EthAddr::fromText("00:00:00:00:00:01");
      const IntfId svi = sviOf(vrf, number);
      sharedInput<Arp::Table::Status>()->arpEntryIs(
          {{id, IpGenAddr(address(0x0a000000, vrf, number)), svi}, mac, svi});
      sharedInput<Briskel::Bridging::Status>()->fdbEntryIs({{vlan, mac}, IntfId("Ethernet5")});
    }
  }
}

inline void fillFib(unsigned vrfs) {
  for (unsigned vrf = 0; vrf < vrfs; ++vrf) {
    const auto status = fib()->vrfStatusIs(vrfName(vrf));
    for (unsigned route = 0; route < routesPerVrf; ++route) {
      const auto row = status->routeIs(routeKey(vrf, route));
      const unsigned number = route % vlansPerVrf;
      row->iifIs(number == 3 ? IntfId("Ethernet1") : sviOf(vrf, number));
      row->lastActivityTimeIs(Vesk::System::currentTime());
    }
  }
}

}  // namespace Bench::Routes
