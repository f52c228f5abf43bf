// The layout of the CSV to load, which its header defines.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "libtrend/records.h"

/// A column of values: one statistic of one parameter.
struct ValueColumn {
  std::size_t param = 0;      ///< index into `Layout::params`
  std::size_t statistic = 0;  ///< index into `toolkit::trend::STATISTICS`
};

/// What the header says about the rows.
struct Layout {
  bool has_percent = false;
  std::vector<toolkit::trend::CParamProperties>
      params;                        ///< with the flags of the statistics that have columns
  std::vector<ValueColumn> columns;  ///< in the order of the fields

  /// Returns the number of fields in a row before the first value.
  [[nodiscard]] std::size_t fixed_fields() const { return has_percent ? 3 : 2; }
};

/// Adds the column of values that `field` names, with the parameter that it is of. Returns what is
/// wrong with it, or an empty text.
[[nodiscard]] std::string add_column(std::string_view field, Layout& layout);

/// Reads the header into `layout`. Returns what is wrong with it, or an empty text.
[[nodiscard]] std::string read_header(std::string_view line, Layout& layout);
