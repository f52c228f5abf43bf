// The rows of one parameter, reduced to what a picture can show.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "libtrend/records.h"
#include "libtrend/statistics.h"

/// The values of one statistic in a column. All are NaN if the column has no value of it.
struct Extent {
  double low;
  double high;
  double mean;         ///< each value counts by the length of its interval
  double seconds = 0;  ///< how long the intervals of the values are together
};

/// The rows of a stretch of time: one row, or several that are too close to each other to be shown
/// apart. Times are in seconds since the epoch.
struct PlotColumn {
  std::int64_t start = 0;                                          ///< of the first interval
  std::int64_t end = 0;                                            ///< of the last interval
  std::array<Extent, toolkit::trend::STATISTICS.size()> values{};  ///< in order of STATISTICS
};

/// A stretch of time, in seconds since the epoch.
struct TimeRange {
  std::int64_t start = 0;
  std::int64_t end = 0;

  [[nodiscard]] bool is_empty() const { return start == end; }
  /// Extends the range to both ends of `other`.
  void add(const TimeRange& other);
};

/// Whether there is time without rows between `earlier` and `later`, two columns of one curve.
[[nodiscard]] inline bool is_gap_between(const PlotColumn& earlier, const PlotColumn& later) {
  return later.start > earlier.end;
}

/// Collects the rows of one parameter in a limited number of columns.
///
/// Rows have a column of their own until there are too many. From then on the time is divided into
/// slices, and rows that end in one slice share a column. The slices are twice as long each time
/// that there are too many columns again.
class Curve {
 public:
  /// There will be at most `most_columns` columns, which must be at least 1.
  explicit Curve(std::size_t most_columns) : most_columns_(most_columns) {}

  /// Adds the sample `sample` of `row`. Rows must come newest first. A sample without any value
  /// leaves a gap.
  void add(const toolkit::trend::CSnapshot& row, const toolkit::trend::CSample& sample);

  /// Makes rows that end in the same `seconds` share a column.
  void join_slices(std::int64_t seconds);

  /// Returns the columns, oldest first, and leaves the curve empty.
  [[nodiscard]] std::vector<PlotColumn> take_columns();

  /// The time from the oldest to the newest column; empty if there are none.
  [[nodiscard]] TimeRange range() const;

  /// How many values were left out because they are too large to be drawn, like infinity.
  [[nodiscard]] std::uint64_t undrawable_count() const { return undrawable_count_; }

 private:
  [[nodiscard]] bool share_slice(const PlotColumn& a, const PlotColumn& b) const;

  std::size_t most_columns_;
  std::int64_t slice_ = 1;           ///< the length of a slice in seconds
  std::vector<PlotColumn> columns_;  ///< newest first
  std::uint64_t undrawable_count_ = 0;
};
