// The header row.
#pragma once

#include <string>
#include <vector>

#include "trendlog/dump_context.h"
#include "trendlog/dump_options.h"

/// Writes the header row to `context.out`, unless `options` say that there is to be none. Returns
/// 0, or 1 if the names of the columns can't be built. Write errors are ignored.
[[nodiscard]] int print_header_row(DumpContext& context, const DumpOptions& options);

/// Appends the names of the columns of `param` to `columns`: one per statistic that it carries, in
/// the order minimum, maximum, average, actual value, sum. They are made from `display_name` or, if
/// that is null, from the path.
void append_column_names(const toolkit::trend::CParamProperties& param,
                         const std::string* display_name, std::vector<std::string>& columns);

/// Sets `columns` to the names of the data columns: for each selected parameter in turn what
/// `append_column_names` appends. With `use_display_names` the names are made from display names.
/// Without it, or if the display names can't be read, they are made from paths. Returns 0.
[[nodiscard]] int build_column_names(DumpContext& context, bool use_display_names,
                                     std::vector<std::string>& columns);
