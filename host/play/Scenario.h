// A scenario as it stands in its file, read and checked: every address, key and value in it fits
// the record types. Owns: the steps. Reads: the file, the reflection of the records, the list of
// toggles. Throws: InputError. Nothing runs while a scenario is read, and nothing in a scenario
// that has been read can fail to read.
#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/Explain.h"
#include "host/play/Address.h"
#include "host/play/Content.h"
#include "records/Keys.h"

namespace Host {

struct LogPattern {
  std::string name;
  std::optional<std::vector<std::string>> args;
};

struct CorruptionPattern {
  std::string table;
  std::optional<std::string> text;
};

/// How the noted changes must answer the listed ones.
enum class ChangeOrder {
  exact,     ///< these, in this order
  some,      ///< these in this order, others between them
  anyOrder,  ///< these in any order, and no others
};

enum class StepKind {
  write,
  start,
  crash,
  advance,
  run,
  expect,
  equal,
  record,
  changes,
  writes,
  logs,
  corrupt,
  corruptions,
  show,
  explain
};
[[nodiscard]] std::string_view stepName(StepKind kind);

struct Step {
  struct Statement {
    Address address;
    Content content;
  };
  StepKind kind = StepKind::run;
  int line = 0;
  std::string note;
  std::vector<Statement> statements;                    ///< write, expect, equal
  std::vector<Address> addresses;                       ///< record, show, corrupt
  double seconds = 0;                                   ///< advance
  std::optional<std::size_t> slices;                    ///< run; none: until idle
  ChangeOrder order = ChangeOrder::exact;               ///< changes
  std::vector<std::string> lines;                       ///< changes
  std::vector<std::pair<Address, std::size_t>> counts;  ///< writes
  bool takesAll = false;                                ///< logs and corruptions: whatever there is
  std::vector<LogPattern> logs;
  std::vector<CorruptionPattern> corruptions;
  Multicast::Vpn::Question explained;  ///< explain
  std::vector<std::string> says;       ///< explain: words of the answer, in this order
};

struct Scenario {
  struct ToggleValue {
    std::string file;
    std::string name;
    std::string json;
  };
  std::string file;
  std::string title;
  std::vector<ToggleValue> toggles;
  std::vector<std::pair<std::string, std::optional<std::string>>>
      environment;  ///< without a value: not set
  bool settlesByItself = true;
  std::size_t slice = 0;
  std::optional<std::string> aborts;
  std::set<std::string> oraclesOff;
  std::vector<Step> steps;
};

/// Throws InputError.
[[nodiscard]] Scenario readScenario(const std::string& file);

}  // namespace Host
