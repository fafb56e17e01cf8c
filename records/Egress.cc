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

// Each join of any client asks these two questions: the clients are visited in place.

ReceiverDomain MembershipJoinStatusColl::groupActive(const Bridging::VlanId& vlan,
                                                     const Pavlin::IpGenAddr& group,
                                                     Joiners among) const {
  ReceiverDomain result{};
  localMembership_.map().visitUntil([&](const std::string& name, const auto& status) {
    if (!among.intersects(Joiners::local(name))) return false;
    const auto membership = std::as_const(*status).vlan(vlan);
    if (membership &&
        ((membership->groupHas(group) && !leakedGroup(vlan, group)) || hasWildcard(*membership)))
      result |= maskOf(name);
    return false;
  });
  peerMembership_.map().visitUntil([&](const std::string& name, const auto& status) {
    if (!among.intersects(Joiners::peer(name))) return false;
    const auto membership = std::as_const(*status).vlan(vlan);
    const auto joined = membership ? membership->group(group) : nullptr;
    if (!joined) return false;
    const ReceiverDomain mask = maskOf(name);
    result |= groupDomainHelper(*joined, mask);
    return result == mask;
  });
  return result;
}

ReceiverDomain MembershipJoinStatusColl::vlanActive(const Bridging::VlanId& vlan,
                                                    Joiners among) const {
  ReceiverDomain result{};
  localMembership_.map().visitUntil([&](const std::string& name, const auto& status) {
    if (!among.intersects(Joiners::local(name))) return false;
    const auto membership = std::as_const(*status).vlan(vlan);
    if (!membership) return false;
    for (const auto& [group, join] : membership->groupIterator()) {
      if (leakedGroup(vlan, group)) continue;
      if (auto t = traceHandle.at(9)) t << "  found entry in " << name;
      result |= maskOf(name);
      break;  // the client's other groups say the same
    }
    return false;
  });
  peerMembership_.map().visitUntil([&](const std::string& name, const auto& status) {
    if (!among.intersects(Joiners::peer(name))) return false;
    const auto membership = std::as_const(*status).vlan(vlan);
    if (!membership) return false;
    const ReceiverDomain mask = maskOf(name);
    for (const auto& [group, join] : membership->groupIterator()) {
      result |= groupDomainHelper(*join, mask);
      if (result == mask) return true;
    }
    return false;
  });
  return result;
}

bool MembershipJoinStatusColl::leakedGroup(const Bridging::VlanId& vlan,
                                           const Pavlin::IpGenAddr& group) const {
  const auto& context = mcastVrfLeakCtx();
  if (!context || !context->mcastIrbStatus() || !context->vxlanEnabledStatus()) return false;
  const auto& matcher = context->vrfLeakMatcherStatus();
  if (!matcher || matcher->vrfStatusCount() == 0) return false;
  const auto sbdVlan = context->mcastIrbStatus()->sbdOf(vlan);
  if (!sbdVlan) return false;
  const L3::VrfName rxVrfName = context->vxlanEnabledStatus()->sbdVlanToVrf(sbdVlan->value());
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
