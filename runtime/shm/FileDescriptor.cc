#include "runtime/shm/FileDescriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include <fmt/format.h>

#include "runtime/shm/TableLayout.h"

namespace VeskSharedMem {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  if (this != &other) {
    reset();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

void FileDescriptor::reset() {
  if (fd_ >= 0) close(std::exchange(fd_, -1));
}

FileDescriptor openTableFile(const std::string& path, int flags, unsigned mode) {
  return FileDescriptor(open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW, mode));
}

bool isSameFile(int fd, const std::string& path) {
  struct stat mine {};
  struct stat named {};
  return fstat(fd, &mine) == 0 && stat(path.c_str(), &named) == 0 && mine.st_ino == named.st_ino &&
         mine.st_dev == named.st_dev;
}

void failWith(const std::string& path, std::string_view what, int error) {
  throw TableError(fmt::format("shared table {}: cannot {}: {}", path, what,
                               std::generic_category().message(error)));
}

}  // namespace VeskSharedMem
