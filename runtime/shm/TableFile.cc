#include "runtime/shm/TableFile.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <fmt/format.h>

namespace VeskSharedMem {
namespace {

uint64_t nowNs() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

// What a file says of itself, and what the file system says of it.
struct Found {
  TableHeader header{};
  uint64_t length = 0;
  uint64_t allocated = 0;  // bytes that are not holes
};

Found readHeader(int fd, const std::string& path) {
  struct stat status {};
  if (fstat(fd, &status) != 0) failWith(path, "read the file's status", errno);
  if (!S_ISREG(status.st_mode)) {
    throw TableError(fmt::format("shared table {}: expected a regular file, found mode {:o}", path,
                                 status.st_mode));
  }
  Found found;
  found.length = static_cast<uint64_t>(status.st_size);
  found.allocated = static_cast<uint64_t>(status.st_blocks) * 512;
  const ssize_t got = pread(fd, &found.header, sizeof found.header, 0);
  if (got < 0) failWith(path, "read the header", errno);
  if (static_cast<size_t>(got) != sizeof found.header) {
    throw TableError(fmt::format("shared table {}: expected a header of {} bytes, found {}", path,
                                 sizeof found.header, got));
  }
  return found;
}

TableLayout checkedLayout(int fd, const std::string& path, const TableShape* expected) {
  const Found found = readHeader(fd, path);
  const TableLayout layout = TableLayout::checked(path, found.header, found.length, expected);
  // A row that was ever used is no hole: millions of them in a small file are not worth a scan.
  const uint64_t used = uint64_t{layout.rowStride} * found.header.highWater;
  if (used > found.allocated) {
    throw TableError(
        fmt::format("shared table {}: expected {} bytes of rows, found {} that are not "
                    "holes",
                    path, used, found.allocated));
  }
  return layout;
}

// The claim hangs on a name, which others may remove: this lock keeps a second writer out of the
// bytes all the same. It goes with the open file. A reader's lock stands in nobody's way.
bool lockAgainstWriters(int fd) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  if (fcntl(fd, F_OFD_SETLK, &lock) == 0) return true;
  lock.l_type = F_RDLCK;
  return fcntl(fd, F_OFD_GETLK, &lock) != 0 || lock.l_type == F_UNLCK;
}

std::string temporaryName(const std::string& path) {
  return path + ".new";
}

// A file with a fixed name beside the table, which a killed creator may have left there.
FileDescriptor openTemporary(const std::string& path) {
  const std::string temporary = temporaryName(path);
  unlink(temporary.c_str());
  FileDescriptor fd = openTableFile(temporary, O_RDWR | O_CREAT | O_EXCL, 0644);
  if (!fd.isOpen()) failWith(path, "create " + temporary, errno);
  return fd;
}

// On any failure the temporary file goes.
[[noreturn]] void failAndDrop(const std::string& path, std::string_view what, int error) {
  unlink(temporaryName(path).c_str());
  failWith(path, what, error);
}

// Makes the temporary file a table without rows.
void fillTemporary(int fd, const std::string& path, const TableLayout& layout) {
  TableHeader header = layout.freshHeader();
  // Starting from the clock keeps a reader's old cursor from fitting a table made anew.
  header.writerEpoch = nowNs();
  header.writerPid = static_cast<uint32_t>(getpid());
  if (ftruncate(fd, static_cast<off_t>(layout.fileSize)) != 0) {
    failAndDrop(path, fmt::format("make it {} bytes long", layout.fileSize), errno);
  }
  errno = ENOSPC;
  if (pwrite(fd, &header, sizeof header, 0) != static_cast<ssize_t>(sizeof header)) {
    failAndDrop(path, "write the header", errno);
  }
}

void nameTemporary(const std::string& path) {
  if (rename(temporaryName(path).c_str(), path.c_str()) != 0) {
    failAndDrop(path, "name the new file", errno);
  }
}

}  // namespace

TableFile::TableFile(std::string path, FileDescriptor fd, const TableLayout& layout, bool writable)
    : path_(std::move(path)),
      fd_(std::move(fd)),
      layout_(layout),
      bytes_(fd_.get(), layout.fileSize, writable ? PROT_READ | PROT_WRITE : PROT_READ) {
  if (bytes_.base() == nullptr) failWith(path_, "map the file", errno);
  rows_ = bytes_.base() + layout.rowsOffset;
  index_ = reinterpret_cast<uint32_t*>(bytes_.base() + layout.indexOffset);
  journal_ = reinterpret_cast<uint32_t*>(bytes_.base() + layout.journalOffset);
}

TableFile TableFile::forWriter(const std::string& path, const TableShape& shape) {
  FileDescriptor fd = openTableFile(path, O_RDWR);
  if (!fd.isOpen()) {
    if (errno != ENOENT) failWith(path, "open the file", errno);
    beside(path, shape).takePlace();
    return forWriter(path, shape);
  }
  const TableLayout found = checkedLayout(fd.get(), path, &shape);
  if (!lockAgainstWriters(fd.get()))
    throw TableError(
        fmt::format("shared table {}: expected no other writer, found process {} in it", path,
                    readHeader(fd.get(), path).header.writerPid));
  // Of a writer that died while its table grew.
  unlink(temporaryName(path).c_str());
  TableFile file(path, std::move(fd), found, true);
  sharedWord(file.header().writerPid).store(static_cast<uint32_t>(getpid()));
  return file;
}

TableFile TableFile::beside(const std::string& path, const TableShape& shape) {
  const TableLayout layout = TableLayout::of(path, shape);
  FileDescriptor fd = openTemporary(path);
  static_cast<void>(lockAgainstWriters(fd.get()));  // nobody else has it yet
  fillTemporary(fd.get(), path, layout);
  return TableFile(path, std::move(fd), layout, true);
}

void TableFile::takePlace() const {
  nameTemporary(path_);
}

void TableFile::discard() const {
  unlink(temporaryName(path_).c_str());
}

TableFile TableFile::forReader(const std::string& path, const TableShape* expected) {
  FileDescriptor fd = openTableFile(path, O_RDONLY);
  if (!fd.isOpen()) failWith(path, "open the file", errno);
  const TableLayout layout = checkedLayout(fd.get(), path, expected);
  return TableFile(path, std::move(fd), layout, false);
}

void TableFile::removeName() const {
  if (isSameFile(fd_.get(), path_)) unlink(path_.c_str());
}

bool TableFile::isBlank() const {
  return lseek(fd_.get(), static_cast<off_t>(layout_.undoOffset), SEEK_DATA) < 0 && errno == ENXIO;
}

void TableFile::reserve() const {
  struct stat status {};
  if (fstat(fd_.get(), &status) != 0) failWith(path_, "read the file's status", errno);
  if (static_cast<uint64_t>(status.st_blocks) * 512 >= layout_.fileSize) return;
  int error = EINTR;
  while (error == EINTR)
    error = posix_fallocate(fd_.get(), 0, static_cast<off_t>(layout_.fileSize));
  if (error != 0) failWith(path_, fmt::format("allocate {} bytes", layout_.fileSize), error);
}

bool TableFile::isSound() const {
  if (bytes_.isTorn()) return false;
  const TableHeader expected = layout_.freshHeader();
  return std::memcmp(&expected, &header(), offsetof(TableHeader, reserved)) == 0 &&
         !bytes_.isTorn();
}

bool TableFile::isReplaced() const {
  struct stat status {};
  const bool hasLength =
      fstat(fd_.get(), &status) == 0 && static_cast<uint64_t>(status.st_size) == layout_.fileSize;
  return !hasLength || !isSound() || !isSameFile(fd_.get(), path_);
}

}  // namespace VeskSharedMem
