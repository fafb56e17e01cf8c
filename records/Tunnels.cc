#include "records/Tunnels.h"

VESK_REGISTER(Multicast::Tunnel::IrVxlanIpv4TunnelRequestTable)
VESK_REGISTER(Multicast::Tunnel::PimVxlanTunnelRequestTable)
VESK_REGISTER(Multicast::Tunnel::McastTunnelStatus)
VESK_REGISTER(Multicast::Tunnel::IrVxlanIpv4TunnelTable)
VESK_REGISTER(Multicast::Tunnel::PimVxlanTunnelTable)
VESK_REGISTER(Multicast::Tunnel::IrVxlanIpv4TunnelRequestDir)
VESK_REGISTER(Multicast::Tunnel::PimVxlanTunnelRequestDir)
VESK_REGISTER(Multicast::Tunnel::IrVxlanIpv4VtepStatus)
VESK_REGISTER(Multicast::Tunnel::IrVxlanIpv4TunnelLocalStatus)
