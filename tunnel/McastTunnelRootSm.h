// The multicast tunnel service: its two machines over the tables of the root.
// Owns: the machines of ingress-replication and PIM tunnels. Reads and writes nothing itself.
// Runs: once, when it is made: the tables do not come and go.
#pragma once

#include "runtime/Record.h"
#include "tunnel/IrVxlanIpv4TunnelRequestSm.h"
#include "tunnel/McastTunnelRoot.h"
#include "tunnel/PimVxlanTunnelRequestSm.h"

namespace Multicast::Tunnel {

class McastTunnelRootSm final : public Vesk::Machine {
  VESK_RECORD(Multicast::Tunnel::McastTunnelRootSm)
  struct Inputs {
    Ombra::Ptr<McastTunnelRoot> root;
    bool operator==(const Inputs&) const = default;
  };
  explicit McastTunnelRootSm(Inputs inputs) : in(std::move(inputs)) { handleInitialized(); }
  const Inputs in;

  VESK_INSTANCE(IrVxlanIpv4TunnelRequestSm, irVxlanIpv4TunnelRequestSm)
  VESK_INSTANCE(PimVxlanTunnelRequestSm, pimVxlanTunnelRequestSm)
  VESK_VALUE(bool, initialized)

 private:
  void handleInitialized();
};

[[nodiscard]] Ombra::Ptr<McastTunnelRootSm> mcastTunnelRootSmFactory(
    const Ombra::Ptr<McastTunnelRoot>& root);

}  // namespace Multicast::Tunnel
