#include "records/ElectedDf.h"

VESK_REGISTER(Routing::Multicast::ElectedDFStatusDir)
