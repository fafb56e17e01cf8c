#include "tests/history/RouteEvents.h"

#include <algorithm>

#include "platform/Toggles.h"
#include "records/BriskelInputs.h"
#include "records/Evpn.h"
#include "records/Fib.h"
#include "tests/history/Inputs.h"
#include "tests/history/RouteOracle.h"

namespace History {
namespace {

using Bridging::VlanId;
using L3::VrfName;
using Pavlin::IntfId;
using Pavlin::IpGenAddr;
using Pavlin::IpGenPrefix;
using Routing::Multicast::PegDrRole;
using VrfId = Vrf::VrfIdMap::VrfId;

auto fib() {
  return input<Routing::Multicast::Fib::Hardware::Status>(Pavlin::ipv4());
}
auto roles() {
  return sharedInput<Routing::Multicast::PegDrStatus>(
      Routing::Multicast::PegDrStatus::mountPath(Pavlin::ipv4()));
}
Pavlin::EthAddr mac(std::uint64_t number) {
  return Pavlin::EthAddr::fromText("00:00:00:00:00:0" + std::to_string(number));
}

}  // namespace

VrfName RouteEvents::vrf() {
  return VrfName(random_.pick<std::string>({"red", "red", "blue", "green", "default"}));
}

void RouteEvents::baseline() {
  if (random_.mostly())
    sharedInput<Vrf::VrfIdMap::Status>()->vrfIdToNameIs({VrfId(1), VrfName("red")});
  if (random_.mostly())
    sharedInput<Vrf::VrfIdMap::Status>()->vrfIdToNameIs({VrfId(2), VrfName("blue")});
  for (const unsigned vlan : {10U, 20U, 100U})
    if (random_.mostly())
      sharedInput<Briskel::Bridging::Status>()->fdbEntryIs(
          {{VlanId(vlan), mac(1)}, IntfId("Ethernet5")});
  if (random_.mostly()) roles()->pegDrVlanIs({VlanId(100), PegDrRole::dr});
  for (int i = 0; i < 4; ++i)
    (void)routeEvent();
}

std::string RouteEvents::next() {
  const auto kind = random_.draw(10);
  if (kind < 5) return routeEvent();
  return kind < 8 ? neighbourEvent() : roleEvent();
}

std::string RouteEvents::routeEvent() {
  const VrfName name = vrf();
  const std::string source =
      random_.pick<std::string>({"10.1.1.1", "10.1.1.1", "10.1.1.2", "0.0.0.0"});
  const std::string group = random_.pick<std::string>({"239.1.1.1", "239.1.1.2", "239.5.5.5"});
  const Route route{name,
                    {IpGenPrefix(IpGenAddr::fromText(source)),
                     random_.draw(20) == 0 ? IpGenPrefix::fromText("239.1.1.0/28")
                                           : IpGenPrefix(IpGenAddr::fromText(group))}};
  const std::string words = std::string(name.str()) + " " + Vesk::textOf(route.second);
  if (random_.draw(30) == 0) {
    fib()->vrfStatusDel(name);
    return std::string(name.str()) + " has no routes";
  }
  const auto status = fib()->vrfStatusIs(name);
  if (random_.draw(6) == 0) {
    status->routeDel(route.second);
    return words + " goes";
  }
  const auto row = status->routeIs(route.second);
  const auto iif = random_.pick<std::string>({"Vlan10", "Vlan10", "Vlan20", "Vlan30", "Vlan100",
                                              "Vlan200", "Ethernet1", "Ethernet1", "Vlan9",
                                              "Vlan5000", "Vlan0", "Vlan4095", ""});
  if (row->iif().empty() || random_.draw(3) == 0) row->iifIs(IntfId(iif));
  const bool flows = random_.draw(2) == 0;
  const double quiet = static_cast<double>(random_.draw(240));
  const bool never = random_.draw(10) == 0;
  row->lastActivityTimeIs(never ? 0 : Vesk::System::currentTime() - (flows ? 0 : quiet));
  if (flows) {
    flowing_.insert(route);
  } else {
    flowing_.erase(route);
  }
  return words + " by " + row->iif().stringValue() +
         (flows   ? " flows"
          : never ? " silent"
                  : " quiet since " + std::to_string(quiet));
}

std::string RouteEvents::neighbourEvent() {
  const bool comes = random_.draw(3) != 0;
  const auto number = 1 + random_.draw(2);
  const std::string how = comes ? " comes" : " goes";
  if (random_.draw(2) == 0) {
    const auto table = sharedInput<Briskel::Bridging::Status>();
    const Briskel::Bridging::FdbKey key{VlanId(random_.pick<unsigned>({10, 20, 30, 100})),
                                        mac(number)};
    const IntfId port(random_.pick<std::string>({"Ethernet5", "Ethernet6", "Vxlan1"}));
    if (comes) {
      table->fdbEntryIs({key, port});
    } else {
      table->fdbEntryDel(key);
    }
    return "learnt " + Vesk::textOf(key) + " at " + port.stringValue() + how;
  }
  const auto table = sharedInput<Arp::Table::Status>();
  const IntfId intf(
      random_.pick<std::string>({"Vlan10", "Vlan10", "Vlan20", "Vlan30", "Ethernet1"}));
  const Arp::Table::ArpKey key{
      VrfId(static_cast<std::uint32_t>(1 + random_.draw(3))),
      IpGenAddr::fromText(random_.pick<std::string>({"10.1.1.1", "10.1.1.2"})), intf};
  if (comes) {
    table->arpEntryIs({key, mac(number), intf});
  } else {
    table->arpEntryDel(key);
  }
  return "neighbour " + Vesk::textOf(key) + " is " + Vesk::textOf(mac(number)) + how;
}

std::string RouteEvents::roleEvent() {
  const bool on = random_.draw(3) != 0;
  const std::string how = on ? " on" : " off";
  switch (random_.draw(4)) {
    case 0: {
      const auto config = input<Routing::Multicast::Evpn::Config>(Pavlin::ipv4());
      const VrfName name = vrf();
      if (on) {
        config->transitVrfIs(name);
      } else {
        config->transitVrfDel(name);
      }
      return "transit " + std::string(name.str()) + how;
    }
    case 1: {
      const VlanId vlan(random_.pick<unsigned>({10, 20, 100, 200}));
      const bool gone = !on && random_.draw(2) == 0;
      if (gone) {
        roles()->pegDrVlanDel(vlan);
      } else {
        roles()->pegDrVlanIs({vlan, on ? PegDrRole::dr : PegDrRole::notDr});
      }
      return "designated router of vlan " + Vesk::textOf(vlan) + (gone ? " gone" : how);
    }
    case 2: {
      const auto gateway = sharedInput<Irb::Multicast::GatewayEsStatus>();
      const VlanId vlan(random_.pick<unsigned>({20, 30, 100}));
      if (on) {
        gateway->esVlanStatusIs({vlan, {}});
      } else {
        gateway->esVlanStatusDel(vlan);
      }
      return "gateway vlan " + Vesk::textOf(vlan) + how;
    }
    default: {
      const auto ids = sharedInput<Vrf::VrfIdMap::Status>();
      const VrfId id(static_cast<std::uint32_t>(1 + random_.draw(3)));
      const VrfName name = vrf();
      // A claim needs a name, and MPLS and VXLAN agree where somebody minds.
      if (!on || Multicast::Vpn::toggleOismMplsTunnelEnabled())
        sharedInput<Routing::Multicast::MvpnIntfStatus>()->vrfIntfIdDel(id);
      if (on) {
        ids->vrfIdToNameIs({id, name});
      } else {
        ids->vrfIdToNameDel(id);
      }
      return "VRF number " + Vesk::textOf(id) + " of " + std::string(name.str()) + how;
    }
  }
}

void RouteEvents::pass(AgentWorld& world, double seconds) {
  for (const double step = 60; seconds > 0; seconds -= step) {
    for (const auto& [name, key] : flowing_) {
      const auto status = fib()->vrfStatus(name);
      if (const auto row = status ? status->route(key) : nullptr)
        row->lastActivityTimeIs(Vesk::System::currentTime());
    }
    world.advance(std::min(seconds, step));
  }
}

void RouteEvents::rest(AgentWorld& world) {
  for (pass(world, 61); !activityIsDefinite();)
    pass(world, 20);
}

}  // namespace History
