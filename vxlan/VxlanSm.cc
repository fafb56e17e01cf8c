#include "vxlan/VxlanSm.h"

#include "platform/VlanOfIntf.h"
#include "runtime/Clock.h"
#include "runtime/Trace.h"

namespace Irb::Multicast {

using Bridging::VlanId;
using L3::VrfName;

namespace {

const Vesk::TraceHandle traceHandle{"VxlanSm"};

const char* textOf(VxlanSm::Reason reason) {
  switch (reason) {
    case VxlanSm::Reason::notRouted:
      return "Multicast not enabled";
    case VxlanSm::Reason::noVti:
      return "No VtiStatus";
    case VxlanSm::Reason::noSbdVlan:
      return "No SBD vlan";
    case VxlanSm::Reason::notProxied:
      return "Igmp Proxy not enabled";
    case VxlanSm::Reason::isSbdVlan:
      return "Vlan is the SBD VLAN";
    case VxlanSm::Reason::served:
      break;
  }
  return "";
}

}  // namespace

void VxlanSm::NestedSm_McastIntfVrfSm::handleVrf() {
  for (const auto& [intf, enabled] : in.row->multicastIntfIterator())
    in.parent->handleMulticastIntf(intf);
}

VxlanSm::VxlanSm(Inputs inputs) : in(std::move(inputs)) {
  intfVrfIndexIs({.mcastIntfRoot = in.mcastIntfRoot});
  vtiStatusIs(in.vtiStatusDir->vtiStatus(Pavlin::vxlan1IntfId()));
  vrfs_.begin();
  handleInitialized();
}

void VxlanSm::handleInitialized() {
  if (initialized()) {
    if (auto t = traceHandle.at(8)) t << " Already initialized";
    return;
  }
  if (auto t = traceHandle.at(8)) t << "Starting reconcile";
  initializedIs(true);
  updateAll();
  // Rows of a predecessor whose vlans nobody speaks of any more.
  for (const VlanId& vlan : in.mcastIrbStatus->vlanToSbdKeys())
    handleVlan(vlan);
}

VxlanSm::Verdict VxlanSm::judge(VlanId vlan) const {
  const auto intf = Pavlin::VlanIntfId::vlanIdToIntfId(vlan);
  if (!intfVrfIndex()->firstVrfHas(intf)) return {Reason::notRouted};
  const VrfName vrf = intfVrfIndex()->firstVrf(intf);
  if (!vtiStatus() || vtiStatus()->operStatus() != Vxlan::IntfOperStatus::up)
    return {Reason::noVti, vrf};
  const Bridging::VlanIdOrNone sbdVlan = vtiStatus()->vrfToSBDVlan(vrf);
  if (sbdVlan.isNone()) return {Reason::noSbdVlan, vrf};
  if (!in.igmpProxyStatus->igmpProxyVlanHas(vlan)) return {Reason::notProxied, vrf, sbdVlan};
  if (sbdVlan.value() == vlan.value()) return {Reason::isSbdVlan, vrf, sbdVlan};
  return {Reason::served, vrf, sbdVlan};
}

void VxlanSm::handleMulticastIntf(Pavlin::IntfId intf) {
  if (::Multicast::Vpn::isVlanIntf(intf)) handleVlan(Pavlin::VlanIntfId::vlanId(intf).vlanId());
}

void VxlanSm::handleVlan(VlanId vlan) {
  if (!initialized()) {
    if (auto t = traceHandle.at(8)) t << " Not initialized";
    return;
  }
  const Verdict verdict = judge(vlan);
  if (verdict.reason == Reason::served) return updateVlanToSbdMap(vlan, verdict.sbdVlan.vlanId());
  if (auto t = traceHandle.at(9)) t << textOf(verdict.reason);
  deleteVlanToSbdMap(vlan);
}

void VxlanSm::handleVrf(VrfName vrfName) {
  if (const auto vrf = mcastIntfVrfSm(vrfName)) vrf->handleVrf();
}

void VxlanSm::handleVtiStatus(Pavlin::IntfId intf) {
  if (intf == Pavlin::vxlan1IntfId()) handleVxlanIntf();
}

void VxlanSm::handleVxlanIntf() {
  vtiStatusIs(in.vtiStatusDir->vtiStatus(Pavlin::vxlan1IntfId()));
  if (initialized()) updateAll();
}

void VxlanSm::updateAll() {
  if (!vtiStatus()) {
    if (auto t = traceHandle.at(7)) t << "Clearing VlanToSbd, VtiStatus Empty";
    for (const VlanId& vlan : in.mcastIrbStatus->vlanToSbdKeys())
      deleteVlanToSbdMap(vlan);
    return;
  }
  for (const auto& [vrf, machine] : mcastIntfVrfSmIterator())
    machine->handleVrf();
}

void VxlanSm::updateVlanToSbdMap(VlanId vlan, VlanId sbdVlan) {
  const VlanToSbd present = in.mcastIrbStatus->vlanToSbd(vlan);
  if (present == VlanToSbd{vlan, sbdVlan}) return;
  if (auto t = traceHandle.at(7))
    t << ": Updating (" << vlan << ") =>" << sbdVlan << ") Old SBD Vlan: " << present.sbdVlan;
  in.mcastIrbStatus->vlanToSbdIs({vlan, sbdVlan});
  mcastIrbStatusUpdateTSIs(Vesk::System::currentTime());
}

void VxlanSm::deleteVlanToSbdMap(VlanId vlan) {
  // Counted, since a damaged row is denied by `vlanToSbdHas` and has to go like the others.
  const auto before = in.mcastIrbStatus->vlanToSbdCount();
  in.mcastIrbStatus->vlanToSbdDel(vlan);
  if (in.mcastIrbStatus->vlanToSbdCount() == before) return;
  if (auto t = traceHandle.at(7)) t << ": Deleting (" << vlan << ")";
  mcastIrbStatusUpdateTSIs(Vesk::System::currentTime());
}

}  // namespace Irb::Multicast

VESK_REGISTER(Irb::Multicast::VxlanSm)
VESK_REGISTER(Irb::Multicast::VxlanSm::NestedSm_McastIntfVrfSm)
