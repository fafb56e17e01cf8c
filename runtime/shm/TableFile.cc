#include "runtime/shm/TableFile.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <time.h>
#include <unistd.h>

#include <fmt/format.h>

namespace VeskSharedMem {
namespace {

constexpr int kClaimAttempts = 50;
constexpr long kClaimPauseNs = 2'000'000;

[[noreturn]] void failWith(const std::string& path, std::string_view what, int error) {
  throw TableError(fmt::format("shared table {}: cannot {}: {}", path, what,
                               std::generic_category().message(error)));
}

uint64_t nowNs() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

bool isAlive(uint32_t pid) {
  return pid != 0 && (kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM);
}

void pauseBriefly() {
  const timespec pause{0, kClaimPauseNs};
  nanosleep(&pause, nullptr);
}

struct flock wholeFileLock() {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return lock;
}

// The lock belongs to the open file, so the kernel drops it with the process, however that ends,
// and two writers within one process exclude each other too.
bool claim(int fd, const std::string& path) {
  struct flock lock = wholeFileLock();
  if (fcntl(fd, F_OFD_SETLK, &lock) == 0) return true;
  if (errno != EAGAIN && errno != EACCES) failWith(path, "lock the file", errno);
  return false;
}

bool isSameFile(int fd, const std::string& path) {
  struct stat mine {};
  struct stat named {};
  return fstat(fd, &mine) == 0 && stat(path.c_str(), &named) == 0 && mine.st_ino == named.st_ino &&
         mine.st_dev == named.st_dev;
}

bool isClaimedByOther(int fd) {
  struct flock lock = wholeFileLock();
  return fcntl(fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// Opens what exists. O_NONBLOCK keeps a pipe that happens to lie there from blocking us.
FileDescriptor openExisting(const std::string& path, int mode) {
  FileDescriptor fd(open(path.c_str(), mode | O_CLOEXEC | O_NONBLOCK));
  return fd;
}

TableHeader readHeader(int fd, const std::string& path, uint64_t& fileLength) {
  struct stat status {};
  if (fstat(fd, &status) != 0) failWith(path, "read the file's status", errno);
  if (!S_ISREG(status.st_mode)) {
    throw TableError(fmt::format("shared table {}: expected a regular file, found mode {:o}", path,
                                 status.st_mode));
  }
  fileLength = static_cast<uint64_t>(status.st_size);
  TableHeader header{};
  const ssize_t got = pread(fd, &header, sizeof header, 0);
  if (got < 0) failWith(path, "read the header", errno);
  if (static_cast<size_t>(got) != sizeof header) {
    throw TableError(fmt::format("shared table {}: expected a header of {} bytes, found {}", path,
                                 sizeof header, got));
  }
  return header;
}

TableLayout checkedLayout(int fd, const std::string& path, const TableShape* expected) {
  uint64_t fileLength = 0;
  const TableHeader header = readHeader(fd, path, fileLength);
  return TableLayout::checked(path, header, fileLength, expected);
}

// Fills the temporary file and gives it the table's name. On any failure the temporary file goes.
void build(int fd, const std::string& temporary, const std::string& path,
           const TableLayout& layout) {
  const auto fail = [&temporary, &path](std::string_view what, int error) {
    unlink(temporary.c_str());
    failWith(path, what, error);
  };
  TableHeader header = layout.freshHeader();
  // Starting from the clock keeps a reader's old cursor from fitting a table made anew.
  header.writerEpoch = nowNs();
  header.writerPid = static_cast<uint32_t>(getpid());
  if (ftruncate(fd, 0) != 0) fail("empty the temporary file", errno);
  if (ftruncate(fd, static_cast<off_t>(layout.fileSize)) != 0) {
    fail(fmt::format("make it {} bytes long", layout.fileSize), errno);
  }
  errno = ENOSPC;
  if (pwrite(fd, &header, sizeof header, 0) != static_cast<ssize_t>(sizeof header)) {
    fail("write the header", errno);
  }
  if (rename(temporary.c_str(), path.c_str()) != 0) fail("name the new file", errno);
}

// The temporary name is fixed and claimed like the table itself: creators take turns, a killed
// creator leaves one file that the next one reuses, and the claim lasts through the renaming.
// Empty when somebody else is at it or was faster.
FileDescriptor tryCreate(const std::string& path, const TableLayout& layout) {
  const std::string temporary = path + ".new";
  FileDescriptor fd(
      open(temporary.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644));
  if (!fd.isOpen()) failWith(path, "create " + temporary, errno);
  if (!claim(fd.get(), temporary) || !isSameFile(fd.get(), temporary)) return FileDescriptor();
  if (access(path.c_str(), F_OK) == 0) {
    unlink(temporary.c_str());
    return FileDescriptor();
  }
  build(fd.get(), temporary, path, layout);
  return fd;
}

}  // namespace

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

MappedBytes::MappedBytes(int fd, uint64_t size, int protection) : size_(size) {
  void* base = mmap(nullptr, size, protection, MAP_SHARED, fd, 0);
  if (base != MAP_FAILED) base_ = static_cast<std::byte*>(base);
}

MappedBytes& MappedBytes::operator=(MappedBytes&& other) noexcept {
  if (this != &other) {
    reset();
    base_ = std::exchange(other.base_, nullptr);
    size_ = std::exchange(other.size_, 0);
  }
  return *this;
}

void MappedBytes::reset() {
  if (base_ != nullptr) munmap(std::exchange(base_, nullptr), size_);
}

TableFile::TableFile(std::string path, FileDescriptor fd, const TableLayout& layout, bool writable)
    : path_(std::move(path)),
      fd_(std::move(fd)),
      layout_(layout),
      bytes_(fd_.get(), layout.fileSize, writable ? PROT_READ | PROT_WRITE : PROT_READ),
      writable_(writable) {
  if (bytes_.base() == nullptr) failWith(path_, "map the file", errno);
  rows_ = bytes_.base() + layout.rowsOffset;
  index_ = reinterpret_cast<uint32_t*>(bytes_.base() + layout.indexOffset);
  journal_ = reinterpret_cast<uint32_t*>(bytes_.base() + layout.journalOffset);
}

TableFile TableFile::forWriter(const std::string& path, const TableShape& shape) {
  const TableLayout layout = TableLayout::of(path, shape);
  std::optional<uint32_t> holder;
  for (int attempt = 0; attempt < kClaimAttempts; ++attempt) {
    if (attempt > 0) pauseBriefly();
    FileDescriptor fd = openExisting(path, O_RDWR);
    if (!fd.isOpen()) {
      if (errno != ENOENT) failWith(path, "open the file", errno);
      fd = tryCreate(path, layout);
      if (!fd.isOpen()) continue;
      return TableFile(path, std::move(fd), layout, true);
    }
    const TableLayout found = checkedLayout(fd.get(), path, &shape);
    if (claim(fd.get(), path)) {
      if (!isSameFile(fd.get(), path)) continue;
      TableFile file(path, std::move(fd), found, true);
      sharedWord(file.header().writerPid).store(static_cast<uint32_t>(getpid()));
      return file;
    }
    // Between a claim and the pid that goes with it lies a moment in which the header still names
    // an earlier writer, hence the later attempts.
    uint64_t length = 0;
    holder = readHeader(fd.get(), path, length).writerPid;
    if (isAlive(*holder)) break;
  }
  if (!holder) {
    throw TableError(
        fmt::format("shared table {}: another process keeps {}.new locked", path, path));
  }
  throw TableError(fmt::format(
      "shared table {}: expected no other writer, found process {} holding it", path, *holder));
}

TableFile TableFile::forReader(const std::string& path, const TableShape* expected) {
  FileDescriptor fd = openExisting(path, O_RDWR);
  const bool mayWrite = fd.isOpen();
  if (!mayWrite) fd = openExisting(path, O_RDONLY);
  if (!fd.isOpen()) failWith(path, "open the file", errno);
  const TableLayout layout = checkedLayout(fd.get(), path, expected);
  const int descriptor = fd.get();
  TableFile file(path, std::move(fd), layout, false);
  if (mayWrite) {
    file.bell_ = MappedBytes(descriptor, sizeof(TableHeader), PROT_READ | PROT_WRITE);
  }
  return file;
}

std::optional<uint32_t> TableFile::holderOf(const std::string& path) {
  const FileDescriptor fd = openExisting(path, O_RDONLY);
  if (!fd.isOpen() || !isClaimedByOther(fd.get())) return std::nullopt;
  TableHeader header{};
  const ssize_t got = pread(fd.get(), &header, sizeof header, 0);
  const bool isTable = got == static_cast<ssize_t>(sizeof header) && header.magic == kMagic;
  return isTable ? header.writerPid : 0;
}

TableHeader* TableFile::bell() const {
  if (writable_) return &header();
  return reinterpret_cast<TableHeader*>(bell_.base());
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

bool TableFile::isClaimed() const {
  return isClaimedByOther(fd_.get());
}

bool TableFile::isReplaced() const {
  return !isSameFile(fd_.get(), path_);
}

}  // namespace VeskSharedMem
