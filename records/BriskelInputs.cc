#include "records/BriskelInputs.h"

namespace Arp::Table {

std::optional<ArpEntry> Status::firstEntry(const Vrf::VrfIdMap::VrfId& vrfId,
                                           const Pavlin::IpGenAddr& addr) const {
  ArpKey first;
  first.vrfId = vrfId;
  first.addr = addr;
  for (const auto& [key, entry] : arpEntryIteratorFrom(first)) {
    if (key.vrfId == vrfId && key.addr == addr) return entry;
    break;
  }
  return std::nullopt;
}

}  // namespace Arp::Table

VESK_REGISTER(Arp::Table::Status)
VESK_REGISTER(Briskel::Bridging::Status)
VESK_REGISTER(Vrf::VrfIdMap::Status)
VESK_REGISTER(Routing::Multicast::MvpnIntfStatus)
VESK_REGISTER(Routing::Multicast::PegDrStatus)
VESK_REGISTER(Routing::Multicast::PegVlanStatus)
VESK_REGISTER(Routing::Multicast::PegVlanNeighbor)
VESK_REGISTER(Routing::Multicast::PegNeighborStatus)
VESK_REGISTER(Irb::Multicast::IgmpProxyStatus)
VESK_REGISTER(Irb::Multicast::GatewayEsStatus)
