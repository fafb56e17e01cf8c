#include "host/play/CrashLoop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/print/EntityJson.h"
#include "runtime/SharedMem.h"

namespace Host {
namespace {

/// Seconds for one story, which takes some milliseconds of them.
constexpr unsigned storyLimit = 60;
/// More differences of one cause tell nothing new.
constexpr int toldDeaths = 5;

std::string toText(const MortalStory::Result& result) {
  Json failures = Json::array();
  for (const Failure& failure : result.failures)
    failures.push_back({failure.address, failure.expected, failure.found});
  Json text{{"writes", result.writes},
            {"settled", result.settled},
            {"end", result.end},
            {"failures", std::move(failures)}};
  if (result.deadIn) text["deadIn"] = *result.deadIn;
  return jsonText(text);
}

MortalStory::Result fromText(const std::string& text) {
  const Json found = Json::parse(text);
  MortalStory::Result result;
  result.writes = found["writes"];
  result.settled = found["settled"].get<Outputs>();
  result.end = found["end"].get<Outputs>();
  for (const Json& failure : found["failures"])
    result.failures.push_back({failure[0], failure[1], failure[2]});
  if (found.contains("deadIn")) result.deadIn = found["deadIn"].get<std::size_t>();
  return result;
}

std::string readAll(int from) {
  std::string text;
  std::array<char, 65536> buffer;
  for (;;) {
    const ssize_t size = read(from, buffer.data(), buffer.size());
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(size));
  }
}

void writeAll(int to, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t size = write(to, text.data() + done, text.size() - done);
    if (size > 0) done += static_cast<std::size_t>(size);
    if (size < 0 && errno != EINTR) std::abort();
  }
}

}  // namespace

bool CrashLoop::ask(std::size_t write) {
  if (scenario_.oraclesOff.contains("crashes")) return true;
  const MortalStory::Result whole = told(scenario_.steps.size(), MortalStory::never);
  wanted_[scenario_.steps.size()] = whole.settled;
  end_ = whole.end;
  std::vector<Failure> failures = whole.failures;
  if (write > whole.writes)
    failures.push_back(
        {"writes to outputs", fmt::format("at least {}", write), fmt::format("{}", whole.writes)});
  if (!failures.empty()) {
    report_.oracle(scenario_, "crashes", failures);
    return false;
  }
  const std::size_t last = write == 0 ? whole.writes : write;
  int bad = 0;
  for (std::size_t at = std::max<std::size_t>(write, 1); at <= last && bad < toldDeaths; ++at) {
    std::string where;
    report_.progress(fmt::format("  crash at write {} of {}", at, whole.writes));
    failures = die(at, where);
    if (failures.empty()) continue;
    ++bad;
    report_.progress("");
    report_.oracle(scenario_,
                   fmt::format("crash at write {} of {}, in {}", at, whole.writes, where),
                   failures);
  }
  report_.progress("");
  if (bad == 0) report_.oracle(scenario_, fmt::format("{} crashes", last), {});
  report_.oraclesEnd();
  return bad == 0;
}

std::vector<Failure> CrashLoop::die(std::size_t write, std::string& where) {
  const MortalStory::Result result = told(scenario_.steps.size(), write);
  where = "an unknown step";
  std::vector<Failure> failures = result.failures;
  if (result.deadIn) {
    const bool isLast = *result.deadIn == scenario_.steps.size();
    where = isLast ? "the rest after the last step"
                   : fmt::format("step {} ({}:{})", *result.deadIn + 1, scenario_.file,
                                 scenario_.steps[*result.deadIn].line);
    const std::size_t steps = isLast ? *result.deadIn : *result.deadIn + 1;
    for (Failure& failure : differences(wanted(steps), result.settled))
      failures.push_back({failure.address + " (after that step)", failure.expected, failure.found});
    for (Failure& failure : differences(end_, result.end))
      failures.push_back(std::move(failure));
  } else if (failures.empty()) {
    failures.push_back({"outputs", "as many writes as before", fmt::format("{}", result.writes)});
  }
  return failures;
}

const Outputs& CrashLoop::wanted(std::size_t steps) {
  const auto known = wanted_.find(steps);
  if (known != wanted_.end()) return known->second;
  return wanted_[steps] = told(steps, MortalStory::never).settled;
}

MortalStory::Result CrashLoop::told(std::size_t steps, std::size_t deadlyWrite) const {
  int ends[2];
  if (pipe(ends) != 0) std::abort();
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    alarm(storyLimit);
    VeskSharedMem::EntityManager::directoryIs(directory_);
    auto* const story =
        new MortalStory(scenario_, steps, deadlyWrite);  // nothing ends in order here
    writeAll(ends[1], toText(story->tell()));
    _exit(0);
  }
  close(ends[1]);
  const std::string text = readAll(ends[0]);
  close(ends[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR)
    continue;
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
  if (status == 0) return fromText(text);
  MortalStory::Result broken;
  broken.failures.push_back({"process", "comes to the end of the story",
                             WIFSIGNALED(status) ? fmt::format("signal {}", WTERMSIG(status))
                                                 : fmt::format("status {}", WEXITSTATUS(status))});
  return broken;
}

}  // namespace Host
