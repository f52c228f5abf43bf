#include "columns/header.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>

#include "columns/display_names.h"
#include "columns/statistics.h"

using toolkit::trend::CParamProperties;

int build_column_names(DumpContext& context, bool use_display_names,
                       std::vector<std::string>& columns) {
  columns.clear();
  const std::vector<CParamProperties>& params = context.device_params.params;
  std::vector<std::string> names;
  const bool has_names = use_display_names && fetch_display_names(context, names) == 0;
  for (std::size_t i = 0; i < params.size(); ++i) {
    const auto carries = [&](const Statistic& statistic) { return params[i].*statistic.flag; };
    const bool is_single = std::count_if(STATISTICS.begin(), STATISTICS.end(), carries) == 1;
    for (const Statistic& statistic : STATISTICS) {
      if (!carries(statistic)) continue;
      if (!has_names) {
        columns.push_back(params[i].path + statistic.path_suffix);
      } else {
        columns.push_back(is_single ? names[i] : names[i] + statistic.display_suffix);
      }
    }
  }
  return 0;
}

int print_header_row(DumpContext& context, const DumpOptions& options) {
  if (!options.print_header) return 0;
  std::vector<std::string> columns;
  if (build_column_names(context, options.display_names, columns) != 0) return 1;
  // Deliberate: nothing is quoted, so a comma in a name starts one more field.
  std::fputs("Date,Time", context.out);
  if (options.percent_valid) std::fputs(",Percent Valid", context.out);
  for (const std::string& column : columns) {
    std::fputc(',', context.out);
    std::fputs(column.c_str(), context.out);
  }
  std::fputc('\n', context.out);
  return 0;
}
