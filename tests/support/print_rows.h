// What a query has returned, bit for bit, as a text that can be compared and read.
#pragma once

#include <cmath>
#include <cstdio>
#include <string>

#include "libtrend/records.h"
#include "libtrend/statistics.h"

/// Returns the rows of `data`, a line each. All missing values are the same.
[[nodiscard]] inline std::string print_rows(const toolkit::trend::CDeviceData& data) {
  std::string text;
  char number[64];
  for (const toolkit::trend::CSnapshot& row : data.snapshots) {
    std::snprintf(number, sizeof number, "%u %lld %a", row.interval_minutes,
                  static_cast<long long>(row.timestamp), row.valid_ratio);
    text += number;
    for (const toolkit::trend::CSample& sample : row.samples) {
      for (const toolkit::trend::Statistic& statistic : toolkit::trend::STATISTICS) {
        const double value = sample.*statistic.member;
        std::snprintf(number, sizeof number, " %a", value);
        text += std::isnan(value) ? " -" : number;
      }
    }
    text += '\n';
  }
  return text;
}
