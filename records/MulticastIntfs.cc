#include "records/MulticastIntfs.h"

VESK_REGISTER(Routing::Multicast::MulticastIntfsForApplications)
