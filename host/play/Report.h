// What the player says: to people, or as JSON to programs, one document on a line of its own.
// Writes: standard output, flushed after every step, so that a step that ends the process is in the
// report.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/play/Scenario.h"
#include "host/play/Shown.h"
#include "host/play/World.h"
#include "host/print/Style.h"

namespace Host {

/// A message of the agent's to the operator.
struct LogMessage {
  std::string name;
  std::string text;
  std::string recommendedAction;
};

/// What a step has to tell besides its outcome.
struct Told {
  std::vector<Shown> shown;
  std::vector<std::string> changes;
  std::vector<LogMessage> logs;
};

/// Who reads the report.
enum class Audience { people, programs };

class Report {
 public:
  Report(Audience audience, Style style) : audience_(audience), style_(style) {}
  [[nodiscard]] const Style& style() const { return style_; }
  void fileBegins(const Scenario& scenario);
  void step(const Scenario& scenario, std::size_t index, double time,
            const std::vector<Failure>& failures, const Told& told);
  void oracle(const Scenario& scenario, const std::string& name,
              const std::vector<Failure>& failures);
  /// All closing questions have been asked.
  void oraclesEnd();
  /// How far something has come that takes long; on a terminal only.
  void progress(const std::string& text);
  /// The agent lives on, and its tables are in this directory.
  void stays(const std::string& directory);
  /// `reason` is empty if all is well, or if the steps have told it.
  void fileEnds(const Scenario& scenario, bool passed, const std::string& reason,
                const std::string& standardError);
  void total(std::size_t passed, std::size_t failed);

 private:
  void failures(const std::vector<Failure>& failures);
  Audience audience_;
  Style style_;
  std::vector<std::string> answeredWell_;
};

}  // namespace Host
