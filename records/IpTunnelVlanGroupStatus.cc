#include "records/IpTunnelVlanGroupStatus.h"

VESK_REGISTER(Routing::Multicast::VlanToMulticastGroup)
VESK_REGISTER(Routing::Multicast::VlanToFloodGroup)
VESK_REGISTER(Routing::Multicast::IpTunnelVlanGroupStatus)
