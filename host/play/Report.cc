#include "host/play/Report.h"

#include <cstdio>
#include <sstream>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include "host/play/ExplainStep.h"

namespace Host {
namespace {

void print(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

void printLine(const Json& document) {
  print(jsonText(document) + "\n");
}

Json failuresJson(const std::vector<Failure>& failures) {
  Json list = Json::array();
  for (const Failure& failure : failures)
    list.push_back(
        {{"address", failure.address}, {"expected", failure.expected}, {"found", failure.found}});
  return list;
}

/// Further lines of a text stand under its first.
std::string indented(const std::string& text, std::size_t indent) {
  std::string out;
  for (const char c : text) {
    out += c;
    if (c == '\n') out.append(indent, ' ');
  }
  return out;
}

/// A sentence on lines of a readable length, each indented like the first.
std::string wrapped(const std::string& text, std::size_t indent) {
  constexpr std::size_t lineLength = 96;
  std::istringstream words(text);
  std::string out, line;
  for (std::string word; words >> word; line += (line.empty() ? "" : " ") + word) {
    if (line.empty() || indent + line.size() + 1 + word.size() <= lineLength) continue;
    out += std::string(indent, ' ') + line + "\n";
    line.clear();
  }
  return out + std::string(indent, ' ') + line + "\n";
}

std::string summary(const Step& step) {
  switch (step.kind) {
    case StepKind::write:
    case StepKind::expect:
    case StepKind::equal: {
      std::string text;
      for (const auto& statement : step.statements)
        text += (text.empty() ? "" : ", ") + statement.address.text();
      return text.size() > 90 ? text.substr(0, 87) + "..." : text;
    }
    case StepKind::advance:
      return fmt::format("{} s", step.seconds);
    case StepKind::run:
      return step.slices ? fmt::format("{} slices", *step.slices) : "until idle";
    case StepKind::changes:
      return step.lines.empty() ? "none" : "";
    case StepKind::corrupt:
      return step.addresses.front().text();
    case StepKind::explain:
      return questionText(step.explained);
    default:
      return {};
  }
}

}  // namespace

void Report::fileBegins(const Scenario& scenario) {
  if (audience_ == Audience::programs) return;
  print(fmt::format("{}{}\n", style_.in(Ink::strong, scenario.file),
                    scenario.title.empty() ? "" : ": " + scenario.title));
}

void Report::step(const Scenario& scenario, std::size_t index, double time,
                  const std::vector<Failure>& found, const Told& told) {
  const Step& step = scenario.steps[index];
  if (audience_ == Audience::programs) {
    Json document{{"file", scenario.file},       {"step", index + 1}, {"line", step.line},
                  {"kind", stepName(step.kind)}, {"time", time},      {"ok", found.empty()}};
    if (!step.note.empty()) document["note"] = step.note;
    if (!found.empty()) document["failures"] = failuresJson(found);
    for (const Shown& one : told.shown)
      document["values"][one.address] = one.value;
    if (!told.changes.empty()) document["changes"] = told.changes;
    for (const LogMessage& log : told.logs)
      document["logs"].push_back(
          {{"name", log.name}, {"text", log.text}, {"action", log.recommendedAction}});
    printLine(document);
    return;
  }
  if (!step.note.empty()) print("\n" + wrapped(step.note, 2));
  print(fmt::format("  {:>3}  {:<9} {}\n", index + 1, stepName(step.kind),
                    style_.in(Ink::faint, summary(step))));
  for (const std::string& change : told.changes)
    print(fmt::format("       {}\n", change));
  for (const Shown& one : told.shown)
    print(fmt::format("    {}\n{}", style_.in(Ink::strong, one.address), one.table));
  for (const LogMessage& log : told.logs)
    print(fmt::format("    {}\n{}",
                      style_.in(Ink::strong, fmt::format("%{}: {}", log.name, log.text)),
                      wrapped(log.recommendedAction, 6)));
  if (found.empty()) return;
  print(style_.in(Ink::bad, fmt::format("  step {} ({}:{}) {} failed\n", index + 1, scenario.file,
                                        step.line, stepName(step.kind))));
  failures(found);
}

void Report::failures(const std::vector<Failure>& failures) {
  for (const Failure& failure : failures)
    print(fmt::format("    {}\n      expected  {}\n      found     {}\n", failure.address,
                      indented(failure.expected, 16), indented(failure.found, 16)));
}

void Report::oracle(const Scenario& scenario, const std::string& name,
                    const std::vector<Failure>& found) {
  if (audience_ == Audience::programs) {
    Json document{{"file", scenario.file}, {"closing", name}, {"ok", found.empty()}};
    if (!found.empty()) document["failures"] = failuresJson(found);
    printLine(document);
    return;
  }
  if (found.empty()) {
    answeredWell_.push_back(name);
    return;
  }
  print(style_.in(Ink::bad, fmt::format("  closing question '{}' failed\n", name)));
  failures(found);
}

void Report::oraclesEnd() {
  if (audience_ == Audience::people && !answeredWell_.empty())
    print(style_.in(Ink::faint,
                    fmt::format("  well at the end: {}\n", fmt::join(answeredWell_, ", "))));
  answeredWell_.clear();
}

void Report::progress(const std::string& text) {
  // Back to the start of the line, and what stood there goes.
  if (audience_ == Audience::people && style_.isColoured()) print("\r\x1b[K" + text);
}

void Report::stays(const std::string& directory) {
  if (audience_ == Audience::programs) return printLine(Json{{"stays", directory}});
  print(fmt::format("  the agent stays, its tables are in {}; Ctrl-C ends it\n", directory));
}

void Report::fileEnds(const Scenario& scenario, bool passed, const std::string& reason,
                      const std::string& standardError) {
  if (audience_ == Audience::programs) {
    Json document{{"file", scenario.file},
                  {"title", scenario.title},
                  {"steps", scenario.steps.size()},
                  {"ok", passed}};
    if (!reason.empty()) document["reason"] = reason;
    if (!passed && !standardError.empty()) document["stderr"] = standardError;
    printLine(document);
    return;
  }
  if (!passed && !reason.empty()) {
    print(style_.in(Ink::bad, fmt::format("  {}\n", reason)));
    std::istringstream lines(standardError);
    for (std::string line; std::getline(lines, line);)
      print(fmt::format("    | {}\n", line));
  }
  print(fmt::format("{}  {}\n",
                    passed ? style_.in(Ink::good, "passed") : style_.in(Ink::bad, "FAILED"),
                    scenario.file));
}

void Report::total(std::size_t passed, std::size_t failed) {
  if (audience_ == Audience::programs)
    return printLine(Json{{"passed", passed}, {"failed", failed}});
  print(fmt::format("{} passed, {} failed\n", passed, failed));
}

}  // namespace Host
