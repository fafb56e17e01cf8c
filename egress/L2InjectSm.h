// Joins of the flood groups: broadcast and unknown traffic of a vlan is received whether or not it
// has receivers.
// Owns: a nested machine per vlan with the handles of its routes. Reads: vlanToFloodGroup of an
// unreduced decapsulation status, the MLAG state. Writes: handles, and `l2InjectReady` after the
// first review. Runs: in reactors only; a change of the MLAG state takes all flood groups.
#pragma once

#include "egress/MembershipDedup.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/MlagVxlanState.h"
#include "records/ReadyStatus.h"
#include "runtime/Record.h"

namespace Irb::Multicast::Egress {

class L2InjectSm final : public Vesk::Machine {
  VESK_RECORD(Irb::Multicast::Egress::L2InjectSm)
  using UnderlayRoute = Routing::Multicast::UnderlayRoute;
  using MlagVxlanState = Routing::Multicast::MlagVxlanState;
  using MembershipDedupTable = Routing::Gmp::MembershipDedupTable;

  struct Inputs {
    Ombra::Ptr<Routing::Multicast::IpTunnelVlanGroupStatus const> tunnelVlanGroupStatus;
    Ombra::Ptr<MlagVxlanState const> mlagState;
    Ombra::Ptr<MembershipDedupTable> underlayInjectDedupTable;
    Ombra::Ptr<::Multicast::Vpn::DecapReadyStatus> decapReadyStatus;
    bool operator==(const Inputs&) const = default;
  };
  explicit L2InjectSm(Inputs inputs);
  const Inputs in;
  /// A successor holds what it wants before the handles of this one go: no row leaves in between.
  static constexpr auto succession = Vesk::Succession::goesLast;

  class FloodGroupSm final : public Vesk::Machine {
    VESK_RECORD(Irb::Multicast::Egress::L2InjectSm::FloodGroupSm)
    struct Inputs {
      L2InjectSm* parent;
      Ombra::Ptr<Routing::Multicast::VlanToFloodGroup const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit FloodGroupSm(Inputs inputs);
    const Inputs in;

    VESK_MAP(UnderlayRoute, MembershipDedupTable::Handle, injectRoute)

    /// Judges all routes of the vlan.
    void review() override;

   private:
    void handleFloodGroup(UnderlayRoute route);
    const Pavlin::IntfId vlanIntf_;
    Vesk::Watch floodGroup_ = watch<&FloodGroupSm::handleFloodGroup>(
        in.row, Routing::Multicast::VlanToFloodGroup::floodGroupAttr);
  };

  VESK_INSTANCES(Bridging::VlanId, FloodGroupSm, vlanToFloodGroup)

  /// True if this machine is one of those that hold the vlan's row of the route.
  [[nodiscard]] bool holdsRoute(Bridging::VlanId vlan, const UnderlayRoute& route) const;

 private:
  void handleInitialized();
  void handleMlagState();
  [[nodiscard]] bool mlagFilterUnderlayRoute(const UnderlayRoute& route) const;
  void handleFirstReview();

  using Self = L2InjectSm;
  Vesk::Follow vlans_ = follow(in.tunnelVlanGroupStatus,
                               Routing::Multicast::IpTunnelVlanGroupStatus::vlanToFloodGroupAttr,
                               vlanToFloodGroupAttr);
  Vesk::Watch join_ =
      watch<&Self::handleMlagState>(in.mlagState, MlagVxlanState::mlagUnderlayJoinAttr);
  Vesk::Watch join6_ =
      watch<&Self::handleMlagState>(in.mlagState, MlagVxlanState::mlagUnderlayJoin6Attr);
  Vesk::Watch parity_ = watch<&Self::handleMlagState>(in.mlagState, MlagVxlanState::parityAttr);
  Vesk::Watch parity6_ = watch<&Self::handleMlagState>(in.mlagState, MlagVxlanState::parity6Attr);
  Vesk::Watch peerVtep_ =
      watch<&Self::handleMlagState>(in.mlagState, MlagVxlanState::peerLocalVtepAddrAttr);
  Vesk::Watch peerVtep6_ =
      watch<&Self::handleMlagState>(in.mlagState, MlagVxlanState::peerLocalVtepAddr6Attr);
};

}  // namespace Irb::Multicast::Egress
