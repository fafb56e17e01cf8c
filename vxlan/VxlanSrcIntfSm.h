// Makes the source interface of a VXLAN interface a multicast interface of the underlay, while the
// overlay has a group that needs the underlay: PIM runs where the tunnels leave.
// Owns: a machine per VXLAN interface with the interface that it has brought up. Reads: source
// interface and state of each VXLAN interface, whether the encapsulation status has any group.
// Writes: the interfaces of the application "mcasttunnel" in the VRF "default". Runs: in reactors
// only; the first and the last group take all VXLAN interfaces. Caveat: the interface of a VXLAN
// interface that is removed stays until the next start.
#pragma once

#include "records/IpTunnelVlanGroupStatus.h"
#include "records/Vxlan.h"
#include "runtime/Record.h"
#include "vxlan/ApplicationIntfs.h"

namespace Irb::Multicast {

class VxlanSrcIntfSm final : public Vesk::Machine {
  VESK_RECORD(Irb::Multicast::VxlanSrcIntfSm)
  using IpTunnelVlanGroupStatus = Routing::Multicast::IpTunnelVlanGroupStatus;

  struct Inputs {
    Ombra::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir;
    Ombra::Ptr<IpTunnelVlanGroupStatus const> ipTunnelGroupStatus;
    Ombra::Ptr<Vesk::Dir> multicastIntfsAppDir;
    bool operator==(const Inputs&) const = default;
  };
  explicit VxlanSrcIntfSm(Inputs inputs);
  const Inputs in;

  /// One VXLAN interface.
  class NestedSm_VtiStatus final : public Vesk::Machine {
    VESK_RECORD(Irb::Multicast::VxlanSrcIntfSm::NestedSm_VtiStatus)
    struct Inputs {
      VxlanSrcIntfSm* parent;
      Ombra::Ptr<Vxlan::VtiStatus const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit NestedSm_VtiStatus(Inputs inputs) : in(std::move(inputs)) { handleVxlanIntf(); }
    const Inputs in;

    /// What it has in the output; the empty interface if nothing.
    VESK_VALUE(Pavlin::IntfId, mcastIntf)

    void handleVxlanIntf();
    void review() override { handleVxlanIntf(); }

   private:
    Vesk::Watch srcIntf_ =
        watch<&NestedSm_VtiStatus::handleVxlanIntf>(in.row, Vxlan::VtiStatus::srcIntfAttr);
    Vesk::Watch operStatus_ =
        watch<&NestedSm_VtiStatus::handleVxlanIntf>(in.row, Vxlan::VtiStatus::operStatusAttr);
  };

  VESK_INSTANCES(Pavlin::IntfId, NestedSm_VtiStatus, vtiStatus)
  /// Of the last change of the output, in seconds.
  VESK_VALUE(double, multicastIntfsUpdateTs)

  /// The interface should be a multicast interface of the underlay.
  [[nodiscard]] bool checkIntf(Pavlin::IntfId intf) const;

 private:
  void handleInitialized();
  void handleUnderlayMulticast();
  [[nodiscard]] bool hasUnderlayGroup() const;
  void enableMulticastIntf(Pavlin::IntfId intf);
  void disableMulticastIntf(Pavlin::IntfId intf);
  void noteChange();

  ApplicationIntfs intfs_{in.multicastIntfsAppDir};
  /// As it was handled last.
  bool hadUnderlayGroup_ = false;
  Vesk::Follow vtis_ = follow(in.vtiStatusDir, Vxlan::VtiStatusDir::vtiStatusAttr, vtiStatusAttr);
  Vesk::Watch vlanToMulticastGroup_ = watch<&VxlanSrcIntfSm::handleUnderlayMulticast>(
      in.ipTunnelGroupStatus, IpTunnelVlanGroupStatus::vlanToMulticastGroupAttr);
  Vesk::Watch vlanToFloodGroup_ = watch<&VxlanSrcIntfSm::handleUnderlayMulticast>(
      in.ipTunnelGroupStatus, IpTunnelVlanGroupStatus::vlanToFloodGroupAttr);
};

}  // namespace Irb::Multicast
