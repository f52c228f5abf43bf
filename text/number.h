// Numbers as text.
#pragma once

#include <cstddef>

/// Longest text that format_value writes: a sign and the 309 digits of the largest double.
inline constexpr std::size_t MAX_VALUE_TEXT = 310;

/// Writes v to six significant digits, or to all its integer digits where it has more, and returns
/// the end of the text: printf's "%.*G" in the "C" locale with the precision
/// max(6, trunc(log10(|v|)) + 1). No terminator is written. The buffer has MAX_VALUE_TEXT bytes;
/// those behind the returned end may have been overwritten.
char* format_value(double v, char* buffer);
