// The shared tables of the multicast tunnel service: what clients ask for, what each endpoint got,
// and the tunnels.
// Owns: the directories of request tables. Mounts the tables when it is made, and unmounts them
// with its end. Reads and writes no row. Caveat: the tables keep their rows over a stop and a start
// of the logic; its machine has to go before it does.
#pragma once

#include "records/Tunnels.h"
#include "runtime/StateDatabase.h"

namespace Multicast::Tunnel {

class McastTunnelRoot final : public Vesk::Entity {
  VESK_RECORD(Multicast::Tunnel::McastTunnelRoot)
  struct Inputs {
    Ombra::Ptr<Halden::EntityManager> entityManager;
    bool operator==(const Inputs&) const = default;
  };
  explicit McastTunnelRoot(Inputs inputs) : in(std::move(inputs)) { doBriskelMount(); }
  const Inputs in;

  VESK_INSTANCE(IrVxlanIpv4TunnelRequestDir, irVxlanIpv4TunnelRequestDir)
  VESK_INSTANCE(PimVxlanTunnelRequestDir, pimVxlanTunnelRequestDir)
  VESK_REF(IrVxlanIpv4TunnelTable, irVxlanIpv4TunnelTable)
  VESK_REF(PimVxlanTunnelTable, pimVxlanTunnelTable)
  VESK_REF(McastTunnelStatus, tunnelStatus)

 private:
  void doBriskelMount();
  void doBriskelUnmount();
  void lastUserGone() override { doBriskelUnmount(); }
};

}  // namespace Multicast::Tunnel
