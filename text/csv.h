// Reading the lines of CSV that trendcsv prints.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Returns a piece of input in the form in which messages show it.
[[nodiscard]] std::string quote(std::string_view text);

/// Splits a line at every comma. The fields are parts of `line` and valid for as long as it is.
[[nodiscard]] std::vector<std::string_view> split_fields(std::string_view line);

/// Reads a number that trendcsv printed, and sets `value` to one that prints as the same text
/// again. An empty field is a NaN. Returns false for text that is not a number.
[[nodiscard]] bool read_value(std::string_view field, double& value);

/// Reads a percentage, and sets `ratio` to it as a number from 0 to 1. Returns false for anything
/// else.
[[nodiscard]] bool read_percent(std::string_view field, double& ratio);
