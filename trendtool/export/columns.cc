#include "trendtool/export/columns.h"

#include <algorithm>
#include <map>
#include <utility>

#include "columns/header.h"
#include "libtrend/statistics.h"

using toolkit::trend::CParamProperties;
using toolkit::trend::STATISTICS;

std::vector<Column> make_columns(const std::vector<std::vector<std::string>>& names,
                                 std::vector<ExportDevice>& devices) {
  std::vector<Column> columns;
  std::map<std::pair<std::string, std::size_t>, std::size_t> places;
  for (std::size_t device = 0; device < devices.size(); ++device) {
    std::vector<Cell>& cells = devices[device].cells;
    const std::vector<CParamProperties>& params = devices[device].selection.params;
    for (std::size_t i = 0; i < params.size(); ++i) {
      const std::string* name = names[device].empty() ? nullptr : &names[device][i];
      std::vector<std::string> column_names;
      append_column_names(params[i], name, column_names);
      auto column_name = column_names.begin();
      for (std::size_t k = 0; k < STATISTICS.size(); ++k) {
        if (!(params[i].*STATISTICS[k].flag)) continue;
        const auto [place, is_new] = places.try_emplace({params[i].path, k}, columns.size());
        if (is_new) {
          columns.push_back(
              {params[i].path, k, name == nullptr ? params[i].path : *name, *column_name});
        }
        ++column_name;
        cells.push_back({place->second, i, STATISTICS[k].member});
      }
    }
    std::sort(cells.begin(), cells.end(),
              [](const Cell& a, const Cell& b) { return a.column < b.column; });
  }
  return columns;
}
