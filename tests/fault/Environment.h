// What the environment says about a test that draws its instants by chance.
#pragma once

#include <cstdint>
#include <cstdlib>

/// The number in the variable, or the one that is usual.
inline std::uint32_t numberOf(const char* variable, std::uint32_t usual) {
  const char* text = std::getenv(variable);
  return text == nullptr ? usual : static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10));
}
