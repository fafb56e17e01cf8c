// Which underlay groups this switch of an MLAG pair joins: all, none, or those of its parity.
// Owns: a machine per VXLAN interface, of which only "Vxlan1" counts. Reads: the MLAG role and
// failover, the version and reload delay of its protocol, the VTEP addresses of both peers. Writes:
// MlagVxlanState, each family on its own. Runs: in reactors only. Caveat: the parity keeps its last
// value while it does not decide; it is written before the state that makes it count.
#pragma once

#include "records/Mlag.h"
#include "records/MlagVxlanState.h"
#include "records/Vxlan.h"
#include "runtime/Record.h"

namespace Routing::Pim {

class MlagVxlanStateSm final : public Vesk::Machine {
  VESK_RECORD(Routing::Pim::MlagVxlanStateSm)
  struct Inputs {
    Ombra::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir;
    Ombra::Ptr<Mlag::Status const> mlagStatus;
    Ombra::Ptr<Mlag::ProtoStatus const> mlagProtoStatus;
    Ombra::Ptr<Mlag::VxlanStatus const> mlagVxlanStatus;
    Ombra::Ptr<Multicast::MlagVxlanState> mlagVxlanState;
    bool operator==(const Inputs&) const = default;
  };
  explicit MlagVxlanStateSm(Inputs inputs);
  const Inputs in;

  /// The first version of the MLAG protocol whose reload delay signal is believed.
  static constexpr std::uint32_t mlagVersionReloadDelayChange = 11;

  class NestedSm_VtiStatus final : public Vesk::Machine {
    VESK_RECORD(Routing::Pim::MlagVxlanStateSm::NestedSm_VtiStatus)
    struct Inputs {
      MlagVxlanStateSm* parent;
      Ombra::Ptr<Vxlan::VtiStatus const> row;
      bool operator==(const Inputs&) const = default;
    };
    explicit NestedSm_VtiStatus(Inputs inputs) : in(std::move(inputs)) { handleLocalVtepAddr(); }
    const Inputs in;
    void handleDel() { handleLocalVtepAddr(); }

   private:
    void handleLocalVtepAddr() {
      if (in.row->intfId() == Pavlin::vxlan1IntfId()) in.parent->updateAll();
    }
    Vesk::Watch local_ = watch<&NestedSm_VtiStatus::handleLocalVtepAddr>(
        in.row, Vxlan::VtiStatus::localVtepAddrAttr);
    Vesk::Watch local6_ = watch<&NestedSm_VtiStatus::handleLocalVtepAddr>(
        in.row, Vxlan::VtiStatus::localVtepAddr6Attr);
  };

  VESK_INSTANCES(Pavlin::IntfId, NestedSm_VtiStatus, vtiStatus)

  void review() override { updateAll(); }

 private:
  struct Verdict;
  void updateAll();
  void updatePeerLocalVtepAddr();
  void updateJoinAndParity(Pavlin::AddressFamily af);
  [[nodiscard]] Verdict judge(Pavlin::AddressFamily af) const;
  void handleVtepTypeAddr(Vxlan::VtepType vtepType);

  using Self = MlagVxlanStateSm;
  Vesk::Follow vtis_ = follow(in.vtiStatusDir, Vxlan::VtiStatusDir::vtiStatusAttr, vtiStatusAttr);
  Vesk::Watch state_ = watch<&Self::updateAll>(in.mlagStatus, Mlag::Status::mlagStateAttr);
  Vesk::Watch failover_ = watch<&Self::updateAll>(in.mlagStatus, Mlag::Status::failoverAttr);
  Vesk::Watch version_ =
      watch<&Self::updateAll>(in.mlagProtoStatus, Mlag::ProtoStatus::mlagVersionAttr);
  Vesk::Watch errdisabled_ =
      watch<&Self::updateAll>(in.mlagProtoStatus, Mlag::ProtoStatus::portsErrdisabledAttr);
  Vesk::Watch peer_ =
      watch<&Self::handleVtepTypeAddr>(in.mlagVxlanStatus, Mlag::VxlanStatus::vtepTypeAddrAttr);
  Vesk::Watch peer6_ =
      watch<&Self::handleVtepTypeAddr>(in.mlagVxlanStatus, Mlag::VxlanStatus::vtepTypeAddr6Attr);
};

}  // namespace Routing::Pim
