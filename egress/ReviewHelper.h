// Where a source of changes reports: the change sets of the domains that it concerns.
// Owns: nothing. Writes: the change sets. Runs: in the reactors of the change machines.
// Caveat: a batch is complete before it is announced, so that a walk begins with all of it.
#pragma once

#include <map>

#include "egress/VlanGroupIndex.h"
#include "records/Egress.h"

namespace Irb::Multicast::Egress {

/// One domain's work list, and where the vlan groups that it may name are found.
struct ReviewTarget {
  Ombra::Ptr<OverlayChangeSet> changeSet;
  Ombra::Ptr<VlanGroupIndex const> vlanGroups;
  bool operator==(const ReviewTarget&) const = default;
};

class ReviewHelper : public Ombra::Node {
 public:
  /// For a source whose receivers count as the mask says; the remote domain only on a switch that
  /// can be a gateway.
  [[nodiscard]] static Ombra::Ptr<ReviewHelper> createReviewHelper(const ReviewTarget& local,
                                                                   const ReviewTarget& remote,
                                                                   ReceiverDomain receiverDomain);
  /// Reports to the domain from here on; no longer if there is no change set.
  void changeSetIs(Domain domain, const ReviewTarget& target);

  /// Asks for a new judgement of the vlan group, and of its vlan's any group.
  void review(const Routing::Multicast::OverlayVlanGroup& vlanGroup) const;
  /// The same for all vlan groups of the vlan.
  void reviewVlan(Bridging::VlanId vlan) const;

 private:
  std::map<Domain, ReviewTarget> targets_;
};

/// Ends the process if this is another than a reduced status: only routes that have passed the
/// filters may be reviewed.
void assertReduced(const Routing::Multicast::IpTunnelVlanGroupStatus& status);

}  // namespace Irb::Multicast::Egress
