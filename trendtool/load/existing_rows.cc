#include "trendtool/load/existing_rows.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

#include "libtrend/statistics.h"
#include "text/csv.h"
#include "text/number.h"

using toolkit::trend::CDeviceData;
using toolkit::trend::CSnapshot;
using toolkit::trend::STATISTICS;

namespace {

/// What reading the text of `value` with six digits gives.
double round_trip(double value) {
  std::array<char, MAX_VALUE_TEXT> text;
  const char* end = format_value(value, text.data());
  double read = value;
  // It always is a number, if it is not an infinity, which stays as it is.
  static_cast<void>(read_value({text.data(), static_cast<std::size_t>(end - text.data())}, read));
  return read;
}

bool is_same_value(double loaded, double recorded) {
  if (std::isnan(loaded)) return std::isnan(recorded);
  return loaded == recorded || loaded == round_trip(recorded);
}

bool is_same_ratio(double loaded, double recorded) {
  // The file has a percentage with two digits after the point.
  constexpr double STEP = 0.0001;
  return std::fabs(loaded - recorded) <= 0.51 * STEP;
}

bool is_same(const RowToLoad& row, const CSnapshot& recorded) {
  if (row.has_ratio && !is_same_ratio(row.ratio, recorded.valid_ratio)) return false;
  return std::all_of(row.places.begin(), row.places.end(), [&](const ValuePlace& place) {
    return is_same_value(row.slots[place.slot],
                         recorded.samples[place.param].*STATISTICS[place.statistic].member);
  });
}

}  // namespace

std::string ExistingRows::open(const std::string& path) {
  return log_.open(path, {}) == 0 ? "" : log_.error();
}

/// Reads the rows around `row`, so that the next rows need no query, whatever their order.
bool ExistingRows::read_window(const RowToLoad& row, Window& window) {
  constexpr long MAX_LENGTH = 100'000'000;
  // Fewer rows if they are wide, so that a window has a few hundred thousand samples at most.
  constexpr std::size_t ROWS = 512;
  constexpr std::size_t SAMPLES = 100'000;
  const std::size_t rows = std::clamp<std::size_t>(SAMPLES / (row.params.size() + 1), 2, ROWS);
  const long length = static_cast<long>(std::min<std::int64_t>(
      static_cast<std::int64_t>(rows) * 60 * row.series.minutes, MAX_LENGTH));
  window = {};
  window.first = std::max(static_cast<long>(row.time) - length, 1L);
  constexpr std::int64_t LAST = std::numeric_limits<long>::max();
  window.last = static_cast<long>(std::min<std::int64_t>(row.time, LAST - length)) + length;
  window.params = row.params.size();
  CDeviceData data;
  if (log_.get_trend_data(data, {row.device, row.params}, {{.interval = row.series.minutes}},
                          {window.first, window.last}, 0, 0, true, true) != 0) {
    return false;
  }
  for (CSnapshot& snapshot : data.snapshots) {
    samples_ += snapshot.samples.size();
    window.rows.emplace(snapshot.timestamp, std::move(snapshot));
  }
  return true;
}

ExistingRows::Result ExistingRows::compare(const RowToLoad& row) {
  // With many series, their windows would fill the memory.
  if (samples_ > most_samples_) {
    windows_.clear();
    samples_ = 0;
  }
  Window& window = windows_[row.series.id];
  const bool is_inside = row.time >= window.first && row.time <= window.last;
  if ((!is_inside || window.params != row.params.size()) && !read_window(row, window)) {
    windows_.erase(row.series.id);
    return Result::FAILED;
  }
  const auto recorded = window.rows.find(row.time);
  if (recorded == window.rows.end()) return Result::MISSING;
  return is_same(row, recorded->second) ? Result::SAME : Result::OTHER;
}
