// Colour for people at a terminal, and nothing for everyone else.
#pragma once

#include <string>
#include <string_view>

namespace Host {

enum class Ink { plain, strong, faint, good, bad };

class Style {
 public:
  explicit Style(bool coloured) : coloured_(coloured) {}
  /// Coloured if standard output is a terminal and NO_COLOR is not set.
  static Style ofStandardOutput();
  [[nodiscard]] bool isColoured() const { return coloured_; }
  [[nodiscard]] std::string in(Ink ink, std::string_view text) const;

 private:
  bool coloured_;
};

}  // namespace Host
