#include "records/Egress.h"

#include "runtime/Trace.h"

namespace Irb::Multicast::Egress {

namespace {

const Vesk::TraceHandle traceHandle("MembershipJoinStatusColl");

/// The domains that receivers of this client stand for.
ReceiverDomain maskOf(const std::string& clientName) {
  return receiverDomain(App::ClientInstance(clientName));
}

/// True if a client has joined everything in the vlan.
bool hasWildcard(const Gmp::VlanMembershipJoin& membership) {
  return membership.groupHas(Pavlin::IpGenAddr(Pavlin::ipv4())) ||
         membership.groupHas(Pavlin::IpGenAddr(Pavlin::ipv6()));
}

}  // namespace

ReceiverDomain MembershipJoinStatusColl::groupActive(const Bridging::VlanId& vlan,
                                                     const Pavlin::IpGenAddr& group) const {
  ReceiverDomain result{};
  for (const auto& [name, status] : localMembershipIterator()) {
    const auto membership = status->vlan(vlan);
    if (!membership) continue;
    if ((membership->groupHas(group) && !leakedGroup(vlan, group)) || hasWildcard(*membership))
      result |= maskOf(name);
  }
  for (const auto& [name, status] : peerMembershipIterator()) {
    const auto membership = status->vlan(vlan);
    const auto joined = membership ? membership->group(group) : nullptr;
    if (!joined) continue;
    result |= groupDomainHelper(*joined, maskOf(name));
    if (result == maskOf(name)) return result;
  }
  return result;
}

ReceiverDomain MembershipJoinStatusColl::vlanActive(const Bridging::VlanId& vlan) const {
  ReceiverDomain result{};
  for (const auto& [name, status] : localMembershipIterator()) {
    const auto membership = status->vlan(vlan);
    if (!membership) continue;
    for (const auto& [group, join] : membership->groupIterator()) {
      if (leakedGroup(vlan, group)) continue;
      if (auto t = traceHandle.at(9)) t << "  found entry in " << name;
      result |= maskOf(name);
      break;  // the client's other groups say the same
    }
  }
  for (const auto& [name, status] : peerMembershipIterator()) {
    const auto membership = status->vlan(vlan);
    if (!membership) continue;
    for (const auto& [group, join] : membership->groupIterator()) {
      result |= groupDomainHelper(*join, maskOf(name));
      if (result == maskOf(name)) return result;
    }
  }
  return result;
}

bool MembershipJoinStatusColl::leakedGroup(const Bridging::VlanId& vlan,
                                           const Pavlin::IpGenAddr& group) const {
  const auto& context = mcastVrfLeakCtx();
  if (!context || !context->mcastIrbStatus() || !context->vxlanEnabledStatus()) return false;
  const auto& matcher = context->vrfLeakMatcherStatus();
  if (!matcher || matcher->vrfStatusCount() == 0) return false;
  const VlanToSbd sbd = context->mcastIrbStatus()->vlanToSbd(vlan);
  if (sbd == VlanToSbd{}) return false;
  const L3::VrfName rxVrfName = context->vxlanEnabledStatus()->sbdVlanToVrf(sbd.sbdVlan.value());
  return !rxVrfName.empty() && !matcher->shouldLeak(rxVrfName, group).empty();
}

ReceiverDomain MembershipJoinStatusColl::groupDomainHelper(
    const Gmp::GroupMembershipJoin& groupMembership, ReceiverDomain currentDomain) const {
  using enum ReceiverDomain;
  ReceiverDomain result{};
  const auto complete = [&](Pavlin::IntfId intf) {
    const bool tunnel = ::Multicast::Tunnel::McastTunnelIntfId::isMcastTunnelIntfId(intf);
    result |= currentDomain & (tunnel ? remoteOnly | localOnly : plainIntf);
    return result == currentDomain;
  };
  for (const auto& [addr, source] : groupMembership.sourceIterator()) {
    for (const auto& intf : source->firstIntfIterator())
      if (complete(intf)) return result;
    for (const auto& intf : source->secondIntfIterator())
      if (complete(intf)) return result;
  }
  return result;
}

}  // namespace Irb::Multicast::Egress

VESK_REGISTER(Irb::Multicast::Egress::OverlayChangeSet)
VESK_REGISTER(Irb::Multicast::Egress::McastVrfLeakCtx)
VESK_REGISTER(Irb::Multicast::Egress::MembershipJoinStatusColl)
