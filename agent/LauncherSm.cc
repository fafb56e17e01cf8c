#include "agent/LauncherSm.h"

#include "platform/Toggles.h"
#include "runtime/Trace.h"

namespace Multicast::Vpn {
namespace {

Vesk::TraceHandle trace("LauncherSm");

/// The status value of a supervisor that is in standby mode by name only.
constexpr std::uint8_t notHeldBack = 5;

}  // namespace

LauncherSm::LauncherSm(Inputs inputs) : in(std::move(inputs)) {
  handleInitialized();
}

void LauncherSm::handleInitialized() {
  if (auto t = trace.at(8)) t << "handleInitialized";
  in.agentStatus->stateIs(McastCommon::AgentState::AgentState::idle);
  in.agentStatus->runningIs(false);
  updateState();
}

bool LauncherSm::runnable() const {
  if (in.vtiStatusDir->vtiStatusCount() != 0 &&
      (in.v4McastStatus->multicastRouting() || in.v6McastStatus->multicastRouting()))
    return true;
  if (!toggleOismMplsTunnelEnabled()) return false;
  const auto& evpn = *in.evpnStatus;
  const auto& fixed = *in.evpnStaticStatus;
  return (evpn.evpnFlagA() || fixed.evpnFlagA()) &&
         (evpn.evpnFlagB() || fixed.evpnFlagB() || evpn.evpnFlagC() || fixed.evpnFlagC());
}

void LauncherSm::updateState() {
  using enum McastCommon::AgentState::AgentState;
  const bool canRun = runnable();
  if (auto t = trace.at(8))
    t << "Setting Corvane Agent to " << (canRun ? "" : "not ") << "be runnable";
  in.agentStatus->stateIs(canRun ? run : stop);
}

void LauncherSm::handleState() {
  using enum McastCommon::AgentState::AgentState;
  const auto state = in.agentStatus->state();
  if (auto t = trace.at(8))
    t << "handleState"
      << "=> " << Vesk::textOf(state);
  if (state == stop) {
    in.corvaneAgent->shutdown();
    in.agentStatus->stateIs(idle);
  } else if (state == run) {
    in.agentStatus->runningIs(true);
    in.corvaneAgent->startup();
  } else if (state == idle) {
    in.agentStatus->runningIs(false);
  }
}

RedundancyStatusSm::RedundancyStatusSm(Inputs inputs) : in(std::move(inputs)) {
  handleRedundancyStatus();
}

void RedundancyStatusSm::handleRedundancyStatus() {
  const bool held = in.redundancyStatus->mode() == Redundancy::RedundancyMode::standby &&
                    in.redundancyStatus->status() != notHeldBack;
  standbyModeIs(held);
  if (held && toggleEvpnMulticastSSOEnabled()) handleSwitchoverStage("McastWritable");
}

void RedundancyStatusSm::handleSwitchoverStage(const std::string&) {
  if (!toggleEvpnMulticastSSOEnabled()) return;
  if (auto t = trace.at(8)) t << "handleSwitchoverStage";
  if (in.redundancyStatus->switchoverStage("McastWritable")) standbyModeIs(false);
}

void RedundancyStatusSm::standbyModeIs(bool standby) {
  if (in.corvaneAgent->isStandby() == standby) return;
  in.corvaneAgent->isStandbyIs(standby);
  in.corvaneAgent->handleStandbyMode();
}

}  // namespace Multicast::Vpn

VESK_REGISTER(Multicast::Vpn::LauncherSm)
VESK_REGISTER(Multicast::Vpn::RedundancyStatusSm)
