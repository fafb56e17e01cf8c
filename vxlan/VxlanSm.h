// The SBD vlan of each vlan where no MPLS can claim one: multicast routing, VXLAN, the VRF's SBD
// vlan and IGMP or MLD proxying all have to agree.
// Owns: a machine per VRF with multicast, and the VRF of each interface. Reads: "Vxlan1", the proxy
// vlans, the SVIs of the overlay VRFs. Writes: McastIrbStatus.vlanToSbd. Runs: in reactors only.
// Caveat: an interface that several VRFs have counts for the first of them in collection order, so
// that the late event of a VRF that it has left takes nothing away.
#pragma once

#include "platform/IntfVrfIndex.h"
#include "records/BriskelInputs.h"
#include "records/McastIrbStatus.h"
#include "records/Vxlan.h"
#include "runtime/Record.h"

namespace Irb::Multicast {

class VxlanSm final : public Vesk::Machine {
  VESK_RECORD(Irb::Multicast::VxlanSm)
  using MulticastIntfs = Routing::Multicast::MulticastIntfsAppRootSm;
  using MulticastIntfsColl = Routing::Multicast::MulticastIntfsAppRootSmColl;

  struct Inputs {
    Ombra::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir;
    Ombra::Ptr<IgmpProxyStatus const> igmpProxyStatus;
    Ombra::Ptr<MulticastIntfsColl const> mcastIntfRoot;
    Ombra::Ptr<McastIrbStatus> mcastIrbStatus;
    bool operator==(const Inputs&) const = default;
  };
  explicit VxlanSm(Inputs inputs);
  const Inputs in;

  /// The multicast interfaces of one VRF.
  class NestedSm_McastIntfVrfSm final : public Vesk::Machine {
    VESK_RECORD(Irb::Multicast::VxlanSm::NestedSm_McastIntfVrfSm)
    struct Inputs {
      VxlanSm* parent;
      Ombra::Ptr<MulticastIntfs const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit NestedSm_McastIntfVrfSm(Inputs inputs) : in(std::move(inputs)) {}
    const Inputs in;
    /// Judges all of them. An interface that comes, goes or moves is heard of by its VRF.
    void handleVrf();
  };

  /// Of the last write, in seconds.
  VESK_VALUE(double, mcastIrbStatusUpdateTS)
  VESK_REF(Vxlan::VtiStatus const, vtiStatus)
  VESK_INSTANCES(L3::VrfName, NestedSm_McastIntfVrfSm, mcastIntfVrfSm)
  VESK_VALUE(bool, initialized)
  VESK_INSTANCE(Routing::Multicast::IntfVrfIndex, intfVrfIndex)

  /// Why a vlan has an SBD vlan, or has none.
  enum class Reason {
    served,
    notRouted,  ///< its interface is in no VRF with multicast
    noVti,      ///< "Vxlan1" is not there or not up
    noSbdVlan,  ///< its VRF has none
    notProxied,
    isSbdVlan,
  };
  struct Verdict {
    Reason reason;
    L3::VrfName vrf{};
    Bridging::VlanIdOrNone sbdVlan{};
  };
  [[nodiscard]] Verdict judge(Bridging::VlanId vlan) const;

  void review() override { updateAll(); }

 private:
  void handleInitialized();
  void handleMulticastIntf(Pavlin::IntfId intf);
  void handleVlan(Bridging::VlanId vlan);
  void handleVrf(L3::VrfName vrfName);
  void handleIgmpProxyVlan(Bridging::VlanId vlan) { handleVlan(vlan); }
  void handleVxlanIntf();
  void handleVtiStatus(Pavlin::IntfId intf);
  void updateAll();
  void updateVlanToSbdMap(Bridging::VlanId vlan, Bridging::VlanId sbdVlan);
  void deleteVlanToSbdMap(Bridging::VlanId vlan);

  Vesk::Follow vrfs_ = follow<&VxlanSm::handleVrf>(in.mcastIntfRoot, MulticastIntfsColl::vrfSmAttr,
                                                   mcastIntfVrfSmAttr);
  Vesk::PathWatch firstVrf_ = watchPath<&VxlanSm::handleMulticastIntf>(
      this, intfVrfIndexAttr, Routing::Multicast::IntfVrfIndex::firstVrfAttr);
  Vesk::Watch proxy_ =
      watch<&VxlanSm::handleIgmpProxyVlan>(in.igmpProxyStatus, IgmpProxyStatus::igmpProxyVlanAttr);
  Vesk::Watch vti_ =
      watch<&VxlanSm::handleVtiStatus>(in.vtiStatusDir, Vxlan::VtiStatusDir::vtiStatusAttr);
  Vesk::PathWatch sbdVlan_ = watchPathQuietly<&VxlanSm::handleVrf>(
      this, vtiStatusAttr, Vxlan::VtiStatus::vrfToSBDVlanAttr);
  Vesk::PathWatch operStatus_ = watchPathQuietly<&VxlanSm::handleVxlanIntf>(
      this, vtiStatusAttr, Vxlan::VtiStatus::operStatusAttr);
};

}  // namespace Irb::Multicast
