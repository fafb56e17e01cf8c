#include "host/play/Recorder.h"

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

#include "runtime/Corruption.h"
#include "runtime/Log.h"

namespace Host {
namespace {

/// True if everything below `inner` is below `outer` as well.
bool covers(const std::string& outer, const std::string& inner) {
  if (!inner.starts_with(outer)) return false;
  return inner.size() == outer.size() ||
         std::string_view(".[:/").find(inner[outer.size()]) != std::string_view::npos;
}

std::string joined(const std::vector<std::string>& lines) {
  if (lines.empty()) return "nothing";
  std::string text;
  for (const std::string& line : lines)
    text += "\n" + line;
  return text;
}

std::string logText(const std::string& name, const std::vector<std::string>* args) {
  std::string text = name;
  if (args == nullptr) return text;
  text += " [";
  for (std::size_t i = 0; i < args->size(); ++i)
    text += (i == 0 ? "" : ", ") + (*args)[i];
  return text + "]";
}

/// True if the wanted lines stand among the found ones in their order.
bool inOrder(const std::vector<std::string>& wanted, const std::vector<std::string>& found) {
  auto next = wanted.begin();
  for (const std::string& line : found)
    if (next != wanted.end() && *next == line) ++next;
  return next == wanted.end();
}

bool agree(const Step& step, std::vector<std::string> found) {
  std::vector<std::string> wanted = step.lines;
  if (step.order == ChangeOrder::some) return inOrder(wanted, found);
  if (step.order == ChangeOrder::anyOrder) {
    std::sort(wanted.begin(), wanted.end());
    std::sort(found.begin(), found.end());
  }
  return wanted == found;
}

}  // namespace

Recorder::Recorder(World& world, const Scenario& scenario) : world_(world) {
  for (const Step& step : scenario.steps) {
    for (const auto& [address, count] : step.counts) {
      Counter& counter = counted_[address.text()];
      if (counter.watch) continue;
      counter.watch = std::make_unique<Watch>(
          world_, address, [&counter](const Watch::Lines&) { ++counter.writes; });
      counter.watch->attach();
    }
  }
  Vesk::logSinkIs([this](const Vesk::LogDescriptor& message, const std::vector<std::string>& args,
                         const std::string& text) {
    if (isDeaf_) return;
    logs_.push_back({message.name, args});
    told_.push_back({message.name, text, message.recommendedAction});
  });
  VeskSharedMem::corruptionSinkIs([this](const std::string& table, const std::string& text) {
    if (!isDeaf_) corruptions_.emplace_back(table, text);
  });
}

Recorder::~Recorder() {
  Vesk::logSinkIs({});
  VeskSharedMem::corruptionSinkIs({});
}

void Recorder::forEachWatch(const std::function<void(Watch&)>& f) {
  for (auto& [text, watch] : recorded_)
    f(*watch);
  for (auto& [text, counter] : counted_)
    f(*counter.watch);
}

void Recorder::attachAll() {
  forEachWatch([](Watch& watch) { watch.attach(); });
}

void Recorder::detachAgent() {
  forEachWatch([](Watch& watch) {
    if (watch.address().inProcess) watch.detach();
  });
}

void Recorder::attachAgent() {
  forEachWatch([](Watch& watch) {
    if (watch.address().inProcess) watch.attach();
  });
}

void Recorder::record(const std::vector<Address>& addresses) {
  notes_.clear();
  countsReset();
  for (const Address& address : addresses) {
    const std::string text = AddressText(address).text();
    const auto isCovered = [&](const auto& entry) { return covers(entry.first, text); };
    if (std::any_of(recorded_.begin(), recorded_.end(), isCovered)) continue;
    // One change is one note, also where the addresses overlap.
    std::erase_if(recorded_, [&](const auto& entry) { return covers(text, entry.first); });
    auto watch = std::make_unique<Watch>(world_, address, [this](const Watch::Lines& lines) {
      for (std::string& line : lines())
        notes_.push_back(std::move(line));
    });
    watch->attach();
    recorded_[text] = std::move(watch);
  }
}

void Recorder::countsReset() {
  for (auto& [text, counter] : counted_)
    counter.writes = 0;
}

std::vector<Failure> Recorder::takeChanges(const Step& step, std::vector<std::string>& found) {
  found = std::exchange(notes_, {});
  if (agree(step, found)) return {};
  const char* order = step.order == ChangeOrder::exact  ? ""
                      : step.order == ChangeOrder::some ? " (some)"
                                                        : " (any order)";
  return {{fmt::format("changes{}", order), joined(step.lines), joined(found)}};
}

std::vector<Failure> Recorder::takeWrites(const Step& step) {
  std::vector<Failure> failures;
  for (const auto& [address, wanted] : step.counts) {
    std::size_t& writes = counted_.at(address.text()).writes;
    if (writes != wanted)
      failures.push_back(
          {address.text(), fmt::format("{} writes", wanted), fmt::format("{}", writes)});
    writes = 0;
  }
  return failures;
}

std::vector<Failure> Recorder::takeLogs(const Step& step) {
  const std::vector<Log> found = std::move(logs_);
  logs_.clear();
  if (step.takesAll) return {};
  const bool agrees =
      std::equal(found.begin(), found.end(), step.logs.begin(), step.logs.end(),
                 [](const Log& is, const LogPattern& wanted) {
                   return is.name == wanted.name && (!wanted.args || *wanted.args == is.args);
                 });
  if (agrees) return {};
  std::vector<std::string> wantedLines, foundLines;
  for (const LogPattern& log : step.logs)
    wantedLines.push_back(logText(log.name, log.args ? &*log.args : nullptr));
  for (const Log& log : found)
    foundLines.push_back(logText(log.name, &log.args));
  return {{"logs", joined(wantedLines), joined(foundLines)}};
}

std::vector<Failure> Recorder::takeCorruptions(const Step& step) {
  const auto found = std::move(corruptions_);
  corruptions_.clear();
  if (step.takesAll) return {};
  const bool agrees =
      std::equal(found.begin(), found.end(), step.corruptions.begin(), step.corruptions.end(),
                 [](const auto& is, const CorruptionPattern& wanted) {
                   return is.first == wanted.table && (!wanted.text || *wanted.text == is.second);
                 });
  if (agrees) return {};
  std::vector<std::string> wantedLines, foundLines;
  for (const auto& pattern : step.corruptions)
    wantedLines.push_back(fmt::format("{}: {}", pattern.table, pattern.text.value_or("any text")));
  for (const auto& [table, text] : found)
    foundLines.push_back(fmt::format("{}: {}", table, text));
  return {{"corruptions", joined(wantedLines), joined(foundLines)}};
}

std::vector<Failure> Recorder::leftovers() const {
  std::vector<Failure> failures;
  for (const Log& log : logs_)
    failures.push_back({"log message", "taken up by a step", logText(log.name, &log.args)});
  for (const auto& [table, text] : corruptions_)
    failures.push_back({table, "no corruption", text});
  return failures;
}

}  // namespace Host
