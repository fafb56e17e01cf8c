#include "records/Pim.h"

VESK_REGISTER(Routing::Pim::SparseMode::Config)
VESK_REGISTER(Routing::Pim::SparseMode::ConfigColl)
