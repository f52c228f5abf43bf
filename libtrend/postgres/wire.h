// PostgreSQL's binary form of values. Times are microseconds from the start of the year 2000.
#pragma once

#include <cstdint>

namespace toolkit::trend {

inline constexpr std::uint32_t TYPE_OF_FLOAT8 = 701;  ///< in pg_type, the same everywhere

inline constexpr std::int64_t YEAR_2000 = 946'684'800;  ///< in seconds since 1970
inline constexpr std::int64_t MICROSECONDS = 1'000'000;

/// Returns the timestamptz for `time`, in seconds since 1970, which must be within 2^41 of 0.
[[nodiscard]] constexpr std::int64_t get_wire_time(std::int64_t time) {
  return (time - YEAR_2000) * MICROSECONDS;
}

/// Sets `time` to the seconds since 1970 of a timestamptz. Returns false where that is not a whole
/// number.
[[nodiscard]] constexpr bool get_time(std::int64_t wire_time, std::int64_t& time) {
  time = wire_time / MICROSECONDS + YEAR_2000;
  return wire_time % MICROSECONDS == 0;
}

}  // namespace toolkit::trend
