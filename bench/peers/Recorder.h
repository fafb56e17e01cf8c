// The figures of one run. Every topic is a list of candidates; each repeat measures every one of
// them in turn, so that whatever else happens on the machine hits all alike.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace Peers {

/// What a run is asked for.
struct Options {
  bool quick = false;           ///< small sizes and few repeats: only to see that all of it runs
  std::filesystem::path place;  ///< an empty directory for files

  [[nodiscard]] std::size_t sized(std::size_t full, std::size_t small) const {
    return quick ? small : full;
  }
};

/// The samples of one candidate, by column.
class Recorder {
 public:
  /// Columns keep the order in which they first appear.
  void add(const std::string& column, const std::string& unit, double sample);
  [[nodiscard]] nlohmann::json json() const;

 private:
  struct Column {
    std::string name;
    std::string unit;
    std::vector<double> samples;
  };
  std::vector<Column> columns_;
};

struct Candidate {
  std::string name;
  bool isOurs;
  std::function<void(Recorder&)> measure;  ///< one repeat
};

/// What is compared with each other.
struct Topic {
  std::string name;
  std::size_t repeats;
  std::vector<Candidate> candidates;
};

/// Measures a topic; progress goes to standard error.
[[nodiscard]] nlohmann::json measured(const Topic& topic);

/// One topic for each order of the rows.
std::vector<Topic> tableSpeed(const Options& options);
Topic tableFollowing(const Options& options);
Topic tableKills(const Options& options);
Topic notification(const Options& options);
/// One topic for each size of map.
std::vector<Topic> maps(const Options& options);
Topic tracing(const Options& options);

}  // namespace Peers
