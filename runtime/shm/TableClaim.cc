#include "runtime/shm/TableClaim.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <fmt/format.h>

#include "runtime/shm/TableLayout.h"

namespace VeskSharedMem {
namespace {

// One that is about to die may hold the lock a little longer.
constexpr int kAttempts = 50;
constexpr long kPauseNs = 2'000'000;

std::string lockOf(const std::string& path) {
  return path + ".lock";
}

// The lock belongs to the open file and not to the process, so that two writers within one process
// exclude each other too.
struct flock wholeFile() {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return lock;
}

// What stands in the file, 0 if that is the id of no living process.
uint32_t livingHolder(int fd) {
  std::array<char, 16> text{};
  const ssize_t size = pread(fd, text.data(), text.size(), 0);
  uint32_t pid = 0;
  if (size > 0) std::from_chars(text.data(), text.data() + size, pid);
  const bool lives = pid != 0 && (kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM);
  return lives ? pid : 0;
}

}  // namespace

TableClaim::TableClaim(const std::string& path) : file_(lockOf(path)) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    lock_ = openTableFile(file_, O_RDWR | O_CREAT, 0600);
    if (!lock_.isOpen()) failWith(path, "open " + file_, errno);
    struct flock lock = wholeFile();
    if (fcntl(lock_.get(), F_OFD_SETLK, &lock) == 0) {
      if (!isSound()) continue;  // it was taken away meanwhile
      const std::string pid = fmt::format("{:<10}\n", getpid());
      // For messages only; a full disk is no reason to go without the table.
      static_cast<void>(pwrite(lock_.get(), pid.data(), pid.size(), 0));
      return;
    }
    if (errno != EAGAIN && errno != EACCES) failWith(path, "lock " + file_, errno);
    if (const uint32_t holder = livingHolder(lock_.get()))
      throw TableError(fmt::format(
          "shared table {}: expected no other writer, found process {} holding it", path, holder));
    const timespec pause{0, kPauseNs};
    nanosleep(&pause, nullptr);
  }
  throw TableError(fmt::format("shared table {}: another process keeps {} locked", path, file_));
}

std::optional<uint32_t> TableClaim::holderOf(const std::string& path) {
  const FileDescriptor fd = openTableFile(lockOf(path), O_RDWR);
  struct flock lock = wholeFile();
  if (!fd.isOpen() || fcntl(fd.get(), F_OFD_GETLK, &lock) != 0 || lock.l_type == F_UNLCK)
    return std::nullopt;
  return livingHolder(fd.get());
}

}  // namespace VeskSharedMem
