#include "records/VrfNames.h"

VESK_REGISTER(Vrf::VrfIdMap::NameToIdMap)
