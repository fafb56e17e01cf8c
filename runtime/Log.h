// Structured messages to the operator.
// Owns: the list of message types, their rate limiters, the log sink. Reads: the clock.
// Writes: standard error, or the sink that is set in its place.
// Runs: from the logic, as `if (handle.okToLog(0)) { ...; handle.log(text); }`.
// Caveat: one thread; a message that the limiter holds back is lost.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Vesk {

/// The fixed texts of one message type. `%s` in the format takes the next argument.
struct LogDescriptor {
  const char* name;
  const char* format;
  const char* explanation;
  const char* recommendedAction;
};

/// The arguments of one message.
class LogString {
 public:
  /// Index from 0. Arguments that are skipped are empty.
  void strIs(std::size_t index, std::string text);
  [[nodiscard]] const std::vector<std::string>& args() const { return args_; }

 private:
  std::vector<std::string> args_;
};

/// One message type, made at module load.
class LogHandle {
 public:
  /// Lets `rate` messages through per `duration` seconds (at least one at a time); duration 0 does
  /// not suppress. Of the mask given to okToLog, the bits in `a` tell messages apart, each
  /// combination with a limit of its own, and a bit in `b` passes the limiter by.
  LogHandle(const LogDescriptor& descriptor, double duration, double rate, std::uint32_t a,
            std::uint32_t b);
  LogHandle(const LogHandle&) = delete;
  LogHandle& operator=(const LogHandle&) = delete;
  ~LogHandle();

  /// True when a message may go out now; it is then counted as sent.
  [[nodiscard]] bool okToLog(std::uint32_t mask);
  void log(const LogString& text) const;
  [[nodiscard]] const LogDescriptor& descriptor() const { return descriptor_; }

  /// Every limiter is as in a fresh process.
  static void resetAll();

 private:
  struct Bucket {
    double tokens;
    double filledAt;
  };

  const LogDescriptor& descriptor_;
  double duration_;
  double rate_;
  std::uint32_t keyMask_;
  std::uint32_t exemptMask_;
  std::map<std::uint32_t, Bucket> buckets_;
};

using LogSink = std::function<void(const LogDescriptor& message,
                                   const std::vector<std::string>& args, const std::string& text)>;

/// Where messages go from here on; an empty function is standard error, with the time and what to
/// do about it.
void logSinkIs(LogSink sink);

}  // namespace Vesk
