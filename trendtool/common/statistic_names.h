// The names of the statistics of a parameter.
#pragma once

#include <array>
#include <string>

#include "libtrend/statistics.h"

/// One name for each of `toolkit::trend::STATISTICS`, in that order.
inline constexpr std::array STATISTIC_NAMES = {"min", "max", "avg", "actual", "sum"};
static_assert(STATISTIC_NAMES.size() == toolkit::trend::STATISTICS.size());

/// Returns the names of the statistics of `param`, separated by blanks.
[[nodiscard]] std::string join_statistics(const toolkit::trend::CParamProperties& param);
