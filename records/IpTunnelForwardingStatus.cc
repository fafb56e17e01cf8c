#include "records/IpTunnelForwardingStatus.h"

VESK_REGISTER(Routing::Multicast::IpTunnelVlanForwardingStatus)
VESK_REGISTER(Routing::Multicast::IpTunnelForwardingStatus)
