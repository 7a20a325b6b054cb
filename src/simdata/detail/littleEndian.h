#pragma once
// Little-endian binary values as results files store them, read from unaligned bytes.

#include <bit>
#include <cstdint>
#include <cstring>

namespace simdata::detail {

/// The float64 stored at `bytes`.
inline double loadDouble(const char* bytes) {
  uint64_t bits;
  std::memcpy(&bits, bytes, sizeof bits);
  if constexpr (std::endian::native == std::endian::big) {
    bits = __builtin_bswap64(bits);
  }
  return std::bit_cast<double>(bits);
}

/// The float32 stored at `bytes`.
inline float loadFloat(const char* bytes) {
  uint32_t bits;
  std::memcpy(&bits, bytes, sizeof bits);
  if constexpr (std::endian::native == std::endian::big) {
    bits = __builtin_bswap32(bits);
  }
  return std::bit_cast<float>(bits);
}

}  // namespace simdata::detail
