#include "trendtool/load/row_loader.h"

#include <algorithm>
#include <ctime>
#include <limits>

#include "libtrend/statistics.h"
#include "text/column_names.h"
#include "text/csv.h"

using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;

namespace {

void join_time(const std::vector<std::string_view>& fields, std::string& time) {
  time.assign(fields[0]).append(" ").append(fields[1]);
}

}  // namespace

RowLoader::RowLoader(const LoadOptions& options, CRecorder& recorder, RowSink& sink,
                     const Layout& layout)
    : options_(options),
      recorder_(recorder),
      sink_(sink),
      layout_(layout),
      clock_(options.time_format, options.use_utc),
      params_(layout.params) {}

bool RowLoader::prepare() {
  device_.path = options_.device;
  if (recorder_.add_device(device_) != 0) return false;
  for (CParamProperties& param : params_) {
    if (recorder_.add_param(device_, param) != 0) return false;
  }
  return recorder_.add_series(device_, options_.minutes, series_) == 0;
}

std::string RowLoader::find_slots() {
  std::size_t slots = 0;
  for (const ValueColumn& column : layout_.columns) {
    const CParamProperties& param = params_[column.param];
    if (!(param.*toolkit::trend::STATISTICS[column.statistic].flag)) {
      return "parameter " + quote(param.path) + " exists in the database without " +
             COLUMN_SUFFIXES[column.statistic];
    }
    places_.push_back(
        {column.param, column.statistic, toolkit::trend::get_slot(param, column.statistic)});
    slots = std::max(slots, places_.back().slot + 1);
  }
  values_.assign(slots, std::numeric_limits<double>::quiet_NaN());
  return "";
}

bool RowLoader::look_ahead(std::string_view line) {
  split_fields(line, ',', fields_);
  if (fields_.size() < 2) return false;
  join_time(fields_, time_);
  return clock_.look_ahead(time_);
}

std::string RowLoader::load(std::string_view line) {
  split_fields(line, ',', fields_);
  const std::size_t wanted = layout_.fixed_fields() + layout_.columns.size();
  if (fields_.size() != wanted) return describe_fields(fields_.size(), wanted);
  std::time_t time = 0;
  join_time(fields_, time_);
  if (std::string wrong = clock_.convert(time_, time); !wrong.empty()) return wrong;
  double ratio = 1;
  if (layout_.has_percent && !read_percent(fields_[2], ratio)) {
    return quote(fields_[2]) + " is not a percentage from 0 to 100";
  }
  for (std::size_t i = 0; i < places_.size(); ++i) {
    const std::string_view field = fields_[layout_.fixed_fields() + i];
    if (!read_value(field, values_[places_[i].slot])) return quote(field) + " is not a number";
  }
  return sink_.add({.device = device_,
                    .series = series_,
                    .params = params_,
                    .places = places_,
                    .slots = values_,
                    .time = time,
                    .ratio = ratio,
                    .has_ratio = layout_.has_percent});
}
