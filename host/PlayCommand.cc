#include <charconv>
#include <filesystem>
#include <system_error>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "agent/MountCatalog.h"
#include "host/Commands.h"
#include "host/InputError.h"
#include "host/play/ExplainStep.h"
#include "host/play/Scenario.h"
#include "runtime/Trace.h"

namespace Host {

RowLimit rowLimitOf(const std::string& text) {
  const auto equals = text.rfind('=');
  RowLimit limit{text.substr(0, equals), 0};
  const char* const end = text.data() + text.size();
  const char* const number = equals == std::string::npos ? end : text.data() + equals + 1;
  const auto [rest, error] = std::from_chars(number, end, limit.rows);
  if (number == end || rest != end || error != std::errc() || limit.rows == 0)
    throw InputError(fmt::format("--limit: not PATH=ROWS, with 1 row or more: '{}'", text));
  const Corvane::MountPath* const mount = Corvane::findMountPath(limit.path);
  if (mount == nullptr || mount->store() == Corvane::Store::stateDb)
    throw InputError(fmt::format("--limit: no shared table is called '{}'", limit.path));
  return limit;
}

int playCommand(const std::vector<std::string>& files, const PlayOptions& options) {
  if (const auto fault = Vesk::traceLevelsIs(options.traceLevels)) throw InputError(*fault);
  (void)Vesk::traceLevelsIs("");
  for (const std::string& name : Vesk::unknownTraces(options.traceLevels))
    throw InputError(fmt::format("--trace: no trace is called '{}'; there are {}", name,
                                 fmt::join(Vesk::traceHandleNames(), ", ")));
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
