// The values of one statistic over the rows of a block, see docs/trend-database.md.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

namespace toolkit::trend {

/// Stands for a value that is missing.
inline constexpr double MISSING_VALUE = std::numeric_limits<double>::quiet_NaN();

/// Appends the shortest encoding of `values` to `bytes`. It gives back every value bit for bit,
/// but for NaNs: all of them are one and the same missing value.
void encode_column(std::span<const double> values, std::vector<unsigned char>& bytes);

/// Decodes all of `bytes` into `values`. Returns false where they are not the encoding of so many
/// values; `values` is then undefined.
[[nodiscard]] bool decode_column(std::span<const unsigned char> bytes, std::span<double> values);

/// Appends the encoding of `times`, which ascend, to `bytes`. It holds all of them but the first.
void encode_times(std::span<const std::int64_t> times, std::vector<unsigned char>& bytes);

/// Decodes all of `bytes` into `times`, of which the first is set already. Returns false where they
/// are not the encoding of so many times that ascend and do not go beyond `latest`.
[[nodiscard]] bool decode_times(std::span<const unsigned char> bytes, std::int64_t latest,
                                std::span<std::int64_t> times);

}  // namespace toolkit::trend
