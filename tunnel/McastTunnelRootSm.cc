#include "tunnel/McastTunnelRootSm.h"

namespace Multicast::Tunnel {

/// A table that could not be mounted leaves its machine out.
void McastTunnelRootSm::handleInitialized() {
  McastTunnelRoot& root = *in.root;
  if (root.irVxlanIpv4TunnelRequestDir() && root.irVxlanIpv4TunnelTable() && root.tunnelStatus())
    irVxlanIpv4TunnelRequestSmIs({.requestDir = root.irVxlanIpv4TunnelRequestDir(),
                                  .tunnelTable = root.irVxlanIpv4TunnelTable(),
                                  .tunnelStatus = root.tunnelStatus()});
  if (root.pimVxlanTunnelRequestDir() && root.pimVxlanTunnelTable() && root.tunnelStatus())
    pimVxlanTunnelRequestSmIs({.requestDir = root.pimVxlanTunnelRequestDir(),
                               .tunnelTable = root.pimVxlanTunnelTable(),
                               .tunnelStatus = root.tunnelStatus()});
  initializedIs(true);
}

Ombra::Ptr<McastTunnelRootSm> mcastTunnelRootSmFactory(const Ombra::Ptr<McastTunnelRoot>& root) {
  return Ombra::make<McastTunnelRootSm>(McastTunnelRootSm::Inputs{.root = root});
}

}  // namespace Multicast::Tunnel

VESK_REGISTER(Multicast::Tunnel::McastTunnelRootSm)
