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
  FileDescriptor fd(open(path.c_str(), mode | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
  return fd;
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

std::string temporaryName(const std::string& path) {
  return path + ".new";
}

// A file with a fixed name beside the table, claimed like the table itself: creators take turns, a
// killed creator leaves one file that the next one reuses, and the claim lasts through the
// renaming. Not open when somebody else is at it.
FileDescriptor claimTemporary(const std::string& path) {
  const std::string temporary = temporaryName(path);
  FileDescriptor fd(
      open(temporary.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644));
  if (!fd.isOpen()) failWith(path, "create " + temporary, errno);
  if (!claim(fd.get(), temporary) || !isSameFile(fd.get(), temporary)) return FileDescriptor();
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
  if (ftruncate(fd, 0) != 0) failAndDrop(path, "empty the temporary file", errno);
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

// Not open when somebody else is at it or was faster.
FileDescriptor tryCreate(const std::string& path, const TableLayout& layout) {
  FileDescriptor fd = claimTemporary(path);
  if (!fd.isOpen()) return fd;
  if (access(path.c_str(), F_OK) == 0) {
    unlink(temporaryName(path).c_str());
    return FileDescriptor();
  }
  fillTemporary(fd.get(), path, layout);
  nameTemporary(path);
  return fd;
}

[[noreturn]] void temporaryIsLocked(const std::string& path) {
  throw TableError(
      fmt::format("shared table {}: another process keeps {} locked", path, temporaryName(path)));
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
  if (base == MAP_FAILED) return;
  base_ = static_cast<std::byte*>(base);
  guard_ = std::make_unique<PageGuard>(base_, size_);
}

MappedBytes& MappedBytes::operator=(MappedBytes&& other) noexcept {
  if (this != &other) {
    reset();
    base_ = std::exchange(other.base_, nullptr);
    size_ = std::exchange(other.size_, 0);
    guard_ = std::move(other.guard_);
  }
  return *this;
}

void MappedBytes::reset() {
  guard_.reset();
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
      // Of a writer that died while its table grew. Nobody else makes one while this is claimed.
      unlink(temporaryName(path).c_str());
      TableFile file(path, std::move(fd), found, true);
      sharedWord(file.header().writerPid).store(static_cast<uint32_t>(getpid()));
      return file;
    }
    // Between a claim and the pid that goes with it lies a moment in which the header still names
    // an earlier writer, hence the later attempts.
    holder = readHeader(fd.get(), path).header.writerPid;
    if (isAlive(*holder)) break;
  }
  if (!holder) temporaryIsLocked(path);
  throw TableError(fmt::format(
      "shared table {}: expected no other writer, found process {} holding it", path, *holder));
}

TableFile TableFile::beside(const std::string& path, const TableShape& shape) {
  const TableLayout layout = TableLayout::of(path, shape);
  FileDescriptor fd = claimTemporary(path);
  if (!fd.isOpen()) temporaryIsLocked(path);
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

void TableFile::removeName() const {
  if (isSameFile(fd_.get(), path_)) unlink(path_.c_str());
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

bool TableFile::isSound() const {
  if (bytes_.isTorn() || bell_.isTorn()) return false;
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
