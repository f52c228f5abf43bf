#include "columns/header.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>

#include "columns/display_names.h"
#include "libtrend/statistics.h"
#include "text/column_names.h"

using toolkit::trend::CParamProperties;
using toolkit::trend::Statistic;
using toolkit::trend::STATISTICS;

namespace {

/// What is added to a display name in the name of a column, in the order of `STATISTICS`.
constexpr std::array DISPLAY_SUFFIXES = {" (min)", " (max)", " (avg)", " (actual)", " (sum)"};
static_assert(DISPLAY_SUFFIXES.size() == STATISTICS.size());
static_assert(COLUMN_SUFFIXES.size() == STATISTICS.size());

}  // namespace

void append_column_names(const CParamProperties& param, const std::string* display_name,
                         std::vector<std::string>& columns) {
  const auto carries = [&](const Statistic& statistic) { return param.*statistic.flag; };
  const bool is_single = std::count_if(STATISTICS.begin(), STATISTICS.end(), carries) == 1;
  for (std::size_t k = 0; k < STATISTICS.size(); ++k) {
    if (!carries(STATISTICS[k])) continue;
    if (display_name == nullptr) {
      columns.push_back(param.path + COLUMN_SUFFIXES[k]);
    } else {
      columns.push_back(is_single ? *display_name : *display_name + DISPLAY_SUFFIXES[k]);
    }
  }
}

int build_column_names(DumpContext& context, bool use_display_names,
                       std::vector<std::string>& columns) {
  columns.clear();
  const std::vector<CParamProperties>& params = context.device_params.params;
  std::vector<std::string> names;
  const bool has_names = use_display_names && fetch_display_names(context, names) == 0;
  for (std::size_t i = 0; i < params.size(); ++i) {
    append_column_names(params[i], has_names ? &names[i] : nullptr, columns);
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
