#include "bench/peers/Recorder.h"

#include <algorithm>
#include <cstdio>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Peers {
namespace {

double quantile(const std::vector<double>& sorted, double share) {
  const double at = share * static_cast<double>(sorted.size() - 1);
  const auto low = static_cast<std::size_t>(at);
  const std::size_t high = std::min(low + 1, sorted.size() - 1);
  return sorted[low] + (at - static_cast<double>(low)) * (sorted[high] - sorted[low]);
}

/// Three decimals are more than any of these clocks can tell.
double rounded(double value) {
  return std::stod(fmt::format("{:.3f}", value));
}

}  // namespace

void Recorder::add(const std::string& column, const std::string& unit, double sample) {
  auto found = std::ranges::find(columns_, column, &Column::name);
  if (found == columns_.end()) found = columns_.insert(found, {column, unit, {}});
  found->samples.push_back(sample);
}

nlohmann::json Recorder::json() const {
  auto figures = nlohmann::json::array();
  for (const Column& column : columns_) {
    std::vector<double> sorted = column.samples;
    std::ranges::sort(sorted);
    figures.push_back({{"column", column.name},
                       {"unit", column.unit},
                       {"samples", sorted.size()},
                       {"lowest", rounded(sorted.front())},
                       {"quartile1", rounded(quantile(sorted, 0.25))},
                       {"median", rounded(quantile(sorted, 0.5))},
                       {"quartile3", rounded(quantile(sorted, 0.75))},
                       {"highest", rounded(sorted.back())}});
  }
  return figures;
}

nlohmann::json measured(const Topic& topic) {
  std::vector<Recorder> recorders(topic.candidates.size());
  for (std::size_t repeat = 0; repeat < topic.repeats; ++repeat) {
    for (std::size_t i = 0; i < topic.candidates.size(); ++i) {
      fmt::print(stderr, "{}, {} of {}: {}\n", topic.name, repeat + 1, topic.repeats,
                 topic.candidates[i].name);
      topic.candidates[i].measure(recorders[i]);
    }
  }
  auto candidates = nlohmann::json::array();
  for (std::size_t i = 0; i < topic.candidates.size(); ++i)
    candidates.push_back({{"name", topic.candidates[i].name},
                          {"ours", topic.candidates[i].isOurs},
                          {"figures", recorders[i].json()}});
  return {{"topic", topic.name}, {"repeats", topic.repeats}, {"candidates", candidates}};
}

}  // namespace Peers
