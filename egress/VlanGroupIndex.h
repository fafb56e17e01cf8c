// The vlan groups of one reduced status by vlan, so that an event of a vlan finds them without a
// look at all others.
// Owns: the index. Reads: vlanToMulticastGroup. Writes: nothing. Runs: in the reactor of one entry.
// Caveat: who reacts to the same entry may come before it; an entry that is new asks for its own
// review, and one that is gone needs none.
#pragma once

#include <vector>

#include "records/IpTunnelVlanGroupStatus.h"
#include "runtime/OneToMany.h"

namespace Irb::Multicast::Egress {

class VlanGroupIndex final : public Vesk::Machine {
  VESK_RECORD(Irb::Multicast::Egress::VlanGroupIndex)
  using OverlayVlanGroup = Routing::Multicast::OverlayVlanGroup;

  struct Inputs {
    Ombra::Ptr<Routing::Multicast::IpTunnelVlanGroupStatus const> tunnelVlanGroupStatus;
    bool operator==(const Inputs&) const = default;
  };
  explicit VlanGroupIndex(Inputs inputs);
  const Inputs in;

  /// The overlay groups that have an entry in the vlan.
  [[nodiscard]] std::vector<Routing::Multicast::OverlayAddr> groups(Bridging::VlanId vlan) const {
    return groups_.of(vlan);
  }

 private:
  void handleVlanToMulticastGroup(OverlayVlanGroup vlanGroup);

  Vesk::OneToMany<Bridging::VlanId, Routing::Multicast::OverlayAddr> groups_;
  Vesk::Watch vlanGroup_ = watch<&VlanGroupIndex::handleVlanToMulticastGroup>(
      in.tunnelVlanGroupStatus,
      Routing::Multicast::IpTunnelVlanGroupStatus::vlanToMulticastGroupAttr);
};

}  // namespace Irb::Multicast::Egress
