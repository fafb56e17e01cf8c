// Hashing that is the same in every process and on every run.
// Collections are iterated in the order of these hashes, so a seed or an address in them would make
// two runs differ.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

namespace Vesk {

constexpr std::uint64_t mixHash(std::uint64_t x) {
  x ^= x >> 32;
  x *= 0xd6e8feb86659fd93ULL;
  x ^= x >> 32;
  x *= 0xd6e8feb86659fd93ULL;
  x ^= x >> 32;
  return x;
}

/// Folds one 64-bit word into a running hash.
constexpr std::uint64_t foldHash(std::uint64_t hash, std::uint64_t word) {
  return (hash ^ mixHash(word + 0x9e3779b97f4a7c15ULL)) * 0xff51afd7ed558ccdULL;
}

inline std::uint64_t hashBytes(std::string_view bytes, std::uint64_t seed = 0) {
  std::uint64_t hash = foldHash(seed, bytes.size());
  while (!bytes.empty()) {
    std::uint64_t word = 0;
    const std::size_t n = bytes.size() < 8 ? bytes.size() : 8;
    std::memcpy(&word, bytes.data(), n);
    hash = foldHash(hash, word);
    bytes.remove_prefix(n);
  }
  return hash;
}

}  // namespace Vesk
