// Whether the agent's logic runs at all.
// RedundancyStatusSm holds the agent back while this supervisor is standby; LauncherSm then starts
// and stops the logic by the runnable condition. LauncherSm reads the VXLAN interfaces, the
// multicast routing agents and the EVPN flags, and publishes `agentStatus`; it runs on every change
// of these. Starting and stopping happen inside its own write of `state`.
#pragma once

#include "agent/AgentControl.h"
#include "records/AgentStatus.h"
#include "records/Evpn.h"
#include "records/Redundancy.h"
#include "records/Vxlan.h"
#include "runtime/Record.h"

namespace Multicast::Vpn {

class LauncherSm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Vpn::LauncherSm)
  struct Inputs {
    Ombra::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir;
    Ombra::Ptr<McastCommon::AgentStatus const> v4McastStatus;
    Ombra::Ptr<McastCommon::AgentStatus const> v6McastStatus;
    Ombra::Ptr<Evpn::EvpnStatus const> evpnStatus;  ///< null with both EVPN toggles off
    Ombra::Ptr<Irb::Multicast::EvpnStaticStatus const> evpnStaticStatus;  ///< the same
    Ombra::Ptr<McastCommon::AgentRunningStatus> agentStatus;
    AgentControl* corvaneAgent = nullptr;
    bool operator==(const Inputs&) const = default;
  };
  explicit LauncherSm(Inputs inputs);
  const Inputs in;

  void review() override { updateState(); }

 private:
  void handleInitialized();
  void handleState();
  void updateState();
  [[nodiscard]] bool runnable() const;

  using McastStatus = McastCommon::AgentStatus;
  using Static = Irb::Multicast::EvpnStaticStatus;
  Vesk::Watch vti_ =
      watch<&LauncherSm::updateState>(in.vtiStatusDir, Vxlan::VtiStatusDir::vtiStatusAttr);
  Vesk::Watch v4_ =
      watch<&LauncherSm::updateState>(in.v4McastStatus, McastStatus::multicastRoutingAttr);
  Vesk::Watch v6_ =
      watch<&LauncherSm::updateState>(in.v6McastStatus, McastStatus::multicastRoutingAttr);
  Vesk::Watch evpnA_ =
      watch<&LauncherSm::updateState>(in.evpnStatus, Evpn::EvpnStatus::evpnFlagAAttr);
  Vesk::Watch evpnB_ =
      watch<&LauncherSm::updateState>(in.evpnStatus, Evpn::EvpnStatus::evpnFlagBAttr);
  Vesk::Watch evpnC_ =
      watch<&LauncherSm::updateState>(in.evpnStatus, Evpn::EvpnStatus::evpnFlagCAttr);
  Vesk::Watch staticA_ =
      watch<&LauncherSm::updateState>(in.evpnStaticStatus, Static::evpnFlagAAttr);
  Vesk::Watch staticB_ =
      watch<&LauncherSm::updateState>(in.evpnStaticStatus, Static::evpnFlagBAttr);
  Vesk::Watch staticC_ =
      watch<&LauncherSm::updateState>(in.evpnStaticStatus, Static::evpnFlagCAttr);
  Vesk::Watch state_ =
      watch<&LauncherSm::handleState>(in.agentStatus, McastCommon::AgentRunningStatus::stateAttr);
};

class RedundancyStatusSm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Vpn::RedundancyStatusSm)
  struct Inputs {
    Ombra::Ptr<Redundancy::RedundancyStatus const> redundancyStatus;
    AgentControl* corvaneAgent = nullptr;
    bool operator==(const Inputs&) const = default;
  };
  explicit RedundancyStatusSm(Inputs inputs);
  const Inputs in;

 private:
  void handleRedundancyStatus();
  void handleSwitchoverStage(const std::string& stage);
  void standbyModeIs(bool standby);

  using Status = Redundancy::RedundancyStatus;
  Vesk::Watch mode_ =
      watch<&RedundancyStatusSm::handleRedundancyStatus>(in.redundancyStatus, Status::modeAttr);
  Vesk::Watch status_ =
      watch<&RedundancyStatusSm::handleRedundancyStatus>(in.redundancyStatus, Status::statusAttr);
  Vesk::Watch stage_ = watch<&RedundancyStatusSm::handleSwitchoverStage>(
      in.redundancyStatus, Status::switchoverStageAttr);
};

}  // namespace Multicast::Vpn
