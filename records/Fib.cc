#include "records/Fib.h"

VESK_REGISTER(Routing::Multicast::Fib::VrfEnabledStatus)
VESK_REGISTER(Routing::Multicast::Fib::Hardware::RouteStatus)
VESK_REGISTER(Routing::Multicast::Fib::Hardware::VrfStatus)
VESK_REGISTER(Routing::Multicast::Fib::Hardware::Status)
