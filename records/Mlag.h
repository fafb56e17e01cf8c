// The MLAG pair as its own agent sees it.
// Written by: the MLAG agent. Read by: the machine that derives MlagVxlanState from it.
// Caveat: of the addresses by VTEP type only those of type 1, the peer's own, are read.
#pragma once

#include <string>

#include "records/Enums.h"
#include "records/Keys.h"
#include "runtime/Record.h"

namespace Mlag {

class Status : public Vesk::Entity {
  VESK_RECORD(Mlag::Status)
  VESK_VALUE(MlagState, mlagState)
  VESK_VALUE(bool, failover)

  [[nodiscard]] static std::string mountPath() { return "mlag/status"; }
};

class ProtoStatus : public Vesk::Entity {
  VESK_RECORD(Mlag::ProtoStatus)
  VESK_VALUE(std::uint32_t, mlagVersion)
  /// The peer is in its reload delay.
  VESK_VALUE(bool, portsErrdisabled)

  [[nodiscard]] static std::string mountPath() { return "mlag/proto"; }
};

class VxlanStatus : public Vesk::Entity {
  VESK_RECORD(Mlag::VxlanStatus)
  VESK_MAP(Vxlan::VtepType, Pavlin::IpAddr, vtepTypeAddr)
  VESK_MAP(Vxlan::VtepType, Pavlin::Ip6Addr, vtepTypeAddr6)

  [[nodiscard]] static std::string mountPath() { return "mlag/vxlan/status"; }
};

}  // namespace Mlag
