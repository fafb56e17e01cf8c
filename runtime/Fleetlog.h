// The flight recorder: always-on traces in rings of a mapped file, there to read after any end.
// Owns: the file, one ring for each of ten levels, the table of module names.
// Reads: the coarse clock. Writes: the file's memory only, a few cache lines a record.
// Runs: from any code that records; off, it costs one test.
// Caveat: one writer thread. A child of fork calls initialize or shutdown before it records.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace Fleetlog {

/// Levels are 0 to 9. Each has a ring of its own, so that the talkative do not push out the rare.
constexpr std::size_t levelCount = 10;
/// Ring sizes in units of 1024 bytes; 0 leaves the level off.
using Sizes = std::array<unsigned, levelCount>;
constexpr std::size_t sizeUnit = 1024;
/// Bounds of one record, its header of 24 bytes included.
constexpr std::size_t minRecordBytes = 64;
constexpr std::size_t maxRecordBytes = 512;

namespace Detail {
inline std::uint32_t activeLevels = 0;
void write(std::uint16_t module, std::size_t level, std::string_view text);
}  // namespace Detail

/// A module's name in the file. Handles of one name share it; from the 256th on all are "others".
class TraceHandle {
 public:
  explicit TraceHandle(std::string_view module);
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  [[nodiscard]] bool isOn(std::size_t level) const {
    return (((levels_ & Detail::activeLevels) >> level) & 1U) != 0;
  }
  /// Bit n switches level n; all are on at first.
  void levelsIs(std::uint32_t mask) { levels_ = mask; }
  [[nodiscard]] std::uint16_t module() const { return module_; }

 private:
  std::uint32_t levels_ = (1U << levelCount) - 1;
  std::uint16_t module_;
};

/// Where files go when FLEETLOGDIR is not set; empty is the current directory.
void directoryIs(const std::filesystem::path& dir);

/// Makes the file, whole before it has its name, and starts recording; ends a recording that is on.
/// In the file name `%d` becomes the process id. `note` is put into the file's head as it is (null:
/// none). `moduleBytes` is the room for a module's name. Bit n of `quietLevels` leaves level n off.
/// `on` false makes the file but records nothing. `recordBytes` bounds one record; longer texts are
/// cut. False, with the reason on standard error, if there can be no file: the process goes on
/// without a recorder.
bool initialize(const std::string& fileName, const Sizes& sizes, const char* note,
                std::size_t noteBytes, std::size_t moduleBytes, std::uint32_t quietLevels, bool on,
                std::size_t recordBytes);

/// Marks the file as closed in order and stops recording; nothing happens when none is on.
void shutdown();

/// The file of the present recording, empty when there is none.
[[nodiscard]] const std::filesystem::path& currentFile();

/// Level 0 to 9.
inline void record(const TraceHandle& handle, std::size_t level, std::string_view text) {
  if (handle.isOn(level)) Detail::write(handle.module(), level, text);
}

/// Formats only when the level is on.
template <class First, class... Args>
inline void record(const TraceHandle& handle, std::size_t level,
                   fmt::format_string<First, Args...> format, First&& first, Args&&... args) {
  if (!handle.isOn(level)) return;
  std::array<char, maxRecordBytes> text;
  auto end = fmt::format_to_n(text.data(), text.size(), format, std::forward<First>(first),
                              std::forward<Args>(args)...);
  Detail::write(handle.module(), level,
                std::string_view(text.data(), static_cast<std::size_t>(end.out - text.data())));
}

struct Record {
  std::uint64_t sequence = 0;  // from 1, over all levels
  double time = 0;             // seconds; may lag by a few milliseconds
  std::string module;
  std::size_t level = 0;
  std::string text;
};

struct RingFile {
  std::uint32_t processId = 0;
  bool closed = false;  // by shutdown; else the writer runs still or has been killed
  std::string note;
  std::vector<Record> records;  // in order of sequence
};

/// A file that is no recording, of another layout, cut short or damaged; names path and reason.
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads a recording, also while its writer runs. Throws FileError.
[[nodiscard]] RingFile readRing(const std::filesystem::path& path);

}  // namespace Fleetlog
