// Which underlay groups this switch of an MLAG pair joins.
// Written by: the MLAG state machine. Read by: the underlay route filter, its change machine and
// the flood injection. Two peers that share the groups have different parity, so that exactly one
// of them joins each group.
#pragma once

#include "records/Enums.h"
#include "records/Keys.h"
#include "runtime/Record.h"

namespace Routing::Multicast {

class MlagVxlanState : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::MlagVxlanState)
  VESK_VALUE(MlagUnderlayJoin::State, mlagUnderlayJoin)
  VESK_VALUE(MlagUnderlayJoin::State, mlagUnderlayJoin6)
  VESK_VALUE(MlagPeerParity::Parity, parity)
  VESK_VALUE(MlagPeerParity::Parity, parity6)
  VESK_VALUE(Pavlin::IpAddr, peerLocalVtepAddr)
  VESK_VALUE(Pavlin::Ip6Addr, peerLocalVtepAddr6)

  /// True if this switch joins the route's group.
  [[nodiscard]] bool mlagFilterUnderlayRoute(const UnderlayRoute& route) const;
};

}  // namespace Routing::Multicast
