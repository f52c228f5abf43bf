// The header row.
#pragma once

#include <string>
#include <vector>

#include "trendlog/dump_context.h"
#include "trendlog/dump_options.h"

/// Writes the header row, unless it is not wanted. Returns 0, or 1 where the names of the columns
/// can't be built.
[[nodiscard]] int print_header_row(DumpContext& context, const DumpOptions& options);

/// Names the data columns: parameter by parameter in the order of the selection, one column per
/// statistic that the parameter carries, in the order minimum, maximum, average, actual value, sum.
/// The names are made of display names where these are wanted and can be had, and otherwise of
/// paths. Returns 0.
[[nodiscard]] int build_column_names(DumpContext& context, bool use_display_names,
                                     std::vector<std::string>& columns);
