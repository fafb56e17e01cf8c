#include "records/ReadyStatus.h"

VESK_REGISTER(Multicast::Vpn::EncapReadyStatus)
VESK_REGISTER(Multicast::Vpn::EncapReadyStatusColl)
VESK_REGISTER(Multicast::Vpn::DecapReadyStatus)
VESK_REGISTER(Multicast::Vpn::DecapReadyStatusColl)
