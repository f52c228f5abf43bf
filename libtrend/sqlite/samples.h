// The packed values of a row, see docs/trend-database.md.
#pragma once

#include <span>
#include <vector>

#include "libtrend/records.h"

namespace toolkit::trend {

/// Unpacks a row's packed bytes into `samples`, one for each entry of `params`. Returns false if
/// the bytes are not a whole number of values.
[[nodiscard]] bool unpack_samples(std::span<const unsigned char> bytes,
                                  const std::vector<CParamProperties>& params,
                                  std::vector<CSample>& samples);

/// Packs the values of a row, given in the order of their slots.
[[nodiscard]] std::vector<unsigned char> pack_samples(std::span<const double> slots);

}  // namespace toolkit::trend
