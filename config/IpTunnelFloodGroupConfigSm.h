// Which VXLAN interface's flood groups are in force.
// Owns: the machine of the one interface that is in force. Reads: the configured interfaces,
// VtiStatus. Writes: clears the flood rows when no interface is in force; the rest is the interface
// machine's. Runs: when an interface's configuration or its status comes or goes. Caveat: unlike
// the groups of overlay traffic, flood groups do not ask for an overlay family.
#pragma once

#include "config/IpTunnelFloodGroupIntfConfigSm.h"

namespace Routing::Multicast {

class IpTunnelFloodGroupConfigSm final : public Vesk::Machine {
  VESK_RECORD(Routing::Multicast::IpTunnelFloodGroupConfigSm)
  struct Inputs {
    Ombra::Ptr<IpTunnelGroupConfig const> vlanToGroupConfig;
    Ombra::Ptr<Bridging::VlanStatusDir const> vlanStatusDir;
    Ombra::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir;
    Ombra::Ptr<IpTunnelVlanGroupStatus> vlanToGroupStatus;
    bool operator==(const Inputs&) const = default;
  };
  explicit IpTunnelFloodGroupConfigSm(Inputs inputs);
  const Inputs in;

  VESK_INSTANCE(IpTunnelFloodGroupIntfConfigSm, intfSm)

  /// The interface handled last decides: it becomes the one in force, or none is.
  void handleIntf(Pavlin::IntfId intfId);
  void handleInitialized();

  void review() override { handleInitialized(); }

 private:
  using Self = IpTunnelFloodGroupConfigSm;
  Vesk::Watch intfConfig_ =
      watch<&Self::handleIntf>(in.vlanToGroupConfig, IpTunnelGroupConfig::intfConfigAttr);
  Vesk::Watch vtiStatus_ =
      watch<&Self::handleIntf>(in.vtiStatusDir, Vxlan::VtiStatusDir::vtiStatusAttr);
};

}  // namespace Routing::Multicast
