#include "runtime/Trace.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <utility>

#include <fmt/format.h>

#include "runtime/Clock.h"

namespace Vesk {
namespace {

constexpr int highestLevel = 31;

struct Setting {
  std::string pattern;
  std::uint32_t levels = 0;

  [[nodiscard]] bool matches(std::string_view name) const {
    std::string_view text = pattern;
    if (!text.ends_with('*')) return name == text;
    return name.starts_with(text.substr(0, text.size() - 1));
  }
};

// Handles are static objects of many modules: none of these may go before the last of them.
struct TraceState {
  std::vector<TraceHandle*> handles;
  std::vector<Setting> settings;
  std::function<void(const TraceLine&)> sink;
};

TraceState& state() {
  static auto& instance = *new TraceState;
  return instance;
}

std::uint32_t levelsOf(const std::vector<Setting>& settings, std::string_view name) {
  std::uint32_t levels = 0;
  for (const auto& setting : settings) {
    if (setting.matches(name)) levels |= setting.levels;
  }
  return levels;
}

std::string_view nextPart(std::string_view& rest, char separator) {
  auto end = std::min(rest.find(separator), rest.size());
  auto part = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return part;
}

std::optional<int> toLevel(std::string_view text) {
  int level = -1;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), level);
  bool whole = error == std::errc() && end == text.data() + text.size();
  return whole && level >= 0 && level <= highestLevel ? std::optional(level) : std::nullopt;
}

// The bits of `*`, `8` or `1-4`; 0 if the text is none of these.
std::uint32_t levelBits(std::string_view text) {
  if (text == "*") return ~0U;
  auto dash = std::min(text.find('-'), text.size());
  auto first = toLevel(text.substr(0, dash));
  auto last = dash == text.size() ? first : toLevel(text.substr(dash + 1));
  if (!first || !last || *first > *last) return 0;
  return (~0U >> (highestLevel - *last)) & (~0U << *first);
}

std::string_view baseName(std::string_view path) {
  return path.substr(path.rfind('/') + 1);
}

// "void A::B::f(int) const" -> "A::B::f"
std::string_view shortFunction(std::string_view text) {
  text = text.substr(0, text.find('('));
  return text.substr(text.rfind(' ') + 1);
}

void printLine(const TraceLine& line) {
  fmt::print(stderr, "{:.6f} {} {} {}:{} {}: {}\n", line.time, line.module, line.level, line.file,
             line.line, line.function, line.text);
}

}  // namespace

TraceHelper::TraceHelper(const TraceHandle& handle, int level, const char* file, unsigned line,
                         const char* function)
    : pending_(new Pending{handle, level, file, line, function}) {}

void TraceHelper::emit() {
  auto text = pending_->stream.str();
  TraceLine line{System::currentTime(),
                 pending_->handle.name(),
                 pending_->level,
                 baseName(pending_->file),
                 pending_->line,
                 shortFunction(pending_->function),
                 text};
  const auto& sink = state().sink;
  sink ? sink(line) : printLine(line);
}

TraceHandle::TraceHandle(const char* name)
    : name_(name), levels_(levelsOf(state().settings, name)) {
  state().handles.push_back(this);
}

TraceHandle::~TraceHandle() {
  std::erase(state().handles, this);
}

std::optional<std::string> traceLevelsIs(std::string_view settings) {
  std::vector<Setting> parsed;
  for (auto rest = settings; !rest.empty();) {
    auto entry = nextPart(rest, ';');
    auto levels = entry;
    Setting setting{std::string(nextPart(levels, '/'))};
    if (setting.pattern.empty() || levels.empty()) {
      return fmt::format("trace setting \"{}\": expected NAME/LEVELS", entry);
    }
    while (!levels.empty()) {
      auto text = nextPart(levels, ',');
      auto bits = levelBits(text);
      if (bits == 0) {
        return fmt::format("trace setting \"{}\": level \"{}\" is not 0 to {}, a range or *", entry,
                           text, highestLevel);
      }
      setting.levels |= bits;
    }
    parsed.push_back(std::move(setting));
  }
  state().settings = std::move(parsed);
  for (auto* handle : state().handles) {
    handle->levels_ = levelsOf(state().settings, handle->name());
  }
  return std::nullopt;
}

std::vector<std::string> unknownTraces(std::string_view settings) {
  std::vector<std::string> unknown;
  while (!settings.empty()) {
    auto entry = nextPart(settings, ';');
    const Setting setting{std::string(nextPart(entry, '/'))};
    const auto& handles = state().handles;
    if (std::ranges::none_of(handles, [&](auto* h) { return setting.matches(h->name()); }))
      unknown.push_back(setting.pattern);
  }
  return unknown;
}

std::vector<std::string> traceHandleNames() {
  std::vector<std::string> names;
  for (const auto* handle : state().handles)
    names.emplace_back(handle->name());
  std::ranges::sort(names);
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

void traceSinkIs(std::function<void(const TraceLine&)> sink) {
  state().sink = std::move(sink);
}

}  // namespace Vesk
