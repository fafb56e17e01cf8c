// Free-text traces, one handle a module, switched by level.
// Owns: the list of handles, the level settings, the trace sink. Reads: the clock.
// Writes: standard error, or the sink that is set in its place.
// Runs: from any code that traces; off, it costs one test of a bit and evaluates nothing.
// Caveat: one thread; no trace has an effect on behaviour, and the sink must not throw.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <source_location>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace Vesk {

class TraceHandle;

/// What a sink gets. The texts live for the call only.
struct TraceLine {
  double time;  // seconds, of the process's clock
  std::string_view module;
  int level;
  std::string_view file;  // without directories
  unsigned line;
  std::string_view function;  // qualified, without result and arguments
  std::string_view text;
};

/// One line in the making; it goes out when this object ends. A default one is off and holds
/// nothing.
class TraceHelper {
 public:
  TraceHelper() = default;
  TraceHelper(const TraceHandle& handle, int level, const char* file, unsigned line,
              const char* function);
  TraceHelper(TraceHelper&&) = default;
  TraceHelper& operator=(TraceHelper&&) = delete;
  ~TraceHelper() {
    if (pending_) [[unlikely]]
      emit();
  }

  explicit operator bool() const { return pending_ != nullptr; }
  /// Only on a helper that is on.
  template <class T>
  TraceHelper& operator<<(const T& value) {
    pending_->stream << value;
    return *this;
  }

 private:
  struct Pending {
    const TraceHandle& handle;
    int level;
    const char* file;
    unsigned line;
    const char* function;
    std::ostringstream stream{};
  };
  void emit();

  std::unique_ptr<Pending> pending_;
};

/// A module's switch, made at module load. Levels are 0 to 31; 8 is the entry of a function.
class TraceHandle {
 public:
  /// The name is a literal. Settings given earlier apply to a handle that is made later.
  explicit TraceHandle(const char* name);
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;
  ~TraceHandle();

  [[nodiscard]] const char* name() const { return name_; }
  [[nodiscard]] bool isOn(int level) const { return ((levels_ >> level) & 1U) != 0; }

  /// `if (auto t = handle.at(8)) t << "vlan " << vlan;`
  [[nodiscard]] TraceHelper at(int level,
                               std::source_location where = std::source_location::current()) const {
    if (!isOn(level)) [[likely]]
      return {};
    return {*this, level, where.file_name(), where.line(), where.function_name()};
  }

 private:
  friend std::optional<std::string> traceLevelsIs(std::string_view settings);
  const char* name_;
  std::uint32_t levels_ = 0;
};

/// `trace(handle, 8, [&] { return fmt::format(...); });`: the text is made only when the level is
/// on.
template <class MakeText>
inline void trace(const TraceHandle& handle, int level, MakeText&& makeText,
                  std::source_location where = std::source_location::current()) {
  if (auto line = handle.at(level, where)) line << makeText();
}

/// Replaces all settings: `NAME/LEVELS;NAME/LEVELS`, where NAME may end in `*` and LEVELS are
/// numbers, ranges or `*` between commas, as in `IpTunnelMappingSm/8,9;Irb*/1-4;*/1`. A handle has
/// the levels of all entries that match it. The empty text turns everything off. Returns what is
/// wrong with the text, and then changes nothing.
[[nodiscard]] std::optional<std::string> traceLevelsIs(std::string_view settings);

/// The names and patterns of these settings that no present handle has.
[[nodiscard]] std::vector<std::string> unknownTraces(std::string_view settings);

/// Names of the present handles, sorted, each once.
[[nodiscard]] std::vector<std::string> traceHandleNames();

/// Where lines go from here on; an empty function is standard error.
void traceSinkIs(std::function<void(const TraceLine&)> sink);

}  // namespace Vesk
