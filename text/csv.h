// Reading the lines of CSV that trendcsv prints.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Returns a piece of input in the form in which messages show it: in quotes, and only the first
/// 4096 bytes of it.
[[nodiscard]] std::string quote(std::string_view text);

/// The most fields that a line is split into: a value in each slot that a device can have, and four
/// fields before them.
inline constexpr std::size_t MOST_FIELDS = 65'535 + 4;

/// Splits a line at every comma. The fields are parts of `line` and valid for as long as it is. If
/// there are more than `MOST_FIELDS`, one field more has all the rest.
[[nodiscard]] std::vector<std::string_view> split_fields(std::string_view line);

/// The same at each `separator`, with the fields in `fields` in place of what was there.
void split_fields(std::string_view line, char separator, std::vector<std::string_view>& fields);

/// Reads a number that trendcsv printed, and sets `value` to one that prints as the same text
/// again. An empty field is a NaN. Returns false for text that is not a number.
[[nodiscard]] bool read_value(std::string_view field, double& value);

/// Reads a percentage, and sets `ratio` to it as a number from 0 to 1. Returns false for anything
/// else.
[[nodiscard]] bool read_percent(std::string_view field, double& ratio);
