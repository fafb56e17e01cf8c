// Feature switches that an installation sets before the process starts.
// Owns: the kept answer of each toggle. Reads: JSON files in the toggle directory.
// Writes: nothing. Runs: on first use of each toggle.
// Caveat: a toggle never changes while the process lives; whoever edits a file restarts the agent.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <stdexcept>
#include <string>

namespace Orlane {

/// A configuration file that cannot be taken; the text names file, key and value.
class ConfigError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The directory of the toggle files. Until it is named, every toggle has its default.
void toggleDirIs(const std::filesystem::path& dir);

/// Reads the named toggle from the named file: a bool, or an integer of which the lowest bit
/// counts. Without the file, or without the name in it, the default. Throws ConfigError when the
/// file is not a readable JSON object or the value is of another kind.
[[nodiscard]] bool getToggleState(const std::string& name, const std::string& file,
                                  bool defaultState);

/// One feature switch, read on first use.
class Toggle {
 public:
  constexpr Toggle(const char* name, const char* file, bool defaultState)
      : name_(name), file_(file), default_(defaultState) {}

  [[nodiscard]] bool enabled() const {
    if (readIn_ != generation_) [[unlikely]]
      read();
    return enabled_;
  }
  [[nodiscard]] const char* name() const { return name_; }
  [[nodiscard]] const char* file() const { return file_; }

 private:
  friend void forgetToggles();
  void read() const;

  inline static std::uint32_t generation_ = 1;
  const char* name_;
  const char* file_;
  bool default_;
  mutable bool enabled_ = false;
  mutable std::uint32_t readIn_ = 0;
};

/// Checks the files that the known toggles live in, so that a slip shows at start and not on first
/// use. A name in one of these files that no known toggle has is an error. Throws ConfigError.
void validateToggleFiles(const std::filesystem::path& dir, std::span<const Toggle* const> known);

/// For tests: the next use of each toggle reads its file again.
void forgetToggles();

}  // namespace Orlane
