#include "trendtool/load/layout.h"

#include <algorithm>

#include "libtrend/statistics.h"
#include "text/column_names.h"
#include "text/csv.h"

using toolkit::trend::STATISTICS;

static_assert(COLUMN_SUFFIXES.size() == STATISTICS.size());

std::string describe_fields(std::size_t fields, std::size_t wanted) {
  const bool is_counted = fields <= MOST_FIELDS;
  return (is_counted ? "" : "more than ") + std::to_string(is_counted ? fields : MOST_FIELDS) +
         " fields, but the header has " + std::to_string(wanted);
}

std::string check_header_size(std::size_t fields) {
  return fields <= MOST_FIELDS
             ? ""
             : "the header has more than " + std::to_string(MOST_FIELDS) + " fields";
}

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
  auto place = layout.param_places.find(path);
  if (place == layout.param_places.end()) {
    place = layout.param_places.emplace(path, layout.params.size()).first;
    layout.params.emplace_back().path = path;
  }
  const auto statistic = static_cast<std::size_t>(suffix - COLUMN_SUFFIXES.begin());
  bool& has_column = layout.params[place->second].*STATISTICS[statistic].flag;
  if (has_column) return "column " + quote(field) + " appears twice";
  has_column = true;
  layout.columns.push_back({place->second, statistic});
  return "";
}

std::string read_header(std::string_view line, Layout& layout) {
  const std::vector<std::string_view> fields = split_fields(line);
  if (fields.size() < 2 || fields[0] != "Date" || fields[1] != "Time") {
    return "the header does not start with Date,Time";
  }
  if (std::string wrong = check_header_size(fields.size()); !wrong.empty()) return wrong;
  if (line.find('\0') != line.npos) return "the header contains a zero byte";
  layout.has_percent = fields.size() > 2 && fields[2] == "Percent Valid";
  for (std::size_t i = layout.fixed_fields(); i < fields.size(); ++i) {
    if (std::string wrong = add_column(fields[i], layout); !wrong.empty()) return wrong;
  }
  return layout.columns.empty() ? "the header has no parameter column" : "";
}
