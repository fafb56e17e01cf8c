// An open file of this process.
// Owns: the descriptor, which is closed on destruction. Caveat: closing also gives back whatever is
// locked through it.
#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace VeskSharedMem {

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd = -1) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  ~FileDescriptor() { reset(); }

  int get() const { return fd_; }
  bool isOpen() const { return fd_ >= 0; }
  void reset();

 private:
  int fd_;
};

// Opens a file of a table: never through a symbolic link, and never so that a pipe that happens to
// lie there blocks us. Not open on failure; errno tells why.
FileDescriptor openTableFile(const std::string& path, int flags, unsigned mode = 0);

// The path leads to the file that is open.
bool isSameFile(int fd, const std::string& path);

// Throws TableError: what could not be done with the table, and why by errno's number.
[[noreturn]] void failWith(const std::string& path, std::string_view what, int error);

}  // namespace VeskSharedMem
