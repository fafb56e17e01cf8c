#include "records/Evpn.h"

VESK_REGISTER(Evpn::EthernetSegmentStatus)
VESK_REGISTER(Evpn::EvpnStatus)
VESK_REGISTER(Irb::Multicast::EvpnStaticStatus)
VESK_REGISTER(Irb::Multicast::EvpnStaticConfig)
VESK_REGISTER(Routing::Multicast::Evpn::Config)
