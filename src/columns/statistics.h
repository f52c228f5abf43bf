// The statistics that a parameter may carry, in the order of their columns.
#pragma once

#include <array>

#include "libtrend/log.h"

/// A statistic, and the end of its column's name.
struct Statistic {
  bool toolkit::trend::CParamProperties::*flag;
  const char* display_suffix;  ///< after a display name
  const char* path_suffix;     ///< after a path
};

inline constexpr std::array STATISTICS = {
    Statistic{&toolkit::trend::CParamProperties::has_min, " (min)", ":.ValueIntMin"},
    Statistic{&toolkit::trend::CParamProperties::has_max, " (max)", ":.ValueIntMax"},
    Statistic{&toolkit::trend::CParamProperties::has_avg, " (avg)", ":.ValueIntAvg"},
    Statistic{&toolkit::trend::CParamProperties::has_actual, " (actual)", ":Value"},
    Statistic{&toolkit::trend::CParamProperties::has_sum, " (sum)", ":.ValueIntSum"},
};
