#include "runtime/Log.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include <fmt/format.h>

#include "runtime/Clock.h"

namespace Vesk {
namespace {

struct LogState {
  std::vector<LogHandle*> handles;
  LogSink sink;
};

LogState& state() {
  static auto& instance = *new LogState;
  return instance;
}

std::string formatted(std::string_view format, const std::vector<std::string>& args) {
  std::string text;
  auto next = args.begin();
  while (!format.empty()) {
    auto at = std::min(format.find('%'), format.size());
    text += format.substr(0, at);
    format.remove_prefix(at);
    if (format.starts_with("%s")) {
      if (next != args.end()) text += *next++;
      format.remove_prefix(2);
    } else if (!format.empty()) {
      text += '%';
      format.remove_prefix(format.starts_with("%%") ? 2 : 1);
    }
  }
  return text;
}

}  // namespace

void LogString::strIs(std::size_t index, std::string text) {
  if (index >= args_.size()) args_.resize(index + 1);
  args_[index] = std::move(text);
}

LogHandle::LogHandle(const LogDescriptor& descriptor, double duration, double rate, std::uint32_t a,
                     std::uint32_t b)
    : descriptor_(descriptor), duration_(duration), rate_(rate), keyMask_(a), exemptMask_(b) {
  state().handles.push_back(this);
}

LogHandle::~LogHandle() {
  std::erase(state().handles, this);
}

bool LogHandle::okToLog(std::uint32_t mask) {
  if (duration_ <= 0 || (mask & exemptMask_) != 0) return true;
  const double full = std::max(1.0, rate_);
  const double now = System::currentTime();
  auto& bucket = buckets_.try_emplace(mask & keyMask_, Bucket{full, now}).first->second;
  bucket.tokens = std::min(full, bucket.tokens + (now - bucket.filledAt) * rate_ / duration_);
  bucket.filledAt = now;
  // A whole duration may add up to a hair less than one token.
  constexpr double oneToken = 1 - 1e-9;
  if (bucket.tokens < oneToken) return false;
  bucket.tokens = std::max(0.0, bucket.tokens - 1);
  return true;
}

void LogHandle::log(const LogString& text) const {
  auto message = formatted(descriptor_.format, text.args());
  if (const auto& sink = state().sink) {
    sink(descriptor_, text.args(), message);
  } else {
    fmt::print(stderr, "{:.6f} %{}: {}\n    {}\n", System::currentTime(), descriptor_.name, message,
               descriptor_.recommendedAction);
  }
}

void LogHandle::resetAll() {
  for (auto* handle : state().handles)
    handle->buckets_.clear();
}

void logSinkIs(LogSink sink) {
  state().sink = std::move(sink);
}

}  // namespace Vesk
