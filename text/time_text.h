// Dates and times as text.
#pragma once

#include <cstddef>
#include <ctime>
#include <string>

/// The size of the buffer for a date or a time, terminator included.
inline constexpr std::size_t MAX_TIME_TEXT = 128;

/// Writes `fields` under the strftime format `format` into `text`, which has MAX_TIME_TEXT bytes,
/// and returns the end of the text. Gives no text where it would not fit with a terminator.
char* format_time(const std::string& format, const std::tm& fields, char* text);
