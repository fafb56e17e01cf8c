#include "host/print/Style.h"

#include <array>
#include <cstdlib>
#include <unistd.h>

namespace Host {

Style Style::ofStandardOutput() {
  return Style(isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr);
}

std::string Style::in(Ink ink, std::string_view text) const {
  constexpr std::array<std::string_view, 5> codes{"", "\x1b[1m", "\x1b[2m", "\x1b[32m",
                                                  "\x1b[1;31m"};
  if (!coloured_ || ink == Ink::plain) return std::string(text);
  std::string out(codes[static_cast<std::size_t>(ink)]);
  return out.append(text).append("\x1b[0m");
}

}  // namespace Host
