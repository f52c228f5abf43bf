#include "trendtool/load/export_layout.h"

namespace {

constexpr std::string_view TIME = "time";

/// Goes to the next field if the current one is `name`. Returns whether it is.
bool take(const std::vector<std::string_view>& fields, std::size_t& place, std::string_view name) {
  if (place >= fields.size() || fields[place] != name) return false;
  ++place;
  return true;
}

}  // namespace

char find_separator(std::string_view line) {
  if (!line.starts_with(TIME) || line.size() == TIME.size()) return 0;
  const char separator = line[TIME.size()];
  return std::string_view(",;|\t").find(separator) != std::string_view::npos ? separator : '\0';
}

std::string read_export_header(const std::vector<std::string_view>& fields, ExportLayout& layout) {
  if (std::string wrong = check_header_size(fields.size()); !wrong.empty()) return wrong;
  std::size_t place = 1;  // after the time
  layout.has_interval = take(fields, place, "interval");
  layout.has_device = take(fields, place, "device");
  layout.has_percent = take(fields, place, "percent_valid");
  layout.is_long = fields.size() == place + 3 && fields[place] == "parameter" &&
                   fields[place + 1] == "statistic" && fields[place + 2] == "value";
  if (layout.is_long) return "";
  for (; place < fields.size(); ++place) {
    if (std::string wrong = add_column(fields[place], layout.columns); !wrong.empty()) return wrong;
  }
  return "";
}
