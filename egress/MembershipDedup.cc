#include "egress/MembershipDedup.h"

#include "runtime/Clock.h"
#include "runtime/Trace.h"

namespace Irb::Multicast::Egress {

using Routing::Gmp::MembershipDeduped;
using Routing::Gmp::Briskel::Membership;
using Routing::Gmp::Briskel::RouteIntfKey;
using Routing::Gmp::Briskel::Status;
using Vesk::textOf;

namespace {

const Vesk::TraceHandle traceHandle{"MembershipDedup"};

constexpr std::uint8_t joinMode = 1;

}  // namespace

Status& MembershipDedupedLifetimeNotifiee::statusOf(const RouteIntfKey& key) const {
  return key.group.af() == Pavlin::ipv4() ? *in.gmpStatus : *in.gmpStatus6;
}

void MembershipDedupedLifetimeNotifiee::handleInsert(const MembershipDeduped& handle) {
  const RouteIntfKey& key = handle.value();
  const Membership row{key, joinMode};
  Status& status = statusOf(key);
  if (status.membership(key) == row) return;
  if (auto t = traceHandle.at(8)) t << " Injecting Join for underlayRoute " << textOf(key);
  status.membershipIs(row);
  gmpStatusUpdateTsIs(Vesk::System::currentTime());
}

void MembershipDedupedLifetimeNotifiee::handleRemove(const MembershipDeduped& handle) {
  const RouteIntfKey& key = handle.value();
  Status& status = statusOf(key);
  if (status.membership(key) == Membership{}) return;
  if (auto t = traceHandle.at(8)) t << " Deleting Join for underlayRoute " << textOf(key);
  status.membershipDel(key);
  gmpStatusUpdateTsIs(Vesk::System::currentTime());
}

}  // namespace Irb::Multicast::Egress

VESK_REGISTER(Routing::Gmp::MembershipDedupTable)
VESK_REGISTER(Irb::Multicast::Egress::MembershipDedupedLifetimeNotifiee)
