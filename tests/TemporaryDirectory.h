// A directory of a test's own, gone with it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

class TemporaryDirectory {
 public:
  TemporaryDirectory() { mkdtemp(path_.data()); }
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  /// The path of something in it.
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_ = (std::filesystem::temp_directory_path() / "corvane-test-XXXXXX").string();
};
