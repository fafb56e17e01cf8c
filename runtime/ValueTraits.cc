#include "runtime/ValueTraits.h"

#include <cmath>

namespace Vesk {

std::string LeafReader::next() {
  if (done_) throw ParseError("value has too few parts");
  std::string leaf;
  if (!rest_.empty() && rest_.front() == '"') {
    std::size_t i = 1;
    for (; i < rest_.size() && rest_[i] != '"'; ++i) {
      if (rest_[i] == '\\' && i + 1 < rest_.size()) ++i;
      leaf += rest_[i];
    }
    if (i >= rest_.size()) throw ParseError("a quoted text does not end");
    rest_.remove_prefix(i + 1);
    if (!rest_.empty() && rest_.front() != ',')
      throw ParseError("a comma is missing after a quoted text");
  } else {
    const std::size_t end = rest_.find(',');
    leaf = rest_.substr(0, end);
    rest_.remove_prefix(leaf.size());
  }
  done_ = rest_.empty();
  if (!done_) rest_.remove_prefix(1);
  return leaf;
}

bool LeafReader::takeAll(std::string_view text) {
  if (done_ || rest_ != text) return false;
  rest_ = {};
  done_ = true;
  return true;
}

void LeafReader::expectEnd() const {
  if (!done_) throw ParseError(fmt::format("value has too many parts: '{}' is left", rest_));
}

std::string quoted(std::string_view text) {
  if (!text.empty() && text.find_first_of(",[]=\" ") == std::string_view::npos)
    return std::string(text);
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + '"';
}

std::string secondsText(double seconds) {
  if (std::isinf(seconds)) return seconds > 0 ? "inf" : "-inf";
  std::string text = fmt::format("{}", seconds);
  if (text.find_first_of(".en") == std::string::npos) text += ".0";
  return text;
}

void throwNotA(std::string_view typeName, std::string_view text) {
  throw ParseError(fmt::format("'{}' is not a {}", text, typeName));
}

double Leaf<double>::fromText(const std::string& text) {
  if (text == "inf") return INFINITY;
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) throwNotA(typeName(), text);
  return value;
}

}  // namespace Vesk
