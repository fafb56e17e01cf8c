// What happened in a scenario so far and was not taken up by a step: changes, counts of writes,
// messages, corruption. Owns: the watches on recorded and counted addresses, the notes. Reads: the
// log and the corruption sinks. Runs: from whatever writes. Caveat: `attachAll` after the objects
// behind the addresses have been replaced.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/play/Report.h"
#include "host/play/Scenario.h"
#include "host/play/Watch.h"

namespace Host {

class Recorder {
 public:
  /// Counts from here on for every address of which a step of the scenario asks the count.
  Recorder(World& world, const Scenario& scenario);
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  void attachAll();
  /// The agent's own objects are gone.
  void detachAgent();
  void attachAgent();

  /// Notes from here on for these addresses too; what was noted before is forgotten.
  void record(const std::vector<Address>& addresses);
  void countsReset();

  /// `found` is given the lines that there were.
  [[nodiscard]] std::vector<Failure> takeChanges(const Step& step, std::vector<std::string>& found);
  [[nodiscard]] std::vector<Failure> takeWrites(const Step& step);
  [[nodiscard]] std::vector<Failure> takeLogs(const Step& step);
  [[nodiscard]] std::vector<Failure> takeCorruptions(const Step& step);
  /// Messages since the last call, whether or not a step takes them up.
  [[nodiscard]] std::vector<LogMessage> takeTold() { return std::exchange(told_, {}); }
  /// Messages and reports that no step has taken up.
  [[nodiscard]] std::vector<Failure> leftovers() const;
  /// The scenario's story is over: what comes now is heard no more.
  void deaf() { isDeaf_ = true; }

 private:
  struct Counter {
    std::unique_ptr<Watch> watch;
    std::size_t writes = 0;
  };
  struct Log {
    std::string name;
    std::vector<std::string> args;
  };
  void forEachWatch(const std::function<void(Watch&)>& f);

  World& world_;
  std::map<std::string, std::unique_ptr<Watch>> recorded_;
  std::map<std::string, Counter> counted_;
  std::vector<std::string> notes_;
  std::vector<Log> logs_;
  std::vector<LogMessage> told_;
  std::vector<std::pair<std::string, std::string>> corruptions_;
  bool isDeaf_ = false;
};

}  // namespace Host
