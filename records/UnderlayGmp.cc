#include "records/UnderlayGmp.h"

VESK_REGISTER(Routing::Gmp::Briskel::Status)
