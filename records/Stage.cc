#include "records/Stage.h"

VESK_REGISTER(Stage::AgentStatus)
VESK_REGISTER(Stage::ProgressDir)
VESK_REGISTER(Stage::CompletionStatusDir)
VESK_REGISTER(Stage::AgentConfig)
