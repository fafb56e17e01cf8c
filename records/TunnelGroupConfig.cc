#include "records/TunnelGroupConfig.h"

VESK_REGISTER(Routing::Multicast::IpTunnelConfigEntry)
VESK_REGISTER(Routing::Multicast::VlanGroupConfigEntry)
VESK_REGISTER(Routing::Multicast::VrfGroupConfigEntry)
VESK_REGISTER(Routing::Multicast::IpTunnelGroupIntfConfig)
VESK_REGISTER(Routing::Multicast::IpTunnelGroupConfig)
