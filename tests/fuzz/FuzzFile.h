// What the fuzz targets have in common: a file that holds the bytes of the input, and damages to
// the bytes of a sound file, since random bytes hardly ever get past a header.
// Owns: a directory under TMPDIR, removed at an orderly end. Caveat: a target ends the process at a
// finding, so whoever runs it gives it a TMPDIR that he clears away himself.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace Fuzz {

[[noreturn]] inline void finding(const std::string& text) {
  std::fprintf(stderr, "finding: %s\n", text.c_str());
  std::abort();
}

class FuzzFile {
 public:
  explicit FuzzFile(const std::string& name) {
    directory_ = (std::filesystem::temp_directory_path() / "corvane-fuzz-XXXXXX").string();
    if (mkdtemp(directory_.data()) == nullptr) finding("no directory " + directory_);
    path_ = directory_ + "/" + name;
  }
  ~FuzzFile() { std::filesystem::remove_all(directory_); }
  FuzzFile(const FuzzFile&) = delete;
  FuzzFile& operator=(const FuzzFile&) = delete;

  const std::string& directory() const { return directory_; }
  const std::string& path() const { return path_; }

  void contentIs(const std::string& bytes) const {
    std::ofstream(path_, std::ios::binary) << bytes;
  }
  std::string content() const {
    std::ifstream file(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  std::string directory_;
  std::string path_;
};

/// Runs the function; what it throws of this type must name the file.
template <class Error, class Function>
void attempt(const FuzzFile& file, Function function) {
  try {
    function();
  } catch (const Error& error) {
    if (std::string(error.what()).find(file.path()) == std::string::npos)
      finding("an error without the path");
  }
}

/// Overwrites up to 8 bytes, aligned to 4 because most of what a file counts with is.
template <class Input>
void damage(std::string& bytes, std::size_t begin, std::size_t end, Input& input) {
  const std::size_t at = input.ConsumeIntegralInRange(begin, end - 1) & ~std::size_t{3};
  const std::string patch = input.ConsumeRandomLengthString(8);
  std::memcpy(bytes.data() + at, patch.data(), std::min(patch.size(), bytes.size() - at));
}

}  // namespace Fuzz
