#include <filesystem>

#include <fmt/format.h>

#include "host/Commands.h"
#include "host/InputError.h"
#include "host/play/ExplainStep.h"
#include "host/play/Scenario.h"
#include "runtime/Trace.h"

namespace Host {

int playCommand(const std::vector<std::string>& files, const PlayOptions& options) {
  if (const auto fault = Vesk::traceLevelsIs(options.traceLevels)) throw InputError(*fault);
  (void)Vesk::traceLevelsIs("");
  if (options.stay && files.size() > 1) throw InputError("--stay: one file only");
  std::vector<Scenario> scenarios;
  for (const std::string& file : files) {
    scenarios.push_back(readScenario(file));
    if (options.explain.empty()) continue;
    Step asked;
    asked.kind = StepKind::explain;
    asked.explained = questionOf(options.explain);
    scenarios.back().steps.push_back(std::move(asked));
  }
  Report report(options.audience, Style::ofStandardOutput());
  std::size_t passed = 0;
  bool isUnusable = false;
  for (std::size_t i = 0; i < scenarios.size(); ++i) {
    PlayOptions own = options;
    if (own.keep && scenarios.size() > 1)
      *own.keep /=
          fmt::format("{:03}-{}", i + 1, std::filesystem::path(scenarios[i].file).stem().string());
    const Outcome outcome = runInChild(scenarios[i], own, report);
    passed += outcome == Outcome::passed ? 1 : 0;
    isUnusable = isUnusable || outcome == Outcome::unusable;
  }
  report.total(passed, scenarios.size() - passed);
  return isUnusable ? 2 : passed == scenarios.size() ? 0 : 1;
}

}  // namespace Host
