// The SBD vlan of each vlan on which IGMP or MLD proxying meets an SVI of an overlay VRF.
// Owns: which VRFs hold the SVI of a vlan. Reads: the proxy vlans, the SVIs of the overlay VRFs,
// the SBD vlan of a VRF as VXLAN and as all encapsulations together have it, the state of "Vxlan1".
// Writes: McastIrbStatus.vlanToSbd. Runs: as a pipeline (pipeline/Pipeline.h). Caveats: a vlan
// whose SVI stands in several VRFs counts for the first of them in collection order. VXLAN and MPLS
// must not differ once a write is through: a standing difference ends the process.
#pragma once

#include "pipeline/Output.h"
#include "platform/MulticastIntfsAppRoot.h"
#include "records/BriskelInputs.h"
#include "records/GmpProxyStatus.h"
#include "records/McastIrbStatus.h"
#include "records/Vxlan.h"
#include "runtime/OneToMany.h"

namespace Irb::Multicast {

class McastIrbStatusSm final : public Lynthe::Pipeline {
 public:
  using Pipeline::veskCount;
  using Pipeline::veskField;
  VESK_RECORD(Irb::Multicast::McastIrbStatusSm)

  struct Inputs {
    Ombra::Ptr<IgmpProxyStatus const> igmpProxyStatus;
    Ombra::Ptr<GmpProxyStatus const> gmpProxyStatus;  ///< optional
    Ombra::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir;
    Ombra::Ptr<Routing::Multicast::MulticastIntfsAppRootSmColl const> mcastIntfColl;
    Ombra::Ptr<McastIrbStatus> mcastIrbStatus;
    Lynthe::SmControl smControl;
    bool operator==(const Inputs&) const = default;
  };
  explicit McastIrbStatusSm(Inputs inputs);
  const Inputs in;

  class InputSmScanState final : public Vesk::Entity {
    VESK_RECORD(Irb::Multicast::McastIrbStatusSm::InputSmScanState)
    VESK_VALUE(bool, vtiStatusOperStreamScan)
    VESK_VALUE(bool, vtiStatusStreamScan)
    VESK_VALUE(bool, gmpProxyStreamScan)
    VESK_VALUE(bool, igmpProxyStreamScan)
    VESK_VALUE(bool, mcastIntfStreamScan)
    VESK_VALUE(bool, idle)
  };
  class OutputState final : public Vesk::Entity {
    VESK_RECORD(Irb::Multicast::McastIrbStatusSm::OutputState)
    VESK_VALUE(bool, mcastIrbStatusVlanToSbdOutputReady)
    VESK_VALUE(bool, ready)
  };

  /// What the SBD vlan of a VRF follows from.
  struct SbdOfVrf {
    std::optional<Bridging::VlanId> vxlanSbd, mplsSbd;
    bool vxlanActive = false;
    [[nodiscard]] const std::optional<Bridging::VlanId>& effective() const {
      return vxlanActive ? vxlanSbd : mplsSbd;
    }
    [[nodiscard]] bool differ() const { return vxlanSbd && mplsSbd && *vxlanSbd != *mplsSbd; }
  };
  [[nodiscard]] SbdOfVrf judgeVrf(const L3::VrfName& vrf) const;
  /// The VRF that a vlan's SVI stands in, none if there is none.
  [[nodiscard]] std::optional<L3::VrfName> vrfOf(Bridging::VlanId vlan) const {
    return vrfsOfVlan_.first(vlan);
  }

  VESK_INSTANCE(InputSmScanState, inputSmScanState)
  VESK_INSTANCE(OutputState, outputState)
  LYNTHE_OUTPUT(Bridging::VlanId, mcastIrbStatusVlanToSbd)

  void review() override { replay(); }

 private:
  [[nodiscard]] std::vector<Bridging::VlanId> vlansOf(const L3::VrfName& vrf) const;
  [[nodiscard]] std::optional<VlanToSbd> vlanToSbd(Bridging::VlanId vlan);
  void checkDisputes();

  Lynthe::Output<McastIrbStatus::vlanToSbdTag, mcastIrbStatusVlanToSbdProgress> vlanToSbd_{
      this,
      in.mcastIrbStatus,
      McastIrbStatus::vlanToSbdAttr,
      {},
      "into( mcastIrbStatus.vlanToSbd[ vlanId ] )",
      {outputStateIs(), OutputState::mcastIrbStatusVlanToSbdOutputReadyAttr}};

  Vesk::OneToMany<Bridging::VlanId, L3::VrfName> vrfsOfVlan_;
  /// VRFs for which VXLAN and MPLS have been seen to differ in the write in progress.
  Vesk::KeyedMap<L3::VrfName, Vesk::NoValue> disputed_;
  Vesk::MachineAfterwards disputes_{this, Vesk::taskBody<&McastIrbStatusSm::checkDisputes>};
};

}  // namespace Irb::Multicast
