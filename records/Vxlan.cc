#include "records/Vxlan.h"

VESK_REGISTER(Vxlan::VtiStatus)
VESK_REGISTER(Vxlan::VtiStatusDir)
VESK_REGISTER(Vxlan::EnabledStatus)
VESK_REGISTER(Vxlan::VxlanConfig)
VESK_REGISTER(Vxlan::VxlanConfigDir)
VESK_REGISTER(Vxlan::RemoteVniToVlanStatus)
VESK_REGISTER(Vxlan::RemoteVniColl)
