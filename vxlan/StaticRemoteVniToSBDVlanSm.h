// Configured remote network identifiers (VNI, RFC 7348) and the SBD vlans that their packets are
// bridged in: a VNI names a VRF, and the VRF's SBD vlan gives the row.
// StaticRemoteVniToSBDVlanConfigSm: which VXLAN interface's configuration is in force. Owns: the
// worker of that interface. StaticRemoteVniToSBDVlanSm, the worker: owns the VNIs of each VRF, the
// VRF of each VNI, and what each VNI's row should be. Reads: remoteVniToVrf of the configuration,
// vrfToSBDVlan of the VXLAN interface. Writes: RemoteVniToVlanStatus. Runs: in reactors only, one
// VNI or the VNIs of one VRF at a time. Caveat: the rows outlive the worker; the next one reviews
// them.
#pragma once

#include "records/TunnelGroupConfig.h"
#include "records/Vxlan.h"
#include "runtime/KeyedMap.h"
#include "runtime/Record.h"

namespace Vxlan {

class StaticRemoteVniToSBDVlanSm final : public Vesk::Machine {
  VESK_RECORD(Vxlan::StaticRemoteVniToSBDVlanSm)
  struct Inputs {
    Ombra::Ptr<Routing::Multicast::IpTunnelGroupIntfConfig const> ipTunnelGroupIntfConfig;
    Ombra::Ptr<VtiStatus const> vtiStatus;
    Ombra::Ptr<RemoteVniToVlanStatus> remoteVniToSBDVlan;
    bool operator==(const Inputs&) const = default;
  };
  explicit StaticRemoteVniToSBDVlanSm(Inputs inputs);
  const Inputs in;

  /// The VNIs that name a VRF, whether or not it has an SBD vlan.
  VESK_INSTANCES(L3::VrfName, RemoteVniColl, vrfToRemoteVniColl)
  /// What the output should hold.
  VESK_ROWS(VniExtOrNone, RemoteVniCache, rVniCache)

  void review() override;

 private:
  void handleInitialized();
  void handleRemoteVniToVrf(VniExtOrNone vni);
  void handleVrfToSbdVlan(L3::VrfName vrfName);
  /// Writes or removes the row of a VNI: nobody else does.
  void handleRemoteVniCache(VniExtOrNone vni);
  void cacheIs(const RemoteVniCache& cache);
  void cacheDel(VniExtOrNone vni);
  /// Moves the VNI to this VRF's collection; the empty name takes it out of all.
  void vrfOfVniIs(VniExtOrNone vni, L3::VrfName vrfName);

  Vesk::KeyedMap<VniExtOrNone, L3::VrfName> vrfOf_;
  Vesk::Watch remoteVniToVrf_ = watch<&StaticRemoteVniToSBDVlanSm::handleRemoteVniToVrf>(
      in.ipTunnelGroupIntfConfig, Routing::Multicast::IpTunnelGroupIntfConfig::remoteVniToVrfAttr);
  Vesk::Watch vrfToSBDVlan_ = watch<&StaticRemoteVniToSBDVlanSm::handleVrfToSbdVlan>(
      in.vtiStatus, VtiStatus::vrfToSBDVlanAttr);
};

class StaticRemoteVniToSBDVlanConfigSm final : public Vesk::Machine {
  VESK_RECORD(Vxlan::StaticRemoteVniToSBDVlanConfigSm)
  using IpTunnelGroupConfig = Routing::Multicast::IpTunnelGroupConfig;
  using IpTunnelGroupIntfConfig = Routing::Multicast::IpTunnelGroupIntfConfig;

  struct Inputs {
    Ombra::Ptr<IpTunnelGroupConfig const> vlanToGroupConfig;
    Ombra::Ptr<VtiStatusDir const> vtiStatusDir;
    Ombra::Ptr<RemoteVniToVlanStatus> remoteVniToSBDVlan;
    bool operator==(const Inputs&) const = default;
  };
  explicit StaticRemoteVniToSBDVlanConfigSm(Inputs inputs);
  const Inputs in;

  /// The overlay families of one interface's configuration.
  class NestedSm_IntfConfig final : public Vesk::Machine {
    VESK_RECORD(Vxlan::StaticRemoteVniToSBDVlanConfigSm::NestedSm_IntfConfig)
    struct Inputs {
      StaticRemoteVniToSBDVlanConfigSm* parent;
      Ombra::Ptr<IpTunnelGroupIntfConfig const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit NestedSm_IntfConfig(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;

   private:
    void handleOverlay() { in.parent->handleIntf(in.row->intfId()); }

    Vesk::Watch overlayV4_ = watch<&NestedSm_IntfConfig::handleOverlay>(
        in.row, IpTunnelGroupIntfConfig::mcastOverlayV4Attr);
    Vesk::Watch overlayV6_ = watch<&NestedSm_IntfConfig::handleOverlay>(
        in.row, IpTunnelGroupIntfConfig::mcastOverlayV6Attr);
  };

  VESK_INSTANCE(StaticRemoteVniToSBDVlanSm, staticRemoteVniToSBDVlanSm)
  VESK_INSTANCES(Pavlin::IntfId, NestedSm_IntfConfig, intfConfig)

  /// The interface handled last decides: it becomes the one in force, or none is.
  void handleIntf(Pavlin::IntfId intfId);

 private:
  using Self = StaticRemoteVniToSBDVlanConfigSm;
  Vesk::Follow intfConfigs_ = follow<&Self::handleIntf>(
      in.vlanToGroupConfig, IpTunnelGroupConfig::intfConfigAttr, intfConfigAttr);
  Vesk::Watch vtiStatus_ = watch<&Self::handleIntf>(in.vtiStatusDir, VtiStatusDir::vtiStatusAttr);
};

}  // namespace Vxlan
