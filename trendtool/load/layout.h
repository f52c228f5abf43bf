// The layout of the CSV to load, which its header defines.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
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
      params;  ///< with the flags of the statistics that have columns
  std::map<std::string, std::size_t, std::less<>> param_places;  ///< by path, index into `params`
  std::vector<ValueColumn> columns;                              ///< in the order of the fields

  /// Returns the number of fields in a row before the first value.
  [[nodiscard]] std::size_t fixed_fields() const { return has_percent ? 3 : 2; }
};

/// Returns what is wrong with a record that `split_fields` has split into `fields` fields if the
/// header has `wanted`.
[[nodiscard]] std::string describe_fields(std::size_t fields, std::size_t wanted);

/// Returns what is wrong with a header of so many fields, or an empty text.
[[nodiscard]] std::string check_header_size(std::size_t fields);

/// Adds the column of values that `field` names, with the parameter that it is of. Returns what is
/// wrong with it, or an empty text.
[[nodiscard]] std::string add_column(std::string_view field, Layout& layout);

/// Reads the header into `layout`. Returns what is wrong with it, or an empty text.
[[nodiscard]] std::string read_header(std::string_view line, Layout& layout);
