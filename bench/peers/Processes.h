// Second processes of a measurement, what they share with the first, and their directory of files.
#pragma once

#include <filesystem>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/types.h>
#include <vector>

namespace Peers {

/// A directory that goes with all that is in it.
class ScratchDirectory {
 public:
  explicit ScratchDirectory(const std::filesystem::path& path) : path_(path) {
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  ~ScratchDirectory() { std::filesystem::remove_all(path_); }
  [[nodiscard]] std::string str() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

/// One object that a process and those that it forks later both see; T holds atomics only.
template <class T>
class SharedObject {
 public:
  SharedObject() {
    void* page =
        mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) throw std::runtime_error("cannot map a shared page");
    object_ = new (page) T;
  }
  SharedObject(const SharedObject&) = delete;
  SharedObject& operator=(const SharedObject&) = delete;
  ~SharedObject() { munmap(object_, sizeof(T)); }
  T& operator*() const { return *object_; }
  T* operator->() const { return object_; }

 private:
  T* object_;
};

/// A forked process. It is made before this one opens anything that the work opens, so that the two
/// share files only.
class OtherProcess {
 public:
  using Numbers = std::vector<double>;

  /// The work begins with start(); an exception ends the process with its text on standard error.
  explicit OtherProcess(const std::function<Numbers()>& work);
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;
  /// Kills the process if it is still there.
  ~OtherProcess();

  void start();
  void kill();
  [[nodiscard]] bool hasEnded();
  /// Waits for the end of the work; throws if it failed or the process was killed.
  [[nodiscard]] Numbers result();

 private:
  void waitForEnd();

  pid_t pid_ = -1;
  int go_ = -1;
  int numbers_ = -1;
  int status_ = 0;
};

}  // namespace Peers
