// Numbers as text.
#pragma once

#include <cstddef>

/// What the longest text of `format_value` takes: a sign, and the 309 digits of the largest double.
inline constexpr std::size_t MAX_VALUE_TEXT = 310;

/// Writes `v`, which is no NaN, with six significant digits or, from a million on, all digits of
/// its integer part. Writes no terminator; returns the end of the text.
char* format_value(double v, char* text);
