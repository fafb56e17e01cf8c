#include "records/GmpProxyStatus.h"

VESK_REGISTER(Irb::Multicast::GmpProxyStatus)
