#include "records/McastEvpnStatus.h"

VESK_REGISTER(Routing::Multicast::McastEvpnStatus)
