// The role of each port and vlan towards the world outside of the overlay: which of several
// gateways forwards for a segment.
// Owns: the ports of each vlan, and the vlans of each SBD vlan. Reads: the elected designated
// forwarders, the vlans of gateways to the outside, their designated router and their neighbours,
// the SBD vlan of a vlan. Writes: ExternalForwarderStatus.intfStatus. Runs: as a pipeline
// (pipeline/Pipeline.h). Caveat: a change in any of the tables asks again for the ports of its vlan
// alone.
#pragma once

#include "pipeline/Output.h"
#include "records/BriskelInputs.h"
#include "records/ElectedDf.h"
#include "records/ExternalForwarderStatus.h"
#include "records/McastIrbStatus.h"
#include "runtime/OneToMany.h"

namespace Multicast {

class EDFSm final : public Lynthe::Pipeline {
 public:
  using Pipeline::veskCount;
  using Pipeline::veskField;
  VESK_RECORD(Multicast::EDFSm)
  using ExternalForwarderStatus = Routing::Multicast::ExternalForwarderStatus;

  struct Inputs {
    Ombra::Ptr<Routing::Multicast::ElectedDFStatusDir const> electedDfStatusDir;
    Ombra::Ptr<Routing::Multicast::PegDrStatus const> pegDrStatus;
    Ombra::Ptr<Routing::Multicast::PegVlanStatus const> pegVlanStatus;
    Ombra::Ptr<Routing::Multicast::PegNeighborStatus const> pegNeighborStatus;
    Ombra::Ptr<Irb::Multicast::McastIrbStatus const> mcastIrbStatus;
    Ombra::Ptr<ExternalForwarderStatus> externalForwarderStatus;
    Lynthe::SmControl smControl;
    bool operator==(const Inputs&) const = default;
  };
  explicit EDFSm(Inputs inputs);
  const Inputs in;

  class InputSmScanState final : public Vesk::Entity {
    VESK_RECORD(Multicast::EDFSm::InputSmScanState)
    VESK_VALUE(bool, lynthe_stream0Scan)
    VESK_VALUE(bool, lynthe_stream1Scan)
    VESK_VALUE(bool, lynthe_stream2Scan)
    VESK_VALUE(bool, fromPegNeighborStatusScan)
    VESK_VALUE(bool, electedDfStatusDirStreamScan)
    VESK_VALUE(bool, idle)
  };
  class OutputState final : public Vesk::Entity {
    VESK_RECORD(Multicast::EDFSm::OutputState)
    VESK_VALUE(bool, externalForwarderStatusIntfStatusOutputReady)
    VESK_VALUE(bool, ready)
  };

  VESK_INSTANCE(InputSmScanState, inputSmScanState)
  VESK_INSTANCE(OutputState, outputState)
  LYNTHE_OUTPUT(L2PortVlan, externalForwarderStatusIntfStatus)

  void review() override { replay(); }

 private:
  [[nodiscard]] std::optional<Routing::Multicast::ExternalForwarderIntfStatus> role(
      const L2PortVlan& portVlan) const;

  Lynthe::Output<ExternalForwarderStatus::intfStatusTag, externalForwarderStatusIntfStatusProgress>
      intfStatus_{this,
                  in.externalForwarderStatus,
                  ExternalForwarderStatus::intfStatusAttr,
                  {},
                  "into( externalForwarderStatus.intfStatus[ portVlan ] )",
                  {outputStateIs(), OutputState::externalForwarderStatusIntfStatusOutputReadyAttr}};

  Vesk::OneToMany<Bridging::VlanId, L2PortVlan> portsOfVlan_;
  Vesk::OneToMany<Bridging::VlanId, Bridging::VlanId> vlansOfSbd_;
};

}  // namespace Multicast
