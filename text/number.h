// Numbers as text.
#pragma once

#include <cstddef>

/// The length of the longest text that format_value writes: a sign and the 309 digits of the
/// largest double.
inline constexpr std::size_t MAX_VALUE_TEXT = 310;

/// Writes `v` with six significant digits, or with all digits before its point if these are more
/// than six. The text is that of printf's "%.*G" in the "C" locale with the precision max(6,
/// trunc(log10(|v|)) + 1), without a terminator. The caller provides a buffer of MAX_VALUE_TEXT
/// bytes. Returns the end of the text; the bytes after it may have changed too.
char* format_value(double v, char* buffer);
