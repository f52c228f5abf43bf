// The five statistics: the table of their flags, members and bits, and the slots of their values in
// a row.
//
// A row of a device is an array of values in numbered slots. The values of a parameter are in
// consecutive slots, from `CParamProperties::aux_1` on: one per statistic that is recorded for it,
// in the order of this table.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "libtrend/records.h"

namespace toolkit::trend {

/// One statistic: the flag of a parameter for which it is recorded, and its value in a sample.
struct Statistic {
  bool CParamProperties::*flag;
  double CSample::*member;
};

/// All statistics, in the order of columns, slots and bits.
inline constexpr std::array STATISTICS = {
    Statistic{&CParamProperties::has_min, &CSample::min},
    Statistic{&CParamProperties::has_max, &CSample::max},
    Statistic{&CParamProperties::has_avg, &CSample::avg},
    Statistic{&CParamProperties::has_actual, &CSample::actual},
    Statistic{&CParamProperties::has_sum, &CSample::sum},
};

/// The mask with the bits of all statistics. Bit i stands for `STATISTICS[i]`.
inline constexpr std::uint32_t ALL_STATISTICS = (1U << STATISTICS.size()) - 1;

/// Returns the mask of the statistics that are recorded for `param`. It is the value of
/// `parameter.statistics` in the database.
[[nodiscard]] inline std::uint32_t get_statistics(const CParamProperties& param) {
  std::uint32_t mask = 0;
  for (std::size_t i = 0; i < STATISTICS.size(); ++i) {
    mask |= std::uint32_t{param.*STATISTICS[i].flag} << i;
  }
  return mask;
}

/// Sets the flags of `param` from the bits of `mask`.
inline void set_statistics(CParamProperties& param, std::uint32_t mask) {
  for (std::size_t i = 0; i < STATISTICS.size(); ++i) {
    param.*STATISTICS[i].flag = (mask >> i & 1) != 0;
  }
}

/// Returns the slot of the value of `STATISTICS[statistic]` of `param`. For `statistic` =
/// `STATISTICS.size()` that is the slot after the parameter's last one.
[[nodiscard]] inline std::size_t get_slot(const CParamProperties& param, std::size_t statistic) {
  std::size_t slot = param.aux_1;
  for (std::size_t i = 0; i < statistic; ++i) slot += param.*STATISTICS[i].flag ? 1 : 0;
  return slot;
}

}  // namespace toolkit::trend
