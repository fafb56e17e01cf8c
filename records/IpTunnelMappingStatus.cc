#include "records/IpTunnelMappingStatus.h"

#include <algorithm>

namespace Multicast::Vpn {

using Routing::Multicast::OverlayAddr;
using Routing::Multicast::UnderlayAddr;

namespace {

using Bytes = Pavlin::Ip6Addr::Bytes;

/// The address as a number of 128 bits, whatever its family.
Bytes numberOf(const Pavlin::IpGenAddr& addr) {
  if (addr.af() != Pavlin::AddressFamily::ipv4) return addr.v6Addr().bytes();
  Bytes number{};
  addr.v4Addr().toBytes(reinterpret_cast<char*>(number.data()) + number.size() -
                        Pavlin::IpAddr::byteSize);
  return number;
}

Pavlin::IpGenAddr addressOf(const Bytes& number, Pavlin::AddressFamily af) {
  if (af != Pavlin::AddressFamily::ipv4) return Pavlin::IpGenAddr(Pavlin::Ip6Addr(number));
  return Pavlin::IpGenAddr(Pavlin::IpAddr::fromBytes(reinterpret_cast<const char*>(number.data()) +
                                                     number.size() - Pavlin::IpAddr::byteSize));
}

/// The pool's base with the host bits of the overlay address. The families may differ: the lowest
/// bits count.
Pavlin::IpGenAddr drawn(const Pavlin::IpGenPrefix& pool, const Pavlin::IpGenAddr& overlay) {
  Bytes number = numberOf(pool.ipGenAddr());
  const Bytes host = numberOf(overlay);
  int bits = Pavlin::IpGenPrefix::maxLength(pool.af()) - pool.length();
  for (std::size_t i = number.size(); bits > 0; bits -= 8) {
    --i;
    const auto mask = static_cast<std::uint8_t>((1U << std::min(bits, 8)) - 1);
    number[i] = static_cast<std::uint8_t>((number[i] & ~mask) | (host[i] & mask));
  }
  return addressOf(number, pool.af());
}

}  // namespace

UnderlayAddr VlanToGroupMapping::effDefaultUnderlayGroup() const {
  if (const auto& own = vlanTunnelConfigEntry();
      own && !own->defaultUnderlayGroup().isUnspecified())
    return own->defaultUnderlayGroup();
  return vrfTunnelConfigEntry() ? vrfTunnelConfigEntry()->defaultUnderlayGroup() : UnderlayAddr();
}

bool VlanToGroupMapping::ownsImmediateGroup(const OverlayAddr& overlay) const {
  const auto holds = [&](const auto& source) {
    return source && source->immediateOverlayToUnderlayGroupHas(overlay);
  };
  return isSbdVlan() ? holds(vrfImmediateGroupStatus()) : holds(vlanTunnelConfigEntry());
}

UnderlayAddr VlanToGroupMapping::effImmediateUnderlayGroup(const OverlayAddr& overlay) const {
  if (overlay.isUnspecified()) return {};
  if (const auto& own = vlanTunnelConfigEntry(); own && !isSbdVlan()) {
    const UnderlayAddr group = own->immediateOverlayToUnderlayGroup(overlay);
    if (!group.isUnspecified()) return group;
  }
  return vrfImmediateGroupStatus()
             ? vrfImmediateGroupStatus()->immediateOverlayToUnderlayGroup(overlay)
             : UnderlayAddr();
}

UnderlayAddr VlanToGroupMapping::underlayGroup(const OverlayAddr& overlay) const {
  const UnderlayAddr immediate = effImmediateUnderlayGroup(overlay);
  if (!immediate.isUnspecified()) return immediate;
  if (const auto& vrf = vrfTunnelConfigEntry();
      vrf && !overlay.isUnspecified() && !vrf->underlayGroupRange().isEmpty())
    return UnderlayAddr(drawn(vrf->underlayGroupRange(), overlay.genAddr()));
  return effDefaultUnderlayGroup();
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::ImmediateGroupVrfStatus)
VESK_REGISTER(Multicast::Vpn::VlanToGroupMapping)
VESK_REGISTER(Multicast::Vpn::IpTunnelMappingStatus)
VESK_REGISTER(Routing::Multicast::VlanToOverlayGroup)
