#include "records/ProactiveArp.h"

VESK_REGISTER(Arp::ProactiveArp::ClientConfig)
