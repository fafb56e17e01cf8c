// What EVPN multicast can do on this switch, for the agents that announce it.
// Owns nothing. Reads: whether the encapsulation statuses of both domains hold any group, whether
// any vlan is proxied, the hardware's make-before-break and PIM's use of it. Writes:
// McastEvpnStatus. Runs: on each row that comes or goes; looks at counts only. Caveat: raises a
// warning on each run while an underlay group is in use and the hardware cannot do what PIM is
// configured to; the log's limiter bounds it.
#pragma once

#include "records/Bridging.h"
#include "records/BriskelInputs.h"
#include "records/IpTunnelVlanGroupStatus.h"
#include "records/McastEvpnStatus.h"
#include "records/Pim.h"
#include "runtime/Record.h"

namespace Routing::Multicast {

class McastEvpnStatusSm final : public Vesk::Machine {
  VESK_RECORD(Routing::Multicast::McastEvpnStatusSm)
  struct Inputs {
    Ombra::Ptr<IpTunnelVlanGroupStatus const> tunnelVlanGroupStatus;
    /// Null without a remote domain.
    Ombra::Ptr<IpTunnelVlanGroupStatus const> remoteDomainTunnelVlanGroupStatus;
    Ombra::Ptr<Irb::Multicast::IgmpProxyStatus const> igmpProxyStatus;
    Ombra::Ptr<McastEvpnStatus> mcastEvpnStatus;
    Ombra::Ptr<Bridging::HwCapabilities const> hwCapabilities;
    Ombra::Ptr<Pim::SparseMode::ConfigColl const> pimsmConfigColl;
    bool operator==(const Inputs&) const = default;
  };
  explicit McastEvpnStatusSm(Inputs inputs);
  const Inputs in;

  /// Of the last change of the output, in seconds.
  VESK_VALUE(double, mcastEvpnStatusUpdateTs)

  void updateUnderlayMcastEnabled();
  /// A fact about this agent: it always serves head-end replication, whatever is configured.
  void updateUnderlayHerEnabled();
  void updateIgmpProxyEnabled();

  void review() override;

 private:
  void noteChange();

  using Self = McastEvpnStatusSm;
  using Status = IpTunnelVlanGroupStatus;
  Vesk::Watch multicastGroup_ = watch<&Self::updateUnderlayMcastEnabled>(
      in.tunnelVlanGroupStatus, Status::vlanToMulticastGroupAttr);
  Vesk::Watch floodGroup_ = watch<&Self::updateUnderlayMcastEnabled>(in.tunnelVlanGroupStatus,
                                                                     Status::vlanToFloodGroupAttr);
  Vesk::Watch remoteMulticastGroup_ = watch<&Self::updateUnderlayMcastEnabled>(
      in.remoteDomainTunnelVlanGroupStatus, Status::vlanToMulticastGroupAttr);
  Vesk::Watch remoteFloodGroup_ = watch<&Self::updateUnderlayMcastEnabled>(
      in.remoteDomainTunnelVlanGroupStatus, Status::vlanToFloodGroupAttr);
  Vesk::Watch igmpProxyVlan_ = watch<&Self::updateIgmpProxyEnabled>(
      in.igmpProxyStatus, Irb::Multicast::IgmpProxyStatus::igmpProxyVlanAttr);
};

}  // namespace Routing::Multicast
