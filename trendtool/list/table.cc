#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "text/calendar.h"
#include "text/time_text.h"
#include "text/utf8.h"
#include "trendtool/common/statistic_names.h"
#include "trendtool/list/formats.h"

using toolkit::trend::CSeriesSummary;

namespace {

/// A table whose columns are as wide as their widest cells.
class Table {
 public:
  /// Starts with the names of the columns. Those of `right` are flushed right.
  Table(std::vector<std::string> names, std::vector<std::size_t> right)
      : rows_{std::move(names)}, right_(std::move(right)) {}

  void add(std::vector<std::string> cells) {
    for (std::string& cell : cells) cell = show_controls(cell);
    rows_.push_back(std::move(cells));
  }

  [[nodiscard]] std::string text() const {
    std::vector<std::size_t> widths(rows_.front().size());
    for (const auto& row : rows_) {
      for (std::size_t i = 0; i < row.size(); ++i) {
        widths[i] = std::max(widths[i], get_width(row[i]));
      }
    }
    std::string text;
    for (const auto& row : rows_) {
      std::string line;
      for (std::size_t i = 0; i < row.size(); ++i) {
        const std::string blanks(widths[i] - get_width(row[i]), ' ');
        const bool is_right = std::find(right_.begin(), right_.end(), i) != right_.end();
        line += is_right ? blanks + row[i] : row[i] + blanks;
        line += "  ";
      }
      text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
  }

 private:
  /// How many characters UTF-8 shows.
  static std::size_t get_width(const std::string& cell) {
    return static_cast<std::size_t>(std::count_if(cell.begin(), cell.end(), [](char c) {
      return (static_cast<unsigned char>(c) & 0xC0U) != 0x80;
    }));
  }

  std::vector<std::vector<std::string>> rows_;
  std::vector<std::size_t> right_;
};

/// A number of bytes in the unit that suits it.
std::string show_bytes(std::uint64_t bytes) {
  // 64 bits hold less than the last unit has room for.
  constexpr std::array UNITS = {"B", "kB", "MB", "GB", "TB", "PB", "EB"};
  constexpr double STEP = 1000;
  auto number = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; number >= STEP; ++unit) number /= STEP;
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", number, UNITS[unit]);
  return text.data();
}

/// A time for people; "-" if it is 0, where there are no rows.
class TimeWriter {
 public:
  explicit TimeWriter(bool use_utc) : use_utc_(use_utc) {}

  std::string show(std::int64_t time) {
    if (time == 0) return "-";
    // Where time_t has 32 bits, a log can have later times.
    if (!std::in_range<std::time_t>(time)) return std::string("@").append(std::to_string(time));
    const std::tm fields = calendar_.fields_at(static_cast<std::time_t>(time), use_utc_);
    std::array<char, MAX_TIME_TEXT> text;
    const std::string format = time % 60 == 0 ? "%F %R" : "%F %T";
    return {text.data(), format_time(format, fields, text.data())};
  }

 private:
  bool use_utc_;
  Calendar calendar_;
};

/// The title of a column of times.
std::string name_times(const char* name, bool use_utc) {
  return std::string(name) + (use_utc ? " (UTC)" : "");
}

std::string list_devices(const std::vector<DeviceContents>& contents, bool use_utc) {
  Table table({"device", "parameters", "intervals", "rows", name_times("first", use_utc),
               name_times("last", use_utc), "size", "description"},
              {1, 2, 3, 6});
  TimeWriter times(use_utc);
  for (const DeviceContents& entry : contents) {
    table.add({entry.device.path, std::to_string(entry.params.size()),
               std::to_string(entry.series.size()), std::to_string(entry.rows()),
               times.show(entry.first_time()), times.show(entry.last_time()),
               show_bytes(entry.bytes()), entry.device.aux_text});
  }
  return table.text();
}

std::string list_device(const DeviceContents& entry, bool use_utc) {
  const bool has_names = !entry.display_names.empty();
  std::vector<std::string> titles = {"parameter", "statistics"};
  if (has_names) titles.emplace_back("display name");
  Table params(titles, {});
  for (std::size_t i = 0; i < entry.params.size(); ++i) {
    std::vector<std::string> cells = {entry.params[i].path, join_statistics(entry.params[i])};
    if (has_names) cells.push_back(entry.display_names[i]);
    params.add(std::move(cells));
  }
  Table series(
      {"interval", "rows", name_times("first", use_utc), name_times("last", use_utc), "size"},
      {0, 1, 4});
  TimeWriter times(use_utc);
  for (const CSeriesSummary& one : entry.series) {
    series.add({std::to_string(one.minutes), std::to_string(one.rows), times.show(one.first_time),
                times.show(one.last_time), show_bytes(one.bytes)});
  }
  return params.text() + "\n" + series.text();
}

}  // namespace

std::string list_as_table(const std::vector<DeviceContents>& contents, bool is_one_device,
                          bool use_utc) {
  return is_one_device ? list_device(contents.front(), use_utc) : list_devices(contents, use_utc);
}
