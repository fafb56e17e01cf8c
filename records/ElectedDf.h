// The elected designated forwarder of each Ethernet segment and vlan (RFC 7432).
// Written by: the election pipeline. Read by: the external forwarder pipeline. In-process.
// The key is the segment's port and the vlan.
#pragma once

#include "records/Keys.h"
#include "records/Rows.h"
#include "runtime/Record.h"

namespace Routing::Multicast {

class ElectedDFStatusDir : public Vesk::Entity {
  VESK_RECORD(Routing::Multicast::ElectedDFStatusDir)
  VESK_ROWS(::Multicast::L2PortVlan, ElectedDFStatus, electedDfStatus)
};

}  // namespace Routing::Multicast
