#include "records/ExternalForwarderStatus.h"

VESK_REGISTER(Routing::Multicast::ExternalForwarderStatus)
