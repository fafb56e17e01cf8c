#include "egress/ReviewHelper.h"

#include "platform/Toggles.h"
#include "runtime/Assert.h"

namespace Irb::Multicast::Egress {

using Bridging::VlanId;
using Routing::Multicast::OverlayVlanGroup;

Ombra::Ptr<ReviewHelper> ReviewHelper::createReviewHelper(const ReviewTarget& local,
                                                          const ReviewTarget& remote,
                                                          ReceiverDomain receiverDomain) {
  auto helper = Ombra::make<ReviewHelper>();
  if (joinDomain(receiverDomain, Domain::localDomain))
    helper->changeSetIs(Domain::localDomain, local);
  if (::Multicast::Vpn::toggleOismGatewayEnabled() &&
      joinDomain(receiverDomain, Domain::remoteDomain))
    helper->changeSetIs(Domain::remoteDomain, remote);
  return helper;
}

void ReviewHelper::changeSetIs(Domain domain, const ReviewTarget& target) {
  if (target.changeSet) {
    targets_.insert_or_assign(domain, target);
  } else {
    targets_.erase(domain);
  }
}

void ReviewHelper::review(const OverlayVlanGroup& vlanGroup) const {
  for (const auto& [domain, target] : targets_) {
    target.changeSet->vlanGroupIs(vlanGroup);
    target.changeSet->vlanIs(vlanGroup.vlan);
    target.changeSet->changedInc(1);
  }
}

void ReviewHelper::reviewVlan(VlanId vlan) const {
  for (const auto& [domain, target] : targets_) {
    for (const auto& group : target.vlanGroups->groups(vlan)) {
      target.changeSet->vlanGroupIs({vlan, group});
      target.changeSet->vlanIs(vlan);
    }
  }
  for (const auto& [domain, target] : targets_)
    target.changeSet->changedInc(1);
}

void assertReduced(const Routing::Multicast::IpTunnelVlanGroupStatus& status) {
  Ombra::assertThat(status.name() == stringValue(Routing::Multicast::irbDecapReduced()),
                    "tunnelVlanGroupStatus()->name() == stringValue( "
                    "Routing::Multicast::irbDecapReduced() )");
}

}  // namespace Irb::Multicast::Egress
