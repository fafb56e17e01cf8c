#include "vxlan/SbdIntfSm.h"

#include "platform/VlanOfIntf.h"
#include "runtime/Clock.h"
#include "runtime/Fleetlog.h"
#include "runtime/Trace.h"

namespace Irb::Multicast {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using L3::VrfName;
using Pavlin::IntfId;

namespace {

const Vesk::TraceHandle traceHandle{"SbdIntfSm"};
const Fleetlog::TraceHandle ring{"SbdIntfSm"};
constexpr int level = 7;

void tellPim(const char* what, IntfId intf) {
  Fleetlog::record(ring, level, "{} {}", what, intf.stringValue());
  if (auto t = traceHandle.at(level)) t << what << " " << intf;
}

}  // namespace

SbdIntfSm::SbdIntfSm(Inputs inputs) : in(std::move(inputs)) {
  vtis_.begin();
  handleInitialized();
}

/// Takes away what a predecessor has left and nobody needs.
void SbdIntfSm::handleInitialized() {
  for (const auto& entry : in.sbdVlanMcastGroup->intfAddrIterator())
    if (Pavlin::VlanIntfId::isVlanIntfId(entry.intfId) && !isOfSbdVlan(entry.intfId))
      disablePimProfile(entry.intfId);
  for (const auto& [name, entity] : in.multicastIntfsAppDir->entryStateIterator()) {
    const auto intfs = intfs_.ofVrf(name);
    if (!intfs) continue;
    for (const auto& [intf, enabled] : intfs->multicastIntfIterator())
      if (!isOfSbdVlan(intf)) disableMulticastIntf(intf, name);
    intfs_.dropIfEmpty(name);
  }
}

VrfName SbdIntfSm::findSbdVlan(VlanId vlan) const {
  const auto vti = vtisOf_.first(vlan);
  return vti ? vtiStatus(*vti)->findSbdVlan(vlan) : VrfName();
}

bool SbdIntfSm::isOfSbdVlan(IntfId intf) const {
  const VlanIdOrNone vlan = ::Multicast::Vpn::vlanOfIntf(intf);
  return !vlan.isNone() && !findSbdVlan(vlan.vlanId()).empty();
}

void SbdIntfSm::handleVrfToSbdVlan(VrfName vrfName, VlanIdOrNone newSbd, VlanIdOrNone oldSbd) {
  if (!newSbd.isNone()) enableMulticast(newSbd.vlanId(), vrfName);
  if (!oldSbd.isNone() && findSbdVlan(oldSbd.vlanId()).empty())
    disableMulticast(oldSbd.vlanId(), vrfName);
}

void SbdIntfSm::enableMulticast(VlanId vlan, VrfName vrfName) {
  const IntfId intf = Pavlin::VlanIntfId::vlanIdToIntfId(vlan);
  const std::string name(vrfName.str());
  if (!intfs_.has(name, intf)) {
    if (auto t = traceHandle.at(level)) t << ": Adding (" << vlan << ", " << vrfName << ")";
    intfs_.add(name, intf);
    noteChange();
  }
  const auto info = intfAddrInfo(intf);
  if (in.sbdVlanMcastGroup->intfAddrHas(info)) return;
  tellPim("Enabling PIM on SBD vlan", intf);
  in.sbdVlanMcastGroup->intfAddrIs(info);
  noteChange();
}

void SbdIntfSm::disableMulticast(VlanId vlan, VrfName vrfName) {
  const IntfId intf = Pavlin::VlanIntfId::vlanIdToIntfId(vlan);
  disableMulticastIntf(intf, std::string(vrfName.str()));
  disablePimProfile(intf);
}

void SbdIntfSm::disableMulticastIntf(IntfId intf, const std::string& vrfName) {
  if (intfs_.has(vrfName, intf)) {
    if (auto t = traceHandle.at(level)) t << ": Deleting (" << intf << ", " << vrfName << ")";
    intfs_.remove(vrfName, intf);
    noteChange();
  }
  intfs_.dropIfEmpty(vrfName);
}

void SbdIntfSm::disablePimProfile(IntfId intf) {
  const auto info = intfAddrInfo(intf);
  if (!in.sbdVlanMcastGroup->intfAddrHas(info)) return;
  tellPim("Disabling PIM on SBD vlan", intf);
  in.sbdVlanMcastGroup->intfAddrDel(info);
  noteChange();
}

IpGen::IntfAddrInfo SbdIntfSm::intfAddrInfo(IntfId intf) const {
  constexpr Pavlin::IpAddr allPimRouters(0xe000000dU);  // 224.0.0.13
  return in.sbdVlanMcastGroup->af() == Pavlin::ipv4()
             ? IpGen::IntfAddrInfo{intf, Pavlin::IpGenAddr(allPimRouters)}
             : IpGen::IntfAddrInfo{intf, Pavlin::IpGenAddr(Pavlin::ip6AddrPimRouters)};
}

void SbdIntfSm::noteChange() {
  mcastIntfsAndGroupsUpdateTSIs(Vesk::System::currentTime());
}

// --- one VXLAN interface

void SbdIntfSm::NestedSm_VtiStatus::review() {
  for (const VrfName& vrf : vrfToSBDVlanKeys())
    handleVrfToSbdVlan(vrf);
  for (const auto& [vrf, vlan] : in.row->vrfToSBDVlanIterator()) {
    handleVrfToSbdVlan(vrf);
    in.parent->handleVrfToSbdVlan(vrf, vlan, {});
  }
}

void SbdIntfSm::NestedSm_VtiStatus::handleVrfToSbdVlan(VrfName vrfName) {
  const VlanIdOrNone last = vrfToSBDVlan(vrfName);
  const VlanIdOrNone present = in.row->vrfToSBDVlan(vrfName);
  if (present == last) return;
  nameSbdVlan(vrfName, present);
  in.parent->handleVrfToSbdVlan(vrfName, present, last);
}

void SbdIntfSm::NestedSm_VtiStatus::nameSbdVlan(VrfName vrfName, VlanIdOrNone vlan) {
  auto& vtisOf = in.parent->vtisOf_;
  if (const VlanIdOrNone last = vrfToSBDVlan(vrfName); !last.isNone()) {
    vrfsOf_.remove(last.vlanId(), vrfName);
    if (!vrfsOf_.first(last.vlanId())) vtisOf.remove(last.vlanId(), in.row->intfId());
    vrfToSBDVlanDel(vrfName);
  }
  if (vlan.isNone()) return;
  vrfToSBDVlanIs(vrfName, vlan);
  vrfsOf_.add(vlan.vlanId(), vrfName);
  vtisOf.add(vlan.vlanId(), in.row->intfId());
}

void SbdIntfSm::NestedSm_VtiStatus::handleDel() {
  const auto handled = vrfToSBDVlanKeys();
  std::vector<std::pair<VrfName, VlanIdOrNone>> given;
  for (const VrfName& vrf : handled)
    given.emplace_back(vrf, vrfToSBDVlan(vrf));
  // Nobody may find this interface any more when the first of them is judged.
  for (const VrfName& vrf : handled)
    nameSbdVlan(vrf, {});
  for (const auto& [vrf, vlan] : given)
    in.parent->handleVrfToSbdVlan(vrf, {}, vlan);
}

}  // namespace Irb::Multicast

VESK_REGISTER(Irb::Multicast::SbdIntfSm)
VESK_REGISTER(Irb::Multicast::SbdIntfSm::NestedSm_VtiStatus)
