// The names of the statistics of a parameter.
#pragma once

#include <array>

#include "libtrend/statistics.h"

/// One name for each of `toolkit::trend::STATISTICS`, in that order.
inline constexpr std::array STATISTIC_NAMES = {"min", "max", "avg", "actual", "sum"};
static_assert(STATISTIC_NAMES.size() == toolkit::trend::STATISTICS.size());
