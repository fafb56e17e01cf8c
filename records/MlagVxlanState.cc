#include "records/MlagVxlanState.h"

namespace Routing::Multicast {

namespace {

bool lowestBit(const Pavlin::IpGenAddr& addr) {
  const auto last = addr.af() == Pavlin::AddressFamily::ipv4 ? addr.v4Addr().value()
                                                             : addr.v6Addr().bytes().back();
  return (last & 1U) != 0;
}

}  // namespace

bool MlagVxlanState::mlagFilterUnderlayRoute(const UnderlayRoute& route) const {
  const Pavlin::IpGenAddr& group = route.underlayGroup.genAddr();
  if (!group.hasFamily()) return true;
  const bool v4 = group.af() == Pavlin::AddressFamily::ipv4;
  switch (v4 ? mlagUnderlayJoin() : mlagUnderlayJoin6()) {
    case MlagUnderlayJoin::State::noGroups:
      return false;
    case MlagUnderlayJoin::State::someGroups:
      return lowestBit(group) == ((v4 ? parity() : parity6()) == MlagPeerParity::Parity::parity1);
    default:
      return true;
  }
}

}  // namespace Routing::Multicast

VESK_REGISTER(Routing::Multicast::MlagVxlanState)
