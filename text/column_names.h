// The names of CSV columns that are made from the paths of parameters.
#pragma once

#include <array>

/// What is added to the path of a parameter in the name of a column: one suffix for each statistic,
/// in the order minimum, maximum, average, actual value, sum.
inline constexpr std::array COLUMN_SUFFIXES = {":.ValueIntMin", ":.ValueIntMax", ":.ValueIntAvg",
                                               ":Value", ":.ValueIntSum"};
