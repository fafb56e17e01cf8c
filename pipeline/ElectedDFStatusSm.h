// The elected designated forwarder of each Ethernet segment and vlan (RFC 7432, 8.5), by port.
// Owns nothing. Reads: the segments with their vlans and designated forwarders. Writes:
// ElectedDFStatusDir.electedDfStatus. Runs: as a pipeline (pipeline/Pipeline.h). Caveats: a segment
// on a tunnel has no port to forward on, and no row. Whether this switch is the forwarder is asked
// of the segment when one of the two streams speaks of it.
#pragma once

#include "pipeline/Output.h"
#include "records/ElectedDf.h"
#include "records/Evpn.h"

namespace Multicast {

class ElectedDFStatusSm final : public Lynthe::Pipeline {
 public:
  using Pipeline::veskCount;
  using Pipeline::veskField;
  VESK_RECORD(Multicast::ElectedDFStatusSm)
  using ElectedDFStatusDir = Routing::Multicast::ElectedDFStatusDir;
  using ElectedDFStatus = Routing::Multicast::ElectedDFStatus;

  struct Inputs {
    Ombra::Ptr<Evpn::EvpnStatus const> evpnStatus;
    Ombra::Ptr<ElectedDFStatusDir> electedDfStatusDir;
    Lynthe::SmControl smControl;
    bool operator==(const Inputs&) const = default;
  };
  explicit ElectedDFStatusSm(Inputs inputs);
  const Inputs in;

  class InputSmScanState final : public Vesk::Entity {
    VESK_RECORD(Multicast::ElectedDFStatusSm::InputSmScanState)
    VESK_VALUE(bool, lynthe_stream0Scan)
    VESK_VALUE(bool, lynthe_stream1Scan)
    VESK_VALUE(bool, idle)
  };
  class OutputState final : public Vesk::Entity {
    VESK_RECORD(Multicast::ElectedDFStatusSm::OutputState)
    VESK_VALUE(bool, electedDfStatusDirElectedDfStatusOutputReady)
    VESK_VALUE(bool, ready)
  };

  VESK_INSTANCE(InputSmScanState, inputSmScanState)
  VESK_INSTANCE(OutputState, outputState)
  LYNTHE_OUTPUT(L2PortVlan, electedDfStatusDirElectedDfStatus)

  void review() override { replay(); }

 private:
  [[nodiscard]] std::optional<ElectedDFStatus> electedDfStatus(const L2PortVlan& portVlan) const;

  Lynthe::Output<ElectedDFStatusDir::electedDfStatusTag, electedDfStatusDirElectedDfStatusProgress>
      electedDfStatus_{
          this,
          in.electedDfStatusDir,
          ElectedDFStatusDir::electedDfStatusAttr,
          {},
          "into( electedDfStatusDir.electedDfStatus[ portVlan ] )",
          {outputStateIs(), OutputState::electedDfStatusDirElectedDfStatusOutputReadyAttr}};
};

}  // namespace Multicast
