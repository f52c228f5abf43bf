#include "trendtool/plot/curve.h"

#include <algorithm>
#include <cmath>
#include <limits>

using toolkit::trend::CSample;
using toolkit::trend::CSnapshot;
using toolkit::trend::STATISTICS;

namespace {

constexpr double NAN_VALUE = std::numeric_limits<double>::quiet_NaN();
/// gnuplot can't choose a scale for values from here on.
constexpr double TOO_LARGE = 1e300;

void add_extent(const Extent& from, Extent& to) {
  if (from.seconds == 0) return;
  if (to.seconds == 0) {
    to = from;
    return;
  }
  to.low = std::min(to.low, from.low);
  to.high = std::max(to.high, from.high);
  const double seconds = to.seconds + from.seconds;
  to.mean = to.mean * (to.seconds / seconds) + from.mean * (from.seconds / seconds);
  to.seconds = seconds;
}

void add_column(const PlotColumn& from, PlotColumn& to) {
  to.start = std::min(to.start, from.start);
  to.end = std::max(to.end, from.end);
  for (std::size_t i = 0; i < to.values.size(); ++i) add_extent(from.values[i], to.values[i]);
}

/// Which slice `time` is in. A row belongs to the slice in which its last second is.
std::int64_t slice_of(std::int64_t time, std::int64_t slice) { return (time - 1) / slice; }

}  // namespace

void TimeRange::add(const TimeRange& other) {
  if (other.is_empty()) return;
  *this = is_empty() ? other : TimeRange{std::min(start, other.start), std::max(end, other.end)};
}

bool Curve::share_slice(const PlotColumn& a, const PlotColumn& b) const {
  return slice_of(a.end, slice_) == slice_of(b.end, slice_);
}

void Curve::join_slices(std::int64_t seconds) {
  slice_ = std::max(slice_, seconds);
  if (columns_.empty()) return;
  std::size_t last = 0;
  for (std::size_t i = 1; i < columns_.size(); ++i) {
    if (share_slice(columns_[last], columns_[i])) {
      add_column(columns_[i], columns_[last]);
    } else {
      columns_[++last] = columns_[i];
    }
  }
  columns_.resize(last + 1);
}

void Curve::add(const CSnapshot& row, const CSample& sample) {
  constexpr std::int64_t MINUTE = 60;
  PlotColumn column;
  column.end = row.timestamp;
  column.start = column.end - MINUTE * row.interval_minutes;
  const auto seconds = static_cast<double>(column.end - column.start);
  bool has_values = false;
  for (std::size_t i = 0; i < STATISTICS.size(); ++i) {
    const double value = sample.*STATISTICS[i].member;
    const bool is_drawable = std::fabs(value) < TOO_LARGE;
    column.values[i] = is_drawable ? Extent{value, value, value, seconds}
                                   : Extent{NAN_VALUE, NAN_VALUE, NAN_VALUE};
    has_values = has_values || is_drawable;
    if (!is_drawable && !std::isnan(value)) ++undrawable_count_;
  }
  if (!has_values) return;
  if (!columns_.empty() && share_slice(column, columns_.back())) {
    add_column(column, columns_.back());
    return;
  }
  columns_.push_back(column);
  while (columns_.size() > most_columns_) {
    join_slices(2 * slice_);
  }
}

std::vector<PlotColumn> Curve::take_columns() {
  std::vector<PlotColumn> columns = std::move(columns_);
  columns_.clear();
  std::reverse(columns.begin(), columns.end());
  return columns;
}

TimeRange Curve::range() const {
  TimeRange range;
  for (const PlotColumn& column : columns_) range.add({column.start, column.end});
  return range;
}
