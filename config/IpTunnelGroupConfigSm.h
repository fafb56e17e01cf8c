// Which VXLAN interface's group configuration is in force in a domain.
// Owns: the machine of the one interface that is in force, and in small machines the overlay
// families of each. Reads: the configured interfaces, VtiStatus. Writes: `ready` of
// IpTunnelMappingStatus, once; the rest is the interface machine's. Runs: when an interface's
// configuration, its overlay families or its status come or go.
#pragma once

#include "config/IpTunnelGroupIntfConfigSm.h"

namespace Routing::Multicast {

class IpTunnelGroupConfigSm final : public Vesk::Machine {
  VESK_RECORD(Routing::Multicast::IpTunnelGroupConfigSm)
  struct Inputs {
    Ombra::Ptr<IpTunnelGroupConfig const> vlanToGroupConfig;
    Ombra::Ptr<Bridging::VlanStatusDir const> vlanStatusDir;
    Ombra::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir;
    Ombra::Ptr<MulticastIntfsAppRootSmColl const> mcastIntfRoot;
    Ombra::Ptr<IpTunnelVlanGroupStatus> vlanToGroupStatus;
    Ombra::Ptr<::Multicast::Vpn::IpTunnelMappingStatus> ipTunnelMappingStatus;
    bool operator==(const Inputs&) const = default;
  };
  explicit IpTunnelGroupConfigSm(Inputs inputs);
  const Inputs in;

  /// The overlay families of one interface's configuration.
  class NestedSm_VlanIntfGroupConfig final : public Vesk::Machine {
    VESK_RECORD(Routing::Multicast::IpTunnelGroupConfigSm::NestedSm_VlanIntfGroupConfig)
    struct Inputs {
      IpTunnelGroupConfigSm* parent;
      Ombra::Ptr<IpTunnelGroupIntfConfig const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit NestedSm_VlanIntfGroupConfig(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;

   private:
    void handleMcastOverlay() { in.parent->handleIntf(in.row->intfId()); }

    Vesk::Watch mcastOverlayV4_ = watch<&NestedSm_VlanIntfGroupConfig::handleMcastOverlay>(
        in.row, IpTunnelGroupIntfConfig::mcastOverlayV4Attr);
    Vesk::Watch mcastOverlayV6_ = watch<&NestedSm_VlanIntfGroupConfig::handleMcastOverlay>(
        in.row, IpTunnelGroupIntfConfig::mcastOverlayV6Attr);
  };

  VESK_INSTANCE(IpTunnelGroupIntfConfigSm, intfSm)
  VESK_INSTANCES(Pavlin::IntfId, NestedSm_VlanIntfGroupConfig, vlanIntfGroupConfig)

  /// The interface handled last decides: it becomes the one in force, or none is.
  void handleIntf(Pavlin::IntfId intfId);
  void handleInitialized();

 private:
  Vesk::Follow intfConfigs_ = followAfter<&IpTunnelGroupConfigSm::handleIntf>(
      in.vlanToGroupConfig, IpTunnelGroupConfig::intfConfigAttr, vlanIntfGroupConfigAttr);
  Vesk::Watch vtiStatus_ = watch<&IpTunnelGroupConfigSm::handleIntf>(
      in.vtiStatusDir, Vxlan::VtiStatusDir::vtiStatusAttr);
};

}  // namespace Routing::Multicast
