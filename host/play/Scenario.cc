#include "host/play/Scenario.h"

#include <algorithm>
#include <array>
#include <filesystem>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "host/InputError.h"
#include "host/play/ExplainStep.h"
#include "host/play/YamlFile.h"
#include "platform/Toggles.h"

namespace Host {
namespace {

constexpr std::array<std::string_view, 15> stepNames{
    "write",   "start",  "crash", "advance", "run",         "expect", "equal",  "record",
    "changes", "writes", "logs",  "corrupt", "corruptions", "show",   "explain"};

/// A path below wherever it is put.
bool staysWithin(const std::filesystem::path& path) {
  return path.is_relative() &&
         std::none_of(path.begin(), path.end(), [](const auto& part) { return part == ".."; });
}

class ScenarioReader {
 public:
  explicit ScenarioReader(const std::string& name)
      : file_(name), patch_(file_, Use::write), pattern_(file_, Use::match) {}

  Scenario read() {
    scenario_.file = file_.name();
    bool hasSteps = false;
    file_.forEachPair(file_.root(), "a scenario",
                      [&](const std::string& key, const YAML::Node& at, const YAML::Node& value) {
                        if (key == "steps") {
                          hasSteps = true;
                          file_.forEachItem(value, "steps", [&](const YAML::Node& node) {
                            scenario_.steps.push_back(step(node));
                          });
                        } else {
                          setting(key, at, value);
                        }
                      });
    if (!hasSteps) file_.fail(file_.root(), "a scenario needs steps");
    if (scenario_.title.empty()) file_.fail(file_.root(), "a scenario needs a title");
    return std::move(scenario_);
  }

 private:
  void setting(const std::string& key, const YAML::Node& at, const YAML::Node& value) {
    if (key == "title") {
      scenario_.title = file_.text(value, "title");
    } else if (key == "toggles") {
      file_.forEachPair(value, "toggles",
                        [&](const std::string& name, const YAML::Node& place,
                            const YAML::Node& state) { toggle(name, place, state); });
    } else if (key == "environment") {
      file_.forEachPair(
          value, "environment",
          [&](const std::string& name, const YAML::Node& place, const YAML::Node& text) {
            if (name.empty() || name.find('=') != std::string::npos)
              file_.fail(place, fmt::format("no variable is called '{}'", name));
            scenario_.environment.emplace_back(name, std::nullopt);
            if (text.IsNull()) return;
            scenario_.environment.back().second = file_.text(text, name);
            if (name == "FLEETLOGDIR" && !staysWithin(file_.text(text, name)))
              file_.fail(text, fmt::format("FLEETLOGDIR is a place below the scenario's own trace "
                                           "directory, not '{}'",
                                           file_.text(text, name)));
          });
    } else if (key == "settle") {
      const std::string text = file_.text(value, "settle");
      if (text != "auto" && text != "manual")
        file_.fail(value, fmt::format("settle is auto or manual, not '{}'", text));
      scenario_.settlesByItself = text == "auto";
    } else if (key == "slice") {
      scenario_.slice = file_.number(value, "slice");
    } else if (key == "aborts") {
      scenario_.aborts = file_.text(value, "aborts");
    } else if (key == "oracles") {
      file_.forEachPair(
          value, "oracles",
          [&](const std::string& name, const YAML::Node& place, const YAML::Node& reason) {
            if (name != "review" && name != "restart" && name != "leftovers" && name != "crashes")
              file_.fail(place, fmt::format("no closing oracle is called '{}'; there are review, "
                                            "restart, leftovers, crashes",
                                            name));
            (void)file_.text(reason, "the reason");
            scenario_.oraclesOff.insert(name);
          });
    } else {
      file_.fail(at, fmt::format("unknown key '{}' of a scenario", key));
    }
  }

  void toggle(const std::string& name, const YAML::Node& place, const YAML::Node& state) {
    const auto& known = Multicast::Vpn::allToggles;
    const auto it =
        std::find_if(known.begin(), known.end(), [&](const auto* t) { return t->name() == name; });
    if (it == known.end()) {
      std::vector<std::string_view> names;
      for (const auto* toggle : known)
        names.push_back(toggle->name());
      file_.fail(place, fmt::format("no toggle is called '{}'; there are {}", name,
                                    fmt::join(names, ", ")));
    }
    std::string text = file_.text(state, name);
    // A toggle file may hold a number, of which the lowest bit counts.
    if (text != "true" && text != "false")
      text = fmt::to_string(
          file_.number(state, fmt::format("toggle {}, if not true or false,", name)));
    scenario_.toggles.push_back({(*it)->file(), name, text});
  }

  Step step(const YAML::Node& node) {
    Step step;
    step.line = YamlFile::lineOf(node);
    bool found = false;
    file_.forEachPair(
        node, "a step", [&](const std::string& key, const YAML::Node& at, const YAML::Node& value) {
          if (key == "note") {
            step.note = file_.text(value, "note");
            return;
          }
          const auto name = std::find(stepNames.begin(), stepNames.end(), key);
          if (name == stepNames.end())
            file_.fail(at, fmt::format("unknown step '{}'; there are {}", key,
                                       fmt::join(stepNames, ", ")));
          if (found) file_.fail(at, fmt::format("a step is one thing; '{}' is a second one", key));
          found = true;
          step.kind = static_cast<StepKind>(name - stepNames.begin());
          body(step, at, value);
        });
    if (!found) file_.fail(node, "a step that does nothing");
    return step;
  }

  void body(Step& step, const YAML::Node& at, const YAML::Node& value) {
    switch (step.kind) {
      case StepKind::write:
        return statements(step, value, patch_);
      case StepKind::expect:
      case StepKind::equal:
        return statements(step, value, pattern_);
      case StepKind::start:
        if (isRunning_) file_.fail(at, "the agent runs already");
        isRunning_ = true;
        return nothing(value);
      case StepKind::crash:
        if (!isRunning_) file_.fail(at, "no agent runs");
        isRunning_ = false;
        return nothing(value);
      case StepKind::advance:
        step.seconds = file_.seconds(value, "advance");
        return;
      case StepKind::run:
        if (file_.text(value, "run") != "idle") step.slices = file_.number(value, "run");
        return;
      case StepKind::record:
      case StepKind::show:
        file_.forEachItem(value, std::string(stepName(step.kind)), [&](const YAML::Node& item) {
          step.addresses.push_back(pattern_.address(item));
        });
        return;
      case StepKind::explain:
        return explain(step, value);
      case StepKind::changes:
        return changes(step, value);
      case StepKind::writes:
        file_.forEachPair(value, "writes",
                          [&](const std::string&, const YAML::Node& key, const YAML::Node& count) {
                            step.counts.emplace_back(pattern_.address(key),
                                                     file_.number(count, "a count of writes"));
                          });
        return;
      case StepKind::logs:
        return logs(step, value);
      case StepKind::corrupt:
        return corrupt(step, value);
      case StepKind::corruptions:
        return corruptions(step, value);
    }
  }

  void nothing(const YAML::Node& value) {
    if (!value.IsNull() && !(value.IsMap() && value.size() == 0))
      file_.fail(value, "this step takes nothing");
  }

  void statements(Step& step, const YAML::Node& value, const ContentReader& reader) {
    file_.forEachPair(value, std::string(stepName(step.kind)),
                      [&](const std::string&, const YAML::Node& key, const YAML::Node& content) {
                        Address address = reader.address(key);
                        Content said = reader.at(address, content);
                        step.statements.push_back({std::move(address), std::move(said)});
                      });
  }

  void changes(Step& step, const YAML::Node& value) {
    YAML::Node list = value;
    if (value.IsMap()) {
      if (value.size() != 1)
        file_.fail(value, "changes take a list, or one of some and any with a list");
      const std::string order = file_.text(value.begin()->first, "a key");
      if (order != "some" && order != "any")
        file_.fail(value.begin()->first, fmt::format("unknown key '{}' of changes", order));
      step.order = order == "some" ? ChangeOrder::some : ChangeOrder::anyOrder;
      list.reset(value.begin()->second);
    }
    file_.forEachItem(list, "changes",
                      [&](const YAML::Node& item) { step.lines.push_back(line(item)); });
  }

  /// A noted change in the one spelling that notes have.
  std::string line(const YAML::Node& node) {
    const std::string text = file_.text(node, "a change");
    // A text with quotes of its own may hold blanks, so the end of the address is outside of
    // brackets and quotes.
    std::size_t end = 0;
    int depth = 0;
    for (bool quotes = false; end < text.size(); ++end) {
      const char c = text[end];
      if (c == '"') quotes = !quotes;
      if (quotes) continue;
      if (c == '[') ++depth;
      if (c == ']') --depth;
      if (c == ' ' && depth <= 0) break;
    }
    const std::string what = end < text.size() ? text.substr(end + 1) : std::string();
    try {
      const Address address = Address::parse(text.substr(0, end));
      if (what == "added" || what == "removed") return fmt::format("{} {}", address.text(), what);
      if (what.starts_with("= ") || what == "=") {
        const std::string value = what.size() > 2 ? what.substr(2) : std::string();
        if (const auto* type = address.valueType())
          return fmt::format("{} = {}", address.text(),
                             type->text(rowBytesOfText(*type, value), false));
        if (address.entityType() != nullptr) return fmt::format("{} = {}", address.text(), value);
      }
    } catch (const AddressError& error) {
      file_.fail(node, error.what());
    }
    file_.fail(
        node, fmt::format("'{}' is not a change: ADDRESS = value, ADDRESS added or ADDRESS removed",
                          text));
  }

  /// A vlan and a group, as a list of two; or a mapping that says what is asked about, and may have
  /// the words of the answer.
  void explain(Step& step, const YAML::Node& value) {
    if (!value.IsMap()) return ask(step, "group", value);
    bool asks = false;
    file_.forEachPair(value, "explain",
                      [&](const std::string& key, const YAML::Node& at, const YAML::Node& what) {
                        if (isAskedAbout(key)) {
                          asks = true;
                          ask(step, key, what);
                        } else if (key == "says") {
                          file_.forEachItem(what, "says", [&](const YAML::Node& words) {
                            step.says.push_back(file_.text(words, "says"));
                          });
                        } else {
                          file_.fail(at, fmt::format("unknown key '{}' of explain", key));
                        }
                      });
    if (!asks)
      file_.fail(value,
                 "explain needs a group: [vlan, address], a tunnel: endpoint, a port: [interface, "
                 "vlan] or a vni: number");
  }

  void ask(Step& step, const std::string& kind, const YAML::Node& value) {
    std::string text;
    if (value.IsScalar()) text = file_.text(value, "explain");
    if (!value.IsScalar())
      file_.forEachItem(value, "explain", [&](const YAML::Node& item) {
        text += (text.empty() ? "" : ",") + file_.text(item, "explain");
      });
    try {
      step.explained = questionOf(kind, text);
    } catch (const InputError& error) {
      file_.fail(value, error.message());
    }
  }

  bool any(Step& step, const YAML::Node& value) const {
    step.takesAll = value.IsScalar() && value.Scalar() == "any";
    return step.takesAll;
  }

  void logs(Step& step, const YAML::Node& value) {
    if (any(step, value)) return;
    file_.forEachItem(value, "logs", [&](const YAML::Node& item) {
      LogPattern log;
      file_.forEachPair(item, "a log message",
                        [&](const std::string& key, const YAML::Node& at, const YAML::Node& what) {
                          if (key == "name") {
                            log.name = file_.text(what, "name");
                          } else if (key == "args") {
                            log.args.emplace();
                            file_.forEachItem(what, "args", [&](const YAML::Node& arg) {
                              log.args->push_back(file_.text(arg, "an argument"));
                            });
                          } else {
                            file_.fail(at, fmt::format("unknown key '{}' of a log message", key));
                          }
                        });
      if (log.name.empty()) file_.fail(item, "a log message needs its name");
      step.logs.push_back(std::move(log));
    });
  }

  void corrupt(Step& step, const YAML::Node& value) {
    Address address = pattern_.address(value);
    const bool isEntry =
        !address.steps.empty() && address.steps.back().key && address.members.empty();
    if (!isEntry || !address.shared || address.steps.back().field->owns())
      file_.fail(value, "only an entry of a map of a shared table can be corrupt");
    step.addresses.push_back(std::move(address));
  }

  void corruptions(Step& step, const YAML::Node& value) {
    if (any(step, value)) return;
    file_.forEachItem(value, "corruptions", [&](const YAML::Node& item) {
      CorruptionPattern pattern;
      file_.forEachPair(
          item, "a corruption",
          [&](const std::string& key, const YAML::Node& at, const YAML::Node& what) {
            if (key == "table") {
              pattern.table = file_.text(what, "table");
              const auto info = pathInfo(pattern.table);
              if (!info || !info->shared)
                file_.fail(what, fmt::format("no shared table stands at '{}'", pattern.table));
            } else if (key == "text") {
              pattern.text = file_.text(what, "text");
            } else {
              file_.fail(at, fmt::format("unknown key '{}' of a corruption", key));
            }
          });
      if (pattern.table.empty()) file_.fail(item, "a corruption needs its table");
      step.corruptions.push_back(std::move(pattern));
    });
  }

  YamlFile file_;
  ContentReader patch_;
  ContentReader pattern_;
  Scenario scenario_;
  bool isRunning_ = false;
};

}  // namespace

std::string_view stepName(StepKind kind) {
  return stepNames[static_cast<std::size_t>(kind)];
}

Scenario readScenario(const std::string& file) {
  return ScenarioReader(file).read();
}

}  // namespace Host
