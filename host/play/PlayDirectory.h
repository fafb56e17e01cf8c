// The directory of one scenario's run: tables in shm/, what is kept of the state database in
// database/, toggle files in toggles/, the trace ring in trace/. Owns: the directory, its lock, and
// everything in it, unless it is kept; a kept one is known by its marker file. Throws: InputError,
// before anything in the directory has changed, if a live process is at work in it, if it belongs
// to another user, or if it holds something and has no marker. Caveat: the lock goes over to a
// forked child and lasts until both are gone.
#pragma once

#include <filesystem>
#include <optional>

#include "runtime/shm/FileDescriptor.h"

namespace Host {

class PlayDirectory {
 public:
  /// Empty of what an earlier run left, but for its outputs if this run resumes. Without `keep` it
  /// is a temporary one.
  PlayDirectory(const std::optional<std::filesystem::path>& keep, bool resume);
  ~PlayDirectory();
  PlayDirectory(const PlayDirectory&) = delete;
  PlayDirectory& operator=(const PlayDirectory&) = delete;

  [[nodiscard]] std::filesystem::path operator/(const char* part) const { return path_ / part; }

 private:
  void claim();
  void mark() const;
  void clear(bool resume) const;

  std::filesystem::path path_;
  bool isKept_;
  VeskSharedMem::FileDescriptor lock_;
};

}  // namespace Host
