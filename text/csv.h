// Reading lines of CSV as trendcsv prints it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Returns a piece of input as messages show it.
[[nodiscard]] std::string quote(std::string_view text);

/// Splits a line at every comma. The fields are parts of `line`.
[[nodiscard]] std::vector<std::string_view> split_fields(std::string_view line);

/// Reads a number as trendcsv prints it, so that it prints as the same text again. An empty field
/// is a NaN. Returns false for text that is not a number.
[[nodiscard]] bool read_value(std::string_view field, double& value);

/// Reads a percentage as a share from 0 to 1. Returns false for anything else.
[[nodiscard]] bool read_percent(std::string_view field, double& ratio);
