// The layout of the CSV that trendcsv prints: columns and fields.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "libtrend/log.h"

/// A column of values: one statistic of one parameter.
struct ValueColumn {
  std::size_t param = 0;      ///< index into `Layout::params`
  std::size_t statistic = 0;  ///< index into `STATISTICS`
};

/// What the header says of the rows.
struct Layout {
  bool has_percent = false;
  std::vector<toolkit::trend::CParamProperties> params;  ///< with the flags that have columns
  std::vector<ValueColumn> columns;                      ///< in the order of the fields

  /// The number of fields in a row before the first value.
  [[nodiscard]] std::size_t fixed_fields() const { return has_percent ? 3 : 2; }
};

/// A piece of input as messages show it.
[[nodiscard]] std::string quote(std::string_view text);

/// Splits a line at every comma.
[[nodiscard]] std::vector<std::string_view> split_fields(std::string_view line);

/// Reads the header. Returns what is wrong with it, nothing for a good one.
[[nodiscard]] std::string read_header(std::string_view line, Layout& layout);

/// Reads a number as trendcsv prints it, so that it prints as the same text again; an empty field
/// is a NaN. Returns false for text that is no number.
[[nodiscard]] bool read_value(std::string_view field, double& value);

/// Reads a percentage as a share from 0 to 1. Returns false for anything else.
[[nodiscard]] bool read_percent(std::string_view field, double& ratio);
