// Dates and times as text.
#pragma once

#include <cstddef>
#include <ctime>
#include <string>

/// The size of the buffer for a date or a time, with its terminator.
inline constexpr std::size_t MAX_TIME_TEXT = 128;

/// Writes `fields` with the strftime format `format` into `text`, a buffer of MAX_TIME_TEXT bytes
/// that the caller provides. Returns the end of the text. If the text and a terminator do not fit,
/// the text is empty.
char* format_time(const std::string& format, const std::tm& fields, char* text);
