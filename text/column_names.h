// How the columns of the CSV are named by parameter paths.
#pragma once

#include <array>

/// What follows the path of a parameter in the name of a column: one suffix per statistic, in the
/// order minimum, maximum, average, actual value, sum.
inline constexpr std::array COLUMN_SUFFIXES = {":.ValueIntMin", ":.ValueIntMax", ":.ValueIntAvg",
                                               ":Value", ":.ValueIntSum"};
