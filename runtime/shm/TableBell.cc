#include "runtime/shm/TableBell.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/shm/FileDescriptor.h"

namespace VeskSharedMem {
namespace {

constexpr mode_t forAll = 0666;

std::string wakeOf(const std::string& path) {
  return path + ".wake";
}

bool serves(int fd) {
  struct stat status {};
  return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) &&
         status.st_size == static_cast<off_t>(sizeof(TableBell::Words));
}

}  // namespace

TableBell::TableBell(std::string file, FileDescriptor fd)
    : file_(std::move(file)),
      fd_(std::move(fd)),
      bytes_(fd_.get(), sizeof(Words), PROT_READ | PROT_WRITE) {}

bool TableBell::isSound() const {
  return !bytes_.isTorn() && serves(fd_.get()) && isSameFile(fd_.get(), file_);
}

TableBell TableBell::forWriter(const std::string& path) {
  const std::string file = wakeOf(path);
  FileDescriptor fd = openTableFile(file, O_RDWR);
  if (!fd.isOpen() || !serves(fd.get())) {
    // Whoever has the old one mapped looks at its own words; those who come find the new one.
    unlink(file.c_str());
    fd = openTableFile(file, O_RDWR | O_CREAT | O_EXCL, forAll);
    if (!fd.isOpen()) failWith(path, "create " + file, errno);
    // Allocated, since nobody expects a store there to fail for want of room.
    const int error = posix_fallocate(fd.get(), 0, sizeof(Words));
    if (error != 0) failWith(path, "make room for " + file, error);
    // The mask of this process is for its own files.
    if (fchmod(fd.get(), forAll) != 0) failWith(path, "open up " + file, errno);
  }
  TableBell bell(file, std::move(fd));
  if (bell.words() == nullptr) failWith(path, "map " + file, errno);
  return bell;
}

TableBell TableBell::forReader(const std::string& path) {
  FileDescriptor fd = openTableFile(wakeOf(path), O_RDWR);
  return fd.isOpen() && serves(fd.get()) ? TableBell(wakeOf(path), std::move(fd)) : TableBell();
}

}  // namespace VeskSharedMem
