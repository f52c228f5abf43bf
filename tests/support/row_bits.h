// What a query has returned, bit for bit, so that it can be compared.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

#include "libtrend/records.h"
#include "libtrend/statistics.h"

/// The bits of a value. Those of all missing values are the same.
[[nodiscard]] inline std::uint64_t bits_of(double value) {
  return std::isnan(value) ? 1 : std::bit_cast<std::uint64_t>(value);
}

/// The rows of `data`, with all their values, as numbers.
[[nodiscard]] inline std::vector<std::uint64_t> flatten(const toolkit::trend::CDeviceData& data) {
  std::vector<std::uint64_t> all;
  for (const toolkit::trend::CSnapshot& row : data.snapshots) {
    all.push_back(row.interval_minutes);
    all.push_back(static_cast<std::uint64_t>(row.timestamp));
    all.push_back(bits_of(row.valid_ratio));
    for (const toolkit::trend::CSample& sample : row.samples) {
      for (const toolkit::trend::Statistic& statistic : toolkit::trend::STATISTICS) {
        all.push_back(bits_of(sample.*statistic.member));
      }
    }
  }
  return all;
}
