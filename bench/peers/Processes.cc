#include "bench/peers/Processes.h"

#include <array>
#include <cstdio>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

namespace Peers {
namespace {

std::array<int, 2> makePipe() {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) throw std::runtime_error("cannot make a pipe");
  return ends;
}

void closeOnce(int& descriptor) {
  if (descriptor >= 0) close(std::exchange(descriptor, -1));
}

[[noreturn]] void workInChild(int go, int numbers,
                              const std::function<std::vector<double>()>& work) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  char byte = 0;
  if (read(go, &byte, 1) != 1) _exit(0);
  try {
    const std::vector<double> result = work();
    const auto bytes = static_cast<ssize_t>(result.size() * sizeof(double));
    _exit(write(numbers, result.data(), static_cast<std::size_t>(bytes)) == bytes ? 0 : 1);
  } catch (const std::exception& error) {
    fmt::print(stderr, "second process: {}\n", error.what());
  }
  _exit(1);
}

}  // namespace

OtherProcess::OtherProcess(const std::function<Numbers()>& work) {
  const auto go = makePipe();
  const auto numbers = makePipe();
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("cannot fork");
  if (pid_ == 0) {
    close(go[1]);
    close(numbers[0]);
    workInChild(go[0], numbers[1], work);
  }
  close(go[0]);
  close(numbers[1]);
  go_ = go[1];
  numbers_ = numbers[0];
}

OtherProcess::~OtherProcess() {
  kill();
  closeOnce(numbers_);
}

void OtherProcess::start() {
  if (write(go_, "g", 1) != 1) throw std::runtime_error("cannot start the second process");
  closeOnce(go_);
}

void OtherProcess::kill() {
  closeOnce(go_);
  if (pid_ > 0) ::kill(pid_, SIGKILL);
  waitForEnd();
}

bool OtherProcess::hasEnded() {
  if (pid_ > 0 && waitpid(pid_, &status_, WNOHANG) == pid_) pid_ = -1;
  return pid_ < 0;
}

OtherProcess::Numbers OtherProcess::result() {
  Numbers result;
  double number = 0;
  while (read(numbers_, &number, sizeof number) == static_cast<ssize_t>(sizeof number))
    result.push_back(number);
  waitForEnd();
  if (status_ != 0) throw std::runtime_error(fmt::format("second process: status {}", status_));
  return result;
}

void OtherProcess::waitForEnd() {
  if (pid_ > 0) waitpid(std::exchange(pid_, -1), &status_, 0);
}

}  // namespace Peers
