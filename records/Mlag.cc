#include "records/Mlag.h"

VESK_REGISTER(Mlag::Status)
VESK_REGISTER(Mlag::ProtoStatus)
VESK_REGISTER(Mlag::VxlanStatus)
