// The entries of the catalogue of an archive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

#include "libtrend/postgres/connection.h"
#include "libtrend/records.h"

namespace toolkit::trend {

// The reasons for not reading what another program has written.
inline constexpr const char* DAMAGED_CATALOGUE =
    "the catalogue of the archive has an entry that is not valid";
inline constexpr const char* NOT_A_ROW = "the archive has a row that is not one of a trend";

/// The columns of the table `parameter` that `read_param` reads.
inline constexpr const char* PARAM_COLUMNS =
    "path, first_slot, has_min, has_max, has_avg, has_actual, has_sum";

/// Sets `param` from a row of `PARAM_COLUMNS`. Returns false where no row of a device can have such
/// slots.
[[nodiscard]] bool read_param(const Result& result, std::size_t row, CParamProperties& param);

/// Sets `number` to one of the catalogue. Returns false unless it is from 0 to `largest`.
template <typename Number>
[[nodiscard]] bool read_number(const Result& result, std::size_t row, std::size_t column,
                               Number& number,
                               Number largest = std::numeric_limits<Number>::max()) {
  std::int64_t value = 0;
  if (!result.read(row, column, value) || value < 0 ||
      static_cast<std::uint64_t>(value) > largest) {
    return false;
  }
  number = static_cast<Number>(value);
  return true;
}

}  // namespace toolkit::trend
