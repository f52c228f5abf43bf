#include "tests/support/model.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>

namespace {

using std::chrono::days;
using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::sys_seconds;
using std::chrono::year_month_day;

constexpr int STATISTIC_COUNT = 5;
constexpr const char* SUFFIXES[STATISTIC_COUNT] = {":.ValueIntMin", ":.ValueIntMax",
                                                   ":.ValueIntAvg", ":Value", ":.ValueIntSum"};

std::string print(const char* format, auto... values) {
  char text[400];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

std::chrono::year year_of(std::int64_t time) {
  return year_month_day(std::chrono::floor<days>(sys_seconds(seconds(time)))).year();
}

/// Two o'clock on a Sunday of a month, as if the zone were UTC.
std::int64_t sunday_at_two(std::chrono::year year, unsigned month, unsigned which) {
  const auto day = year / std::chrono::month(month) / std::chrono::Sunday[which];
  return std::chrono::duration_cast<seconds>(sys_days(day).time_since_epoch()).count() + 7200;
}

/// `time` as text. It is local time, in seconds since 1970. Supports only the conversions that the
/// tests use.
std::string format_time(const std::string& format, std::int64_t time) {
  const sys_seconds point{seconds(time)};
  const auto midnight = std::chrono::floor<days>(point);
  const year_month_day date(midnight);
  const int year = static_cast<int>(date.year());
  const auto month = static_cast<unsigned>(date.month());
  const auto day = static_cast<unsigned>(date.day());
  const auto second = static_cast<int>((point - midnight).count());
  std::string text;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') {
      text += format[i];
      continue;
    }
    switch (format[++i]) {
      case 'F':
        text += print("%04d-%02u-%02u", year, month, day);
        break;
      case 'R':
        text += print("%02d:%02d", second / 3600, second / 60 % 60);
        break;
      case 'T':
        text += print("%02d:%02d:%02d", second / 3600, second / 60 % 60, second % 60);
        break;
      case 'Y':
        text += print("%04d", year);
        break;
      case 'm':
        text += print("%02u", month);
        break;
      case 'd':
        text += print("%02u", day);
        break;
      case 'H':
        text += print("%02d", second / 3600);
        break;
      default:
        text += '%';
    }
  }
  return text;
}

std::string format_number(double value) {
  if (std::isnan(value)) return "";
  int precision = 6;
  if (value != 0 && !std::isinf(value)) {
    const int digits = static_cast<int>(std::log10(std::fabs(value))) + 1;
    if (digits > 5) precision = digits;
  }
  return print("%.*G", precision, value);
}

/// The parameters to dump, as indices into those of the log.
std::vector<std::size_t> selected_params(const ModelLog& log, const DumpRequest& request) {
  std::vector<std::size_t> selected;
  const auto place = [&](const std::string& path) {
    std::size_t i = 0;
    while (log.params[i].path != path) ++i;
    return i;
  };
  if (!request.params.empty()) {
    // The distinct names in order, then every further occurrence of a name.
    std::vector<std::string> names = request.params;
    std::sort(names.begin(), names.end());
    std::vector<std::string> surplus;
    for (std::size_t i = 0; i < names.size(); ++i) {
      if (i > 0 && names[i] == names[i - 1]) {
        surplus.push_back(names[i]);
      } else {
        selected.push_back(place(names[i]));
      }
    }
    for (const std::string& name : surplus) selected.push_back(place(name));
    return selected;
  }
  for (std::size_t i = 0; i < log.params.size(); ++i) selected.push_back(i);
  // Names of the top level first, then folder by folder. Correct for paths with at most one '/'.
  const auto is_nested = [&](std::size_t i) {
    return log.params[i].path.find('/') != std::string::npos;
  };
  std::sort(selected.begin(), selected.end(), [&](std::size_t a, std::size_t b) {
    if (is_nested(a) != is_nested(b)) return !is_nested(a);
    return log.params[a].path < log.params[b].path;
  });
  return selected;
}

std::string format_row(const ModelLog& log, const DumpRequest& request,
                       const std::vector<std::size_t>& params, const ModelRow& row) {
  std::int64_t time = row.time;
  if (request.interval_begin) time -= std::int64_t{60} * row.minutes;
  if (!request.use_utc) time += request.zone.offset(time);
  std::string line = format_time(request.date_format.empty() ? "%F" : request.date_format, time) +
                     "," +
                     format_time(request.time_format.empty() ? "%R" : request.time_format, time);
  if (request.percent_valid) line += print(",%.2f", row.ratio * 100);
  for (const std::size_t param : params) {
    std::size_t slot = 0;
    for (std::size_t i = 0; i < param; ++i) {
      slot += static_cast<std::size_t>(std::popcount(log.params[i].statistics));
    }
    for (int i = 0; i < STATISTIC_COUNT; ++i) {
      if ((log.params[param].statistics >> i & 1) == 0) continue;
      line += ",";
      if (slot < row.values.size()) line += format_number(row.values[slot]);
      ++slot;
    }
  }
  return line + "\n";
}

std::string format_header(const ModelLog& log, const DumpRequest& request,
                          const std::vector<std::size_t>& params) {
  std::string line = request.percent_valid ? "Date,Time,Percent Valid" : "Date,Time";
  for (const std::size_t param : params) {
    for (int i = 0; i < STATISTIC_COUNT; ++i) {
      if ((log.params[param].statistics >> i & 1) == 0) continue;
      line += "," + log.params[param].path + SUFFIXES[i];
    }
  }
  return line + "\n";
}

/// Removes the first `offset` rows, and keeps `count` of the others, or all of them if `count` is
/// 0.
void keep(std::vector<ModelRow>& rows, std::size_t offset, std::size_t count) {
  rows.erase(rows.begin(), rows.begin() + static_cast<long>(std::min(offset, rows.size())));
  if (count != 0 && count < rows.size()) rows.resize(count);
}

}  // namespace

int Zone::offset(std::int64_t time) const {
  if (start_month == 0) return standard;
  const std::chrono::year year = year_of(time + standard);
  const std::int64_t start = sunday_at_two(year, start_month, start_sunday) - standard;
  const std::int64_t end = sunday_at_two(year, end_month, end_sunday) - summer;
  const bool is_summer = start < end ? start <= time && time < end : !(end <= time && time < start);
  return is_summer ? summer : standard;
}

bool Zone::is_near_change(std::int64_t time) const {
  return offset(time - 7200) != offset(time + 7200);
}

std::int64_t utc(int year, unsigned month, unsigned day, int hour, int minute) {
  const sys_days date = std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day);
  return std::chrono::duration_cast<seconds>(date.time_since_epoch()).count() + 3600 * hour +
         60 * minute;
}

std::vector<std::string> DumpRequest::arguments(const std::string& db,
                                                const std::string& device) const {
  std::vector<std::string> result = {"-x", db, "-d", device};
  const auto add = [&](const char* option, const std::string& value) {
    result.insert(result.end(), {option, value});
  };
  const auto add_time = [&](const char* option, std::int64_t time) {
    const std::int64_t shown = use_utc ? time : time + zone.offset(time);
    add(option, format_time(input_format.empty() ? "%F %R" : input_format, shown));
  };
  for (const std::string& param : params) add("-p", param);
  for (const std::uint32_t interval : intervals) add("-i", std::to_string(interval));
  if (start) add_time("-s", *start);
  if (end) add_time("-e", *end);
  if (!input_format.empty()) add("-t", input_format);
  if (max_records != 0) add("-m", std::to_string(max_records));
  if (offset != 0) add("-o", std::to_string(offset));
  if (chunk_size) add("-c", std::to_string(*chunk_size));
  if (!date_format.empty()) add("-w", date_format);
  if (!time_format.empty()) add("-y", time_format);
  if (use_utc) result.emplace_back("-u");
  if (ascending) result.emplace_back("-a");
  if (reverse) result.emplace_back("-r");
  if (interval_begin) result.emplace_back("-b");
  if (percent_valid) result.emplace_back("-pv");
  if (!header) result.emplace_back("-nh");
  return result;
}

std::vector<ModelRow> visible_rows(const ModelLog& log,
                                   const std::vector<std::uint32_t>& intervals) {
  const auto is_selected = [&](const ModelRow& row) {
    const std::uint32_t smallest = log.minutes.front();
    return intervals.empty() ||
           std::any_of(intervals.begin(), intervals.end(), [&](std::uint32_t interval) {
             return row.minutes == (interval == 0 ? smallest : interval);
           });
  };
  std::vector<ModelRow> visible;
  for (const ModelRow& row : log.rows) {
    const std::int64_t begin = row.time - std::int64_t{60} * row.minutes;
    const bool is_hidden = std::any_of(log.rows.begin(), log.rows.end(), [&](const auto& other) {
      return is_selected(other) && other.minutes < row.minutes && begin < other.time &&
             other.time <= row.time;
    });
    if (is_selected(row) && !is_hidden) visible.push_back(row);
  }
  std::sort(visible.begin(), visible.end(),
            [](const ModelRow& a, const ModelRow& b) { return a.time < b.time; });
  return visible;
}

std::pair<std::string, int> expected_dump(const ModelLog& log, const DumpRequest& request) {
  std::vector<ModelRow> rows = visible_rows(log, request.intervals);
  std::erase_if(rows, [&](const ModelRow& row) {
    return (request.start && row.time < *request.start) || (request.end && row.time > *request.end);
  });
  const bool oldest_first = request.ascending != request.reverse;
  // Without chunks, rows are counted in the order in which they are printed.
  const bool counts_from_oldest = request.chunk_size == 0U ? oldest_first : request.ascending;
  if (!counts_from_oldest) std::reverse(rows.begin(), rows.end());
  keep(rows, request.offset, request.max_records);
  if (counts_from_oldest != oldest_first) std::reverse(rows.begin(), rows.end());

  const std::vector<std::size_t> params = selected_params(log, request);
  std::string text = request.header ? format_header(log, request, params) : "";
  for (const ModelRow& row : rows) text += format_row(log, request, params, row);
  const bool is_limit_met = request.max_records != 0 && rows.size() == request.max_records;
  return {text, is_limit_met ? 0 : 1};
}

ProcessResult run_dump_tool(const std::string& db, const std::string& device,
                            const DumpRequest& request) {
  return run_tool("trendcsv", request.arguments(db, device), "", {{"TZ", request.zone.name}});
}
