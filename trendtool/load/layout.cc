#include "trendtool/load/layout.h"

#include <algorithm>

#include "libtrend/statistics.h"
#include "text/column_names.h"
#include "text/csv.h"

using toolkit::trend::STATISTICS;

static_assert(COLUMN_SUFFIXES.size() == STATISTICS.size());

std::string add_column(std::string_view field, Layout& layout) {
  const std::size_t colon = field.rfind(':');
  const auto* suffix =
      std::find_if(COLUMN_SUFFIXES.begin(), COLUMN_SUFFIXES.end(), [&](const char* candidate) {
        return colon != field.npos && field.substr(colon) == candidate;
      });
  if (suffix == COLUMN_SUFFIXES.end()) {
    return "column " + quote(field) + " is not a parameter path with a colon and a statistic";
  }
  const std::string_view path = field.substr(0, colon);
  auto param = std::find_if(layout.params.begin(), layout.params.end(),
                            [&](const auto& candidate) { return candidate.path == path; });
  if (param == layout.params.end()) {
    layout.params.emplace_back().path = path;
    param = layout.params.end() - 1;
  }
  const auto statistic = static_cast<std::size_t>(suffix - COLUMN_SUFFIXES.begin());
  bool& has_column = (*param).*STATISTICS[statistic].flag;
  if (has_column) return "column " + quote(field) + " appears twice";
  has_column = true;
  layout.columns.push_back({static_cast<std::size_t>(param - layout.params.begin()), statistic});
  return "";
}

std::string read_header(std::string_view line, Layout& layout) {
  const std::vector<std::string_view> fields = split_fields(line);
  if (fields.size() < 2 || fields[0] != "Date" || fields[1] != "Time") {
    return "the header does not start with Date,Time";
  }
  if (line.find('\0') != line.npos) return "the header contains a zero byte";
  layout.has_percent = fields.size() > 2 && fields[2] == "Percent Valid";
  for (std::size_t i = layout.fixed_fields(); i < fields.size(); ++i) {
    if (std::string wrong = add_column(fields[i], layout); !wrong.empty()) return wrong;
  }
  return layout.columns.empty() ? "the header has no parameter column" : "";
}
