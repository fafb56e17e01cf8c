// Which vlan is the SBD vlan of each VRF: the best of what VXLAN and MPLS claim, the lowest vlan.
// Owns: the claims of each VRF, by its id. Reads: the MPLS claims by VRF id, the VXLAN interface's
// by VRF name, and the names of the ids. Writes: GmpProxyStatus, by id and by name and each the
// other way round. Runs: as a pipeline (pipeline/Pipeline.h). Caveats: an MPLS claim for an id
// without a name ends the process. When the best vlan of a VRF moves while claims remain, the rows
// by the old vlan stay until that vlan is claimed again.
#pragma once

#include <vector>

#include "pipeline/Groups.h"
#include "pipeline/Output.h"
#include "records/BriskelInputs.h"
#include "records/GmpProxyStatus.h"
#include "records/Vxlan.h"
#include "runtime/OneToMany.h"

namespace Irb::Multicast {

class GmpProxyStatusSm final : public Lynthe::Pipeline {
 public:
  using Pipeline::veskCount;
  using Pipeline::veskField;
  VESK_RECORD(Irb::Multicast::GmpProxyStatusSm)
  using VrfId = Vrf::VrfIdMap::VrfId;
  using VlanEncap = Evpn::VlanEncap;

  struct Inputs {
    Ombra::Ptr<Routing::Multicast::MvpnIntfStatus const> mvpnIntfStatus;
    Ombra::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir;
    Ombra::Ptr<Vrf::VrfIdMap::Status const> vrfIdStatus;
    Ombra::Ptr<GmpProxyStatus> gmpProxyStatus;
    Lynthe::SmControl smControl;
    bool operator==(const Inputs&) const = default;
  };
  explicit GmpProxyStatusSm(Inputs inputs);
  const Inputs in;

  class InputSmScanState final : public Vesk::Entity {
    VESK_RECORD(Irb::Multicast::GmpProxyStatusSm::InputSmScanState)
    VESK_VALUE(bool, mvpnIntfStreamScan)
    VESK_VALUE(bool, vxlanStreamScan)
    VESK_VALUE(bool, vrfIdStreamScan)
    VESK_VALUE(bool, idle)
  };
  class OutputState final : public Vesk::Entity {
    VESK_RECORD(Irb::Multicast::GmpProxyStatusSm::OutputState)
    VESK_VALUE(bool, gmpProxyStatusVrfIdToSbdVlanOutputReady)
    VESK_VALUE(bool, gmpProxyStatusSbdVlanToVrfIdOutputReady)
    VESK_VALUE(bool, gmpProxyStatusVrfToSbdVlanOutputReady)
    VESK_VALUE(bool, gmpProxyStatusSbdVlanToVrfOutputReady)
    VESK_VALUE(bool, ready)
  };
  /// What is claimed for one VRF id.
  class GroupByCollectionValueType1 : public Vesk::Keyed<VrfId> {
    VESK_RECORD(Irb::Multicast::GmpProxyStatusSm::GroupByCollectionValueType1)
    VESK_KEY(vrfId)
    VESK_MAP(VlanEncap, bool, coll)
  };

  VESK_INSTANCE(InputSmScanState, inputSmScanState)
  VESK_INSTANCE(OutputState, outputState)
  VESK_INSTANCES(VrfId, GroupByCollectionValueType1, groupByAttr1)
  LYNTHE_OUTPUT(VrfId, gmpProxyStatusVrfIdToSbdVlan)
  LYNTHE_OUTPUT(Bridging::VlanId, gmpProxyStatusSbdVlanToVrfId)
  LYNTHE_OUTPUT(L3::VrfName, gmpProxyStatusVrfToSbdVlan)
  LYNTHE_OUTPUT(Bridging::VlanId, gmpProxyStatusSbdVlanToVrf)

 private:
  using ClaimGroups = Lynthe::Groups<groupByAttr1Tag, GroupByCollectionValueType1::collTag>;
  /// A source says, or says no longer, that the vlan is the VRF's SBD vlan.
  struct Claim {
    VrfId vrfId;
    std::optional<L3::VrfName> vrfName;
    Bridging::VlanId sbdVlan;
    Evpn::EncapType encapType;
    bool isInsert;
  };
  using Claims = std::vector<Claim>;
  using Name = Lynthe::Half<VrfId, L3::VrfName>;

  [[nodiscard]] std::optional<L3::VrfName> nameOf(VrfId vrfId) const;
  [[nodiscard]] std::optional<Bridging::VlanId> mplsVlanOf(VrfId vrfId) const;
  [[nodiscard]] std::optional<Bridging::VlanId> vxlanVlanOf(const L3::VrfName& vrf) const;
  /// What follows from a name that an id gets: the claim of that encapsulation. From one that it
  /// loses: an end to all of them.
  [[nodiscard]] Claims claimsOf(const Name& name, Evpn::EncapType encapType,
                                std::optional<Bridging::VlanId> effectiveSbdVlan) const;
  void publish(const Lynthe::Stream<Claim>& claims);

  Lynthe::Output<GmpProxyStatus::vrfIdToSbdVlanTag, gmpProxyStatusVrfIdToSbdVlanProgress>
      vrfIdToSbdVlan_{this,
                      in.gmpProxyStatus,
                      GmpProxyStatus::vrfIdToSbdVlanAttr,
                      {},
                      "into( gmpProxyStatus.vrfIdToSbdVlan[ vrfId ] )",
                      {outputStateIs(), OutputState::gmpProxyStatusVrfIdToSbdVlanOutputReadyAttr}};
  Lynthe::Output<GmpProxyStatus::sbdVlanToVrfIdTag, gmpProxyStatusSbdVlanToVrfIdProgress>
      sbdVlanToVrfId_{this,
                      in.gmpProxyStatus,
                      GmpProxyStatus::sbdVlanToVrfIdAttr,
                      {},
                      "into( gmpProxyStatus.sbdVlanToVrfId[ sbdVlan ] )",
                      {outputStateIs(), OutputState::gmpProxyStatusSbdVlanToVrfIdOutputReadyAttr}};
  Lynthe::Output<GmpProxyStatus::vrfToSbdVlanTag, gmpProxyStatusVrfToSbdVlanProgress> vrfToSbdVlan_{
      this,
      in.gmpProxyStatus,
      GmpProxyStatus::vrfToSbdVlanAttr,
      {},
      "into( gmpProxyStatus.vrfToSbdVlan[ ( *vrfName ) ] )",
      {outputStateIs(), OutputState::gmpProxyStatusVrfToSbdVlanOutputReadyAttr}};
  Lynthe::Output<GmpProxyStatus::sbdVlanToVrfTag, gmpProxyStatusSbdVlanToVrfProgress> sbdVlanToVrf_{
      this,
      in.gmpProxyStatus,
      GmpProxyStatus::sbdVlanToVrfAttr,
      {},
      "into( gmpProxyStatus.sbdVlanToVrf[ sbdVlan ] )",
      {outputStateIs(), OutputState::gmpProxyStatusSbdVlanToVrfOutputReadyAttr}};

  Vesk::OneToMany<L3::VrfName, VrfId> idsOfName_;
};

}  // namespace Irb::Multicast
