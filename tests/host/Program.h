// The program from outside: run to its end, or started and read line by line.
// Runs: the `corvane` beside the test, or the one that CORVANE_PROGRAM names.
#pragma once

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/wait.h>

/// How the program ended.
struct Outcome {
  int status = -1;     ///< its exit status, -1 if a signal ended it
  std::string output;  ///< what was left to read of standard output and error, in the order written
};

/// A program that runs. It is killed with this object unless its end was awaited.
class Program {
 public:
  /// The shell reads the arguments, and before the program starts a command of its own.
  explicit Program(const std::string& arguments, const std::string& before = ":")
      : out_(popen(("echo $$; " + before + "; exec " + path() + " " + arguments + " 2>&1").c_str(),
                   "r")),
        pid_(std::stoi(line())) {}
  ~Program() {
    if (out_ == nullptr) return;
    signal(SIGKILL);
    pclose(out_);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  void signal(int number) const { kill(pid_, number); }
  /// The next line with its end, empty if there is none.
  std::string line() {
    std::string text;
    for (int c = 0; !text.ends_with('\n') && (c = std::fgetc(out_)) != EOF;)
      text += static_cast<char>(c);
    return text;
  }
  /// The next line that has the text in it, empty if there is none.
  std::string lineWith(const std::string& part) {
    std::string text = line();
    while (!text.empty() && text.find(part) == std::string::npos)
      text = line();
    return text;
  }
  /// Reads to the end and waits for it.
  Outcome end() {
    Outcome outcome;
    for (std::string text; !(text = line()).empty();)
      outcome.output += text;
    const int status = pclose(out_);
    out_ = nullptr;
    if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
    return outcome;
  }

 private:
  static std::string path() {
    if (const char* named = std::getenv("CORVANE_PROGRAM")) return named;
    return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "corvane").string();
  }
  std::FILE* out_;
  pid_t pid_;
};

/// Runs the program to its end.
inline Outcome run(const std::string& arguments, const std::string& before = ":") {
  return Program(arguments, before).end();
}
