#include "vxlan/MlagVxlanStateSm.h"

#include "runtime/Trace.h"

namespace Routing::Pim {
namespace {

using Multicast::MlagPeerParity::Parity;
using Multicast::MlagUnderlayJoin::State;
using Vxlan::VtepType;

const Vesk::TraceHandle traceHandle{"MlagVxlanStateSm"};

}  // namespace

/// The state of one family, and the parity where that decides.
struct MlagVxlanStateSm::Verdict {
  State state;
  std::optional<Parity> parity = std::nullopt;
};

MlagVxlanStateSm::MlagVxlanStateSm(Inputs inputs) : in(std::move(inputs)) {
  vtis_.begin();
  updateAll();
}

void MlagVxlanStateSm::handleVtepTypeAddr(VtepType vtepType) {
  if (vtepType == VtepType::vtepType1) updateAll();
}

void MlagVxlanStateSm::updateAll() {
  updatePeerLocalVtepAddr();
  for (const auto af : Pavlin::families)
    updateJoinAndParity(af);
}

void MlagVxlanStateSm::updatePeerLocalVtepAddr() {
  const auto peer = in.mlagVxlanStatus->vtepTypeAddr(VtepType::vtepType1);
  if (peer != in.mlagVxlanState->peerLocalVtepAddr()) {
    if (auto t = traceHandle.at(7)) t << "MLAG: setting peer local vtep address: " << peer;
    in.mlagVxlanState->peerLocalVtepAddrIs(peer);
  }
  const auto peer6 = in.mlagVxlanStatus->vtepTypeAddr6(VtepType::vtepType1);
  if (peer6 != in.mlagVxlanState->peerLocalVtepAddr6()) {
    if (auto t = traceHandle.at(7)) t << "MLAG: setting peer local vtep6 address: " << peer6;
    in.mlagVxlanState->peerLocalVtepAddr6Is(peer6);
  }
}

void MlagVxlanStateSm::updateJoinAndParity(Pavlin::AddressFamily af) {
  const Verdict verdict = judge(af);
  Multicast::MlagVxlanState& state = *in.mlagVxlanState;
  if (af == Pavlin::ipv4()) {
    if (verdict.parity) state.parityIs(*verdict.parity);
    state.mlagUnderlayJoinIs(verdict.state);
  } else {
    if (verdict.parity) state.parity6Is(*verdict.parity);
    state.mlagUnderlayJoin6Is(verdict.state);
  }
}

MlagVxlanStateSm::Verdict MlagVxlanStateSm::judge(Pavlin::AddressFamily af) const {
  const auto role = in.mlagStatus->mlagState();
  if (role != Mlag::MlagState::primary && role != Mlag::MlagState::secondary) {
    if (auto t = traceHandle.at(7)) t << "Not MLAG: underlay join state not applicable";
    return {State::notApplicable};
  }
  if (in.mlagStatus->failover()) {
    if (auto t = traceHandle.at(7))
      t << "MLAG join all groups in underlay af: " << af << " Failover";
    return {State::allGroups};
  }
  if (in.mlagProtoStatus->portsErrdisabled()) {
    const std::uint32_t version = in.mlagProtoStatus->mlagVersion();
    if (version < mlagVersionReloadDelayChange) {
      if (auto t = traceHandle.at(7))
        t << "Ignoring portsErrdisabled/reload delay due to mlag version " << version;
    } else if (role == Mlag::MlagState::primary) {
      if (auto t = traceHandle.at(7))
        t << "MLAG join all groups in underlay af: " << af << " Peer in reload delay";
      return {State::allGroups};
    } else {
      if (auto t = traceHandle.at(7))
        t << "MLAG join no groups in underlay af: " << af << " This dut in reload delay";
      return {State::noGroups};
    }
  }
  const auto vti = in.vtiStatusDir->vtiStatus(Pavlin::vxlan1IntfId());
  if (!vti) {
    if (auto t = traceHandle.at(7)) t << "MLAG join no groups in underlay. No Vti Status";
    return {State::noGroups};
  }
  const auto byAddress = [&](const auto& local, const auto& peer) -> Verdict {
    if (local.isAny() || peer.isAny() || local == peer) {
      if (auto t = traceHandle.at(7))
        t << "MLAG join no groups in underlay. af " << af
          << " Ip Address requirements not met. LocalAddr: " << local << " PeerVtepAddr: " << peer;
      return {State::noGroups};
    }
    const Parity parity = local < peer ? Parity::parity0 : Parity::parity1;
    if (auto t = traceHandle.at(7))
      t << "MLAG join some groups in underlay af " << af << ". Parity: " << Vesk::textOf(parity);
    return {State::someGroups, parity};
  };
  return af == Pavlin::ipv4() ? byAddress(vti->localVtepAddr(),
                                          in.mlagVxlanStatus->vtepTypeAddr(VtepType::vtepType1))
                              : byAddress(vti->localVtepAddr6(),
                                          in.mlagVxlanStatus->vtepTypeAddr6(VtepType::vtepType1));
}

}  // namespace Routing::Pim

VESK_REGISTER(Routing::Pim::MlagVxlanStateSm)
VESK_REGISTER(Routing::Pim::MlagVxlanStateSm::NestedSm_VtiStatus)
