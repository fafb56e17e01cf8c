#include "config/ImmediateGroups.h"

#include "runtime/Log.h"
#include "runtime/Trace.h"

namespace Routing::Multicast {
namespace {

const Vesk::TraceHandle traceHandle{"ImmediateGroups"};

const Vesk::LogDescriptor conflictDescriptor{
    .name = "VXLAN_OVERLAY_RANGE_IMMEDIATE_ENCAP_MAPPING_CONFLICT",
    .format =
        "Immediate encap overlay group range %s in VRF %s overlaps another overlay range "
        "that is mapped to a conflicting underlay group",
    .explanation =
        "Overlay ranges configured for immediate encap are overlapping and mapping same "
        "overlay groups to multiple underlay encap groups",
    .recommendedAction =
        "Remove conflicting immediate mappings or configure the same underlay group for immediate "
        "mappings that contain any of the same overlay groups"};
Vesk::LogHandle conflictLog{conflictDescriptor, 0, 1.0, 0, 0};

void logConflict(const Pavlin::IpGenPrefix& prefix, L3::VrfName vrfName) {
  if (!conflictLog.okToLog(0)) return;
  Vesk::LogString text;
  text.strIs(0, prefix.stringValue());
  text.strIs(1, vrfName.str());
  conflictLog.log(text);
}

bool isExpanded(const Pavlin::IpGenPrefix& prefix, const UnderlayAddr& underlay) {
  return prefix.af() == Pavlin::ipv4() && underlay.af() == Pavlin::ipv4() && prefix.isMulticast() &&
         prefix.length() >= minPfxLen;
}

}  // namespace

void expandImmediateGroups(const IpTunnelConfigEntry& entry, L3::VrfName vrfName,
                           OverlayToUnderlay& overlayToUnderlay) {
  // A group in conflict stays out, whatever a third range says.
  Vesk::KeyedMap<Pavlin::IpGenAddr, Vesk::NoValue> conflicts;
  for (const auto& [prefix, underlay] : entry.immediateOverlayPrefixToUnderlayGroupIterator()) {
    if (!isExpanded(prefix, underlay)) continue;
    if (auto t = traceHandle.at(8))
      t << " Process overlay mappings for prefix " << prefix << " for underlay " << underlay;
    bool conflict = false;
    const std::uint32_t first = prefix.v4Addr().value();
    const std::uint32_t count = 1U << (32 - prefix.length());
    for (std::uint32_t i = 0; i < count; ++i) {
      const Pavlin::IpGenAddr group = Pavlin::IpAddr(first + i);
      if (conflicts.has(group)) {
        conflict = true;
      } else if (const UnderlayAddr* present = overlayToUnderlay.find(group); present == nullptr) {
        overlayToUnderlay.insert(group, underlay);
      } else if (*present != underlay) {
        conflict = true;
        overlayToUnderlay.erase(group);
        conflicts.insert(group, {});
      }
    }
    if (conflict) logConflict(prefix, vrfName);
  }
  for (const auto& [overlay, underlay] : entry.immediateOverlayToUnderlayGroupIterator()) {
    if (UnderlayAddr* present = overlayToUnderlay.find(overlay.genAddr())) {
      *present = underlay;
    } else {
      overlayToUnderlay.insert(overlay.genAddr(), underlay);
    }
  }
}

UnderlayAddr underlayOfRanges(const IpTunnelConfigEntry& entry, const OverlayAddr& overlay) {
  UnderlayAddr result;
  for (const auto& [prefix, underlay] : entry.immediateOverlayPrefixToUnderlayGroupIterator()) {
    if (!prefix.contains(overlay.genAddr())) continue;
    if (result.isUnspecified()) {
      result = underlay;
    } else if (result != underlay) {
      return UnderlayAddr();
    }
  }
  return result;
}

}  // namespace Routing::Multicast
