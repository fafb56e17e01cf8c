#include "records/EncapTables.h"

VESK_REGISTER(Multicast::Vpn::GroupTable)
VESK_REGISTER(Multicast::Vpn::VlanGroupTable)
VESK_REGISTER(Multicast::Vpn::VlanGroupTableColl)
VESK_REGISTER(Multicast::Vpn::IngressVrfStatus)
VESK_REGISTER(Multicast::Vpn::IngressL3RouteStatus)
VESK_REGISTER(Multicast::Vpn::VrfGroupColl)
VESK_REGISTER(Multicast::Vpn::ArpEntryVrfColl)
VESK_REGISTER(Multicast::Vpn::IpTunnelMappingSmPendingGroups)
