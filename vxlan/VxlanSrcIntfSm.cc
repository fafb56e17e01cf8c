#include "vxlan/VxlanSrcIntfSm.h"

#include "runtime/Clock.h"
#include "runtime/Trace.h"

namespace Irb::Multicast {

using Pavlin::IntfId;

namespace {

const Vesk::TraceHandle traceHandle{"VxlanSrcIntfSm"};

/// The VRF of the underlay.
const std::string& underlayVrf() {
  static const std::string name(L3::defaultVrfName().str());
  return name;
}

}  // namespace

VxlanSrcIntfSm::VxlanSrcIntfSm(Inputs inputs) : in(std::move(inputs)) {
  hadUnderlayGroup_ = hasUnderlayGroup();
  vtis_.begin();
  handleInitialized();
}

/// Takes away what a predecessor has left and nobody needs.
void VxlanSrcIntfSm::handleInitialized() {
  const auto intfs = intfs_.ofVrf(underlayVrf());
  if (!intfs) return;
  for (const auto& [intf, enabled] : intfs->multicastIntfIterator())
    if (!checkIntf(intf)) disableMulticastIntf(intf);
  if (!intfs_.ofVrf(underlayVrf()) || intfs->multicastIntfCount() != 0) return;
  if (auto t = traceHandle.at(8)) t << " deleting vrf " << underlayVrf();
  intfs_.dropIfEmpty(underlayVrf());
  noteChange();
}

bool VxlanSrcIntfSm::hasUnderlayGroup() const {
  return in.ipTunnelGroupStatus->vlanToMulticastGroupCount() != 0 ||
         in.ipTunnelGroupStatus->vlanToFloodGroupCount() != 0;
}

bool VxlanSrcIntfSm::checkIntf(IntfId intf) const {
  if (intf == IntfId() || !hasUnderlayGroup()) return false;
  for (const auto& [name, vti] : in.vtiStatusDir->vtiStatusIterator())
    if (vti->srcIntf() == intf && vti->operStatus() == Vxlan::IntfOperStatus::up) return true;
  return false;
}

/// Only the first group and the last one change the answer for an interface.
void VxlanSrcIntfSm::handleUnderlayMulticast() {
  if (hasUnderlayGroup() == hadUnderlayGroup_) return;
  hadUnderlayGroup_ = !hadUnderlayGroup_;
  for (const auto& [intf, vti] : vtiStatusIterator())
    vti->handleVxlanIntf();
}

void VxlanSrcIntfSm::NestedSm_VtiStatus::handleVxlanIntf() {
  const IntfId last = mcastIntf();
  const IntfId wanted = in.parent->checkIntf(in.row->srcIntf()) ? in.row->srcIntf() : IntfId();
  if (wanted != IntfId()) in.parent->enableMulticastIntf(wanted);
  // Another VXLAN interface may have the same source.
  if (last != wanted && !in.parent->checkIntf(last)) in.parent->disableMulticastIntf(last);
  mcastIntfIs(wanted);
}

void VxlanSrcIntfSm::enableMulticastIntf(IntfId intf) {
  if (intfs_.has(underlayVrf(), intf)) return;
  if (auto t = traceHandle.at(8)) t << " adding multicast intf: " << intf.shortName();
  intfs_.add(underlayVrf(), intf);
  noteChange();
}

void VxlanSrcIntfSm::disableMulticastIntf(IntfId intf) {
  if (!intfs_.has(underlayVrf(), intf)) return;
  if (auto t = traceHandle.at(8)) t << " deleting multicast intf: " << intf.shortName();
  intfs_.remove(underlayVrf(), intf);
  noteChange();
  intfs_.dropIfEmpty(underlayVrf());
}

void VxlanSrcIntfSm::noteChange() {
  multicastIntfsUpdateTsIs(Vesk::System::currentTime());
}

}  // namespace Irb::Multicast

VESK_REGISTER(Irb::Multicast::VxlanSrcIntfSm)
VESK_REGISTER(Irb::Multicast::VxlanSrcIntfSm::NestedSm_VtiStatus)
