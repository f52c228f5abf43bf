#include "trendtool/load/export_loader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <utility>

#include "libtrend/statistics.h"
#include "text/column_names.h"
#include "text/csv.h"
#include "trendtool/common/statistic_names.h"
#include "trendtool/common/times.h"

using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;
using toolkit::trend::get_slot;
using toolkit::trend::STATISTICS;

namespace {

constexpr double MISSING = std::numeric_limits<double>::quiet_NaN();

/// Reads a number with a decimal point or comma. An empty field is a NaN. A number that is too
/// large for a double is an infinity, as an export writes it.
bool read_number(std::string_view field, std::string& text, double& value) {
  text.assign(field);
  std::replace(text.begin(), text.end(), ',', '.');
  if (text == "1E999" || text == "-1E999") {
    value = text[0] == '-' ? -INFINITY : INFINITY;
    return true;
  }
  return read_value(text, value);
}

/// Reads a time with an offset or "Z", or seconds since the epoch. Without an offset it is in UTC,
/// if the user said so.
std::string read_row_time(std::string_view field, bool use_utc, std::time_t& time) {
  constexpr std::size_t DATE_SIZE = 10;
  const bool is_number = field.find_first_not_of("0123456789") == field.npos;
  const bool has_offset = field.find_first_of("Zz+-", DATE_SIZE) != field.npos;
  std::string wrong;
  if (is_number) {
    wrong = read_time(std::string("@").append(field), Bound::START, true, 0, time);
  } else if (field.find_first_not_of("0123456789-+:.TZtz ") != field.npos ||
             field.starts_with('-')) {
    return quote(field) + " is not a time";
  } else if (!has_offset && !use_utc) {
    return quote(field) + " has no offset from UTC; use -u if it is in UTC";
  } else {
    wrong = read_time(field, Bound::START, true, 0, time);
  }
  if (!wrong.empty()) return quote(field) + " is not a time";
  return time > 0 ? "" : quote(field) + " is not after the epoch";
}

}  // namespace

ExportLoader::ExportLoader(const LoadOptions& options, CRecorder& recorder, RowSink& sink,
                           const ExportLayout& layout)
    : options_(options),
      recorder_(recorder),
      sink_(sink),
      layout_(layout),
      columns_(layout.columns) {}

std::string ExportLoader::prepare() {
  if (layout_.has_device) return "";
  Device* device = nullptr;
  if (std::string wrong = find_device(options_.device, device); !wrong.empty()) return wrong;
  for (std::size_t column = 0; column < columns_.columns.size(); ++column) {
    std::string wrong = find_place(*device, column, true);
    if (!wrong.empty()) return wrong;
  }
  if (layout_.has_interval) return "";
  CSeries& series = device->series[options_.minutes];
  return recorder_.add_series(device->device, options_.minutes, series) == 0 ? ""
                                                                             : recorder_.error();
}

std::string ExportLoader::find_device(std::string_view path, Device*& device) {
  const auto [entry, is_new] = devices_.try_emplace(std::string(path));
  device = &entry->second;
  if (!is_new) return "";
  if (path.empty()) return "the path of the device is empty";
  device->device.path = path;
  return recorder_.add_device(device->device) == 0 ? "" : recorder_.error();
}

void ExportLoader::collect_row_statistics() {
  for (const Value& value : values_) {
    const ValueColumn& column = columns_.columns[value.column];
    row_statistics_[column.param] |= std::uint32_t{1} << column.statistic;
  }
}

/// Finds where the values of `column` are recorded for `device`, and adds the parameter if it is
/// new. A statistic that is not recorded for the parameter is wrong only with `must_have`.
std::string ExportLoader::find_place(Device& device, std::size_t column, bool must_have) {
  if (device.places.count(column) > 0) return "";
  const ValueColumn& wanted = columns_.columns[column];
  const CParamProperties& described = columns_.params[wanted.param];
  auto known = device.known_params.find(described.path);
  if (known == device.known_params.end()) {
    CParamProperties param = described;
    if (layout_.is_long) {
      if (row_statistics_.empty()) collect_row_statistics();
      toolkit::trend::set_statistics(param, row_statistics_[wanted.param]);
    }
    if (recorder_.add_param(device.device, param) != 0) return recorder_.error();
    known = device.known_params.emplace(param.path, device.params.size()).first;
    device.slots = std::max(device.slots, get_slot(param, STATISTICS.size()));
    device.params.push_back(std::move(param));
  }
  const CParamProperties& param = device.params[known->second];
  if (!(param.*STATISTICS[wanted.statistic].flag)) {
    return must_have ? "parameter " + quote(param.path) + " exists in the database without " +
                           COLUMN_SUFFIXES[wanted.statistic]
                     : "";
  }
  device.places[column] = {known->second, wanted.statistic, get_slot(param, wanted.statistic)};
  return "";
}

std::string ExportLoader::read_start(const std::vector<std::string_view>& fields, RowStart& start) {
  std::size_t place = 1;
  if (std::string wrong = read_row_time(fields[0], options_.use_utc, start.time); !wrong.empty()) {
    return wrong;
  }
  start.minutes = options_.minutes;
  if (layout_.has_interval) {
    const std::string_view field = fields[place++];
    const auto [stop, error] =
        std::from_chars(field.data(), field.data() + field.size(), start.minutes);
    if (error != std::errc() || stop != field.data() + field.size() || start.minutes == 0) {
      return quote(field) + " is not a number of minutes";
    }
  }
  const std::string_view path = layout_.has_device ? fields[place++] : options_.device;
  if (layout_.has_percent) {
    text_.assign(fields[place]);
    std::replace(text_.begin(), text_.end(), ',', '.');
    if (!read_percent(text_, start.ratio)) {
      return quote(fields[place]) + " is not a percentage from 0 to 100";
    }
  }
  return find_device(path, start.device);
}

std::string ExportLoader::load(const std::vector<std::string_view>& fields) {
  const std::size_t fixed = layout_.fixed_fields();
  const std::size_t wanted = fixed + (layout_.is_long ? 3 : columns_.columns.size());
  if (fields.size() != wanted) return describe_fields(fields.size(), wanted);
  RowStart start;
  if (std::string wrong = read_start(fields, start); !wrong.empty()) return wrong;
  if (!layout_.is_long) {
    row_ = start;
    for (std::size_t i = 0; i < columns_.columns.size(); ++i) {
      const std::string_view field = fields[fixed + i];
      double value = MISSING;
      if (!read_number(field, text_, value)) return quote(field) + " is not a number";
      values_.push_back({i, value});
    }
    return record_row();
  }
  const std::string_view name = fields[fixed + 1];
  const bool has_value = !fields[fixed].empty() || !name.empty() || !fields[fixed + 2].empty();
  const bool is_same_row = has_value && row_.device == start.device &&
                           row_.minutes == start.minutes && row_.time == start.time;
  if (!is_same_row) {
    if (std::string wrong = finish(); !wrong.empty()) return wrong;
    row_ = start;
    ++row_number_;
  }
  if (!has_value) {
    std::string wrong = record_row();
    row_ = {};
    return wrong;
  }
  const auto* statistic = std::find(STATISTIC_NAMES.begin(), STATISTIC_NAMES.end(), name);
  if (statistic == STATISTIC_NAMES.end()) return quote(name) + " is not a statistic";
  const auto index = static_cast<std::size_t>(statistic - STATISTIC_NAMES.begin());
  return add_value(std::string(fields[fixed]) + COLUMN_SUFFIXES[index], fields[fixed + 2]);
}

/// Adds a value of the long layout to the current row.
std::string ExportLoader::add_value(std::string_view column, std::string_view field) {
  const auto [known, is_new] =
      known_columns_.try_emplace(std::string(column), columns_.columns.size());
  // It ends in the suffix of a statistic, so that nothing can be wrong with it.
  if (is_new) static_cast<void>(add_column(column, columns_));
  double value = MISSING;
  if (!read_number(field, text_, value)) return quote(field) + " is not a number";
  const std::size_t index = known->second;
  last_rows_.resize(columns_.columns.size());
  if (std::exchange(last_rows_[index], row_number_) == row_number_) {
    return "the value of " + quote(column) + " appears twice in one row";
  }
  if (values_.size() == MOST_FIELDS)
    return "the row has more than " + std::to_string(MOST_FIELDS) + " values";
  values_.push_back({index, value});
  return "";
}

std::string ExportLoader::finish() { return values_.empty() ? "" : record_row(); }

/// Records the current row with its values. Where the header does not say which parameters a device
/// has, these are the ones with values.
std::string ExportLoader::record_row() {
  Device& device = *row_.device;
  const bool is_sparse = layout_.has_device && !layout_.is_long;
  places_.clear();
  for (const Value& value : values_) {
    const bool is_known = device.places.count(value.column) > 0;
    if (!is_known && is_sparse && std::isnan(value.value)) continue;
    std::string wrong = find_place(device, value.column, !std::isnan(value.value));
    if (!wrong.empty()) return wrong;
  }
  slots_.assign(device.slots, MISSING);
  for (const Value& value : values_) {
    const auto place = device.places.find(value.column);
    if (place == device.places.end()) continue;
    places_.push_back(place->second);
    slots_[place->second.slot] = value.value;
  }
  values_.clear();
  row_statistics_.clear();
  CSeries& series = device.series[row_.minutes];
  if (series.minutes == 0 && recorder_.add_series(device.device, row_.minutes, series) != 0) {
    return recorder_.error();
  }
  return sink_.add({.device = device.device,
                    .series = series,
                    .params = device.params,
                    .places = places_,
                    .slots = slots_,
                    .time = row_.time,
                    .ratio = row_.ratio,
                    .has_ratio = layout_.has_percent});
}
