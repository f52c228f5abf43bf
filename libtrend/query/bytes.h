// Numbers as bytes, the most significant first, as the database format has them.
#pragma once

#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace toolkit::trend {

static_assert(std::numeric_limits<double>::is_iec559 && sizeof(double) == 8);

/// Converts between the byte order of this machine and the most significant byte first.
template <std::unsigned_integral T>
[[nodiscard]] constexpr T swap_to_big_endian(T value) {
  if constexpr (std::endian::native == std::endian::big || sizeof(T) == 1) {
    return value;
  } else if constexpr (sizeof(T) == 2) {
    return __builtin_bswap16(value);
  } else if constexpr (sizeof(T) == 4) {
    return __builtin_bswap32(value);
  } else {
    return __builtin_bswap64(value);
  }
}

/// Reads the number at `bytes`, of which there are enough.
template <std::unsigned_integral T>
[[nodiscard]] T load(const unsigned char* bytes) {
  T value = 0;
  std::memcpy(&value, bytes, sizeof value);
  return swap_to_big_endian(value);
}

/// Writes `value` to `bytes`, where there is room for it.
template <std::unsigned_integral T>
void store(T value, unsigned char* bytes) {
  value = swap_to_big_endian(value);
  std::memcpy(bytes, &value, sizeof value);
}

/// Appends `value` to `bytes`.
template <std::unsigned_integral T>
void append(T value, std::vector<unsigned char>& bytes) {
  bytes.resize(bytes.size() + sizeof value);
  store(value, bytes.data() + bytes.size() - sizeof value);
}

}  // namespace toolkit::trend
