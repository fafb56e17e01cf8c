// Immediate mappings of a VRF, worked out of its configuration: overlay ranges become single
// groups. Owns: the message about ranges that contradict each other. Reads: one configuration
// entry. Writes: nothing but that message. Runs: from the configuration machine of the VXLAN
// interface. Caveat: the two reads differ on purpose. The expansion takes IPv4 multicast ranges of
// a bounded size only, the match of one group takes every range that contains it.
#pragma once

#include "records/TunnelGroupConfig.h"
#include "runtime/KeyedMap.h"

namespace Routing::Multicast {

/// The shortest overlay range that is expanded: at most 128 groups, so that one fits in a reactor.
inline constexpr unsigned minPfxLen = 25;

using OverlayToUnderlay = Vesk::KeyedMap<Pavlin::IpGenAddr, UnderlayAddr>;

/// Adds every group that the entry maps. Groups whose ranges contradict each other are left out,
/// with one message per range that meets the conflict, unless they are configured one by one.
void expandImmediateGroups(const IpTunnelConfigEntry& entry, L3::VrfName vrfName,
                           OverlayToUnderlay& overlayToUnderlay);

/// What the ranges alone give one group: none if no range contains it, or if they contradict.
[[nodiscard]] UnderlayAddr underlayOfRanges(const IpTunnelConfigEntry& entry,
                                            const OverlayAddr& overlay);

}  // namespace Routing::Multicast
