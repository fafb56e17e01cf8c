#include "records/Redundancy.h"

VESK_REGISTER(Redundancy::RedundancyStatus)
