// The layout of CSV that `trendtool export` writes, which its header defines.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "trendtool/load/layout.h"

/// What the header says about the records.
struct ExportLayout {
  bool has_interval = false;
  bool has_device = false;
  bool has_percent = false;
  bool is_long = false;  ///< whether a record has a parameter, a statistic and one value
  Layout columns;        ///< of the values, unless it is long

  /// Returns the number of fields in a record before those of the values.
  [[nodiscard]] std::size_t fixed_fields() const {
    return std::size_t{1} + has_interval + has_device + has_percent;
  }
};

/// Returns what separates the fields of the file whose first line is `line`, or 0 if it does not
/// start like an export.
[[nodiscard]] char find_separator(std::string_view line);

/// Reads the fields of the header into `layout`. Returns what is wrong, or an empty text. A device
/// without parameters has rows without values, so there may be no column of values.
[[nodiscard]] std::string read_export_header(const std::vector<std::string_view>& fields,
                                             ExportLayout& layout);
