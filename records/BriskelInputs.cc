#include "records/BriskelInputs.h"

namespace Arp::Table {

std::optional<ArpEntry> Status::firstEntry(const Vrf::VrfIdMap::VrfId& vrfId,
                                           const Pavlin::IpGenAddr& addr) const {
  ArpKey first;
  first.vrfId = vrfId;
  first.addr = addr;
  // Only a row that was asked for is read: another one may be damaged, which is not asked here.
  const auto at = arpEntry_.map().from(first);
  if (at.atEnd() || at.key().vrfId != vrfId || at.key().addr != addr) return std::nullopt;
  return arpEntryHas(at.key()) ? std::optional(at.value()) : std::nullopt;
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
