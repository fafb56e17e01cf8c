// Neighbours that this agent asks to be kept resolved, so that sources behind them stay reachable.
// Written by: the ingress route machine. Read by: the ARP agent.
// Caveat: the table outlives this agent; what a former run asked for is reviewed at start.
#pragma once

#include <string>

#include "records/Keys.h"
#include "records/Rows.h"
#include "runtime/Record.h"

namespace Arp::ProactiveArp {

class ClientConfig : public Vesk::Entity {
  VESK_RECORD(Arp::ProactiveArp::ClientConfig)
  VESK_SHARED_ROWS(Entry, Request, request, 2048)

  [[nodiscard]] static std::string mountPath() { return "arp/proactive/config/Corvane4"; }
};

}  // namespace Arp::ProactiveArp
