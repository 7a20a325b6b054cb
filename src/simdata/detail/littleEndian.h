#pragma once
// Little-endian binary values as results files store them, read from unaligned bytes.

#include <bit>
#include <cstdint>
#include <cstring>

namespace simdata::detail {

/// The floating-point value of type Float stored at `bytes` (Bits: the unsigned integer of its
/// size).
template <typename Float, typename Bits>
Float loadLittleEndian(const char* bytes) {
  static_assert(sizeof(Float) == sizeof(Bits));
  Bits bits;
  std::memcpy(&bits, bytes, sizeof bits);
  if constexpr (std::endian::native == std::endian::big) {
    if constexpr (sizeof bits == 8) {
      bits = __builtin_bswap64(bits);
    } else {
      bits = __builtin_bswap32(bits);
    }
  }
  return std::bit_cast<Float>(bits);
}

/// The float64 stored at `bytes`.
inline double loadDouble(const char* bytes) { return loadLittleEndian<double, uint64_t>(bytes); }

/// The float32 stored at `bytes`.
inline float loadFloat(const char* bytes) { return loadLittleEndian<float, uint32_t>(bytes); }

}  // namespace simdata::detail
