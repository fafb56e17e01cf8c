#include "platform/StagesHelper.h"

namespace Orlane {

void StagesHelper::waitForStage(const std::string& stage) {
  in.agentConfig->waitForStageIs(stage);
  handleStage(stage);
}

void StagesHelper::doStageComplete(const std::string& stage) {
  in.agentConfig->stageCompleteIs(stage);
}

void StagesHelper::handleStage(const std::string& stage) {
  if (in.progressDir->stage(stage) && in.agentConfig->waitForStageHas(stage))
    in.agent->doStage(in.name, stage);
}

}  // namespace Orlane

VESK_REGISTER(Orlane::StagesHelper)
