// What is wrong with something that a user gave: a file, a place in it, or an argument.
// Thrown by whoever reads the input, before anything has run. Main prints it as FILE:LINE:COLUMN:
// text and ends with status 2, or 3 if there is nothing to look at. Caveat: line and column count
// from 1; 0 means that there is no such place.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace Host {

struct InputError : std::runtime_error {
  InputError(std::string inFile, int atLine, int atColumn, const std::string& text)
      : std::runtime_error(text), file(std::move(inFile)), line(atLine), column(atColumn) {}
  explicit InputError(const std::string& text, int endsWith = 2) : InputError({}, 0, 0, text) {
    status = endsWith;
  }

  /// The whole message, for standard error.
  [[nodiscard]] std::string message() const {
    if (file.empty()) return what();
    if (line == 0) return file + ": " + what();
    return file + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + what();
  }

  std::string file;
  int line;
  int column;
  int status = 2;  ///< of the program
};

}  // namespace Host
