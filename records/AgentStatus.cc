#include "records/AgentStatus.h"

VESK_REGISTER(McastCommon::AgentStatus)
VESK_REGISTER(McastCommon::AgentRunningStatus)
