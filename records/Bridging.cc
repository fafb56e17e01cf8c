#include "records/Bridging.h"

VESK_REGISTER(Bridging::VlanStatus)
VESK_REGISTER(Bridging::VlanStatusDir)
VESK_REGISTER(Bridging::HwCapabilities)
VESK_REGISTER(Bridging::IgmpSnooping::Status)
VESK_REGISTER(Bridging::IgmpSnooping::Config)
