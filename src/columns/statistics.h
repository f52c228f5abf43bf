// The statistics that a parameter may carry, in the order of their columns.
#pragma once

#include <array>

#include "libtrend/log.h"

/// A statistic, and what its column's name ends in.
struct Statistic {
  bool toolkit::trend::CParamProperties::*flag;
  const char* display_suffix;  ///< behind a display name
  const char* path_suffix;     ///< behind a path
};

inline constexpr std::array STATISTICS = {
    Statistic{&toolkit::trend::CParamProperties::has_min, " (min)", ":.ValueIntMin"},
    Statistic{&toolkit::trend::CParamProperties::has_max, " (max)", ":.ValueIntMax"},
    Statistic{&toolkit::trend::CParamProperties::has_avg, " (avg)", ":.ValueIntAvg"},
    Statistic{&toolkit::trend::CParamProperties::has_actual, " (actual)", ":Value"},
    Statistic{&toolkit::trend::CParamProperties::has_sum, " (sum)", ":.ValueIntSum"},
};
