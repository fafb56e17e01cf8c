#include "records/McastIrbStatus.h"

VESK_REGISTER(Irb::Multicast::McastIrbStatus)
VESK_REGISTER(Irb::Multicast::SbdVlanState)
VESK_REGISTER(Irb::Multicast::SbdToVlanStatus)
