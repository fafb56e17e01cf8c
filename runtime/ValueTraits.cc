#include "runtime/ValueTraits.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace Vesk {
namespace {

/// Of two hexadecimal digits.
char byteOf(std::string_view digits) {
  unsigned value = 0;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
  if (digits.size() != 2 || error != std::errc() || end != digits.data() + 2)
    throw ParseError(fmt::format("\\x wants two hexadecimal digits, not '{}'", digits));
  return static_cast<char>(value);
}

}  // namespace

std::string LeafReader::next() {
  if (done_) throw ParseError("value has too few parts");
  std::string leaf;
  if (!rest_.empty() && rest_.front() == '"') {
    std::size_t i = 1;
    for (; i < rest_.size() && rest_[i] != '"'; ++i) {
      const bool isEscape = rest_[i] == '\\' && i + 1 < rest_.size();
      if (isEscape && rest_[i + 1] == 'x') {
        leaf += byteOf(rest_.substr(i + 2, 2));
        i += 3;
      } else {
        leaf += rest_[isEscape ? ++i : i];
      }
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

void LeafReader::expectEnd() const {
  if (!done_) throw ParseError(fmt::format("value has too many parts: '{}' is left", rest_));
}

namespace {

/// Bytes of the character that stands first, if it is whole UTF-8 (RFC 3629) and no control
/// character; else 0.
std::size_t printable(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(0) < 0x80) return byte(0) < 0x20 || byte(0) == 0x7f ? 0 : 1;
  const std::size_t size = byte(0) >= 0xf0 ? 4 : byte(0) >= 0xe0 ? 3 : 2;
  if (byte(0) < 0xc2 || byte(0) > 0xf4 || text.size() < size) return 0;
  std::uint32_t point = byte(0) & (0xffU >> (size + 1));
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xc0U) != 0x80) return 0;
    point = point << 6 | (byte(i) & 0x3fU);
  }
  constexpr std::uint32_t leastOf[] = {0, 0, 0xa0, 0x800, 0x10000};  // below lie control characters
  const bool isSurrogate = point >= 0xd800 && point < 0xe000;
  return point < leastOf[size] || isSurrogate || point > 0x10ffff ? 0 : size;
}

bool isAllPrintable(std::string_view text) {
  while (!text.empty()) {
    const std::size_t size = printable(text);
    if (size == 0) return false;
    text.remove_prefix(size);
  }
  return true;
}

}  // namespace

std::string quoted(std::string_view text) {
  if (!text.empty() && text.find_first_of(",[]=\" ") == std::string_view::npos &&
      isAllPrintable(text))
    return std::string(text);
  std::string out = "\"";
  while (!text.empty()) {
    const char c = text.front();
    if (c == '"' || c == '\\') out += '\\';
    const std::size_t size = printable(text);
    if (size == 0) {
      out += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    } else {
      out += text.substr(0, size);
    }
    text.remove_prefix(std::max<std::size_t>(size, 1));
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
