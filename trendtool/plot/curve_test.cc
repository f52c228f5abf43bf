#include "trendtool/plot/curve.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using toolkit::trend::CSample;
using toolkit::trend::CSnapshot;

namespace {

constexpr double NONE = std::numeric_limits<double>::quiet_NaN();
constexpr std::size_t MIN = 0;
constexpr std::size_t MAX = 1;
constexpr std::size_t AVG = 2;
constexpr std::size_t ACTUAL = 3;
constexpr std::size_t SUM = 4;

/// Adds a row of `minutes` that ends at `time`.
void add(Curve& curve, std::int64_t time, std::uint32_t minutes, const CSample& sample) {
  CSnapshot row;
  row.timestamp = static_cast<std::time_t>(time);
  row.interval_minutes = minutes;
  curve.add(row, sample);
}

void add_average(Curve& curve, std::int64_t time, std::uint32_t minutes, double average) {
  add(curve, time, minutes, {NONE, NONE, average, NONE, NONE});
}

TEST(Curve, KeepsFewRowsAsTheyAre) {
  Curve curve(10);
  add(curve, 7200, 60, {1, 5, 3, 4, 100});
  add(curve, 3600, 60, {2, 6, 4, 5, 200});
  const std::vector<PlotColumn> columns = curve.take_columns();
  ASSERT_EQ(columns.size(), 2U);
  EXPECT_EQ(columns[0].start, 0);
  EXPECT_EQ(columns[0].end, 3600);
  EXPECT_EQ(columns[1].start, 3600);
  EXPECT_EQ(columns[1].end, 7200);
  EXPECT_FALSE(is_gap_between(columns[0], columns[1]));
  const double expected[] = {1, 5, 3, 4, 100};
  for (const std::size_t i : {MIN, MAX, AVG, ACTUAL, SUM}) {
    EXPECT_EQ(columns[1].values[i].low, expected[i]);
    EXPECT_EQ(columns[1].values[i].high, expected[i]);
    EXPECT_EQ(columns[1].values[i].mean, expected[i]);
  }
}

TEST(Curve, KeepsTheExtremesAndTheMeanOfManyRows) {
  constexpr std::size_t MOST = 100;
  constexpr int ROWS = 10'000;
  Curve curve(MOST);
  for (int i = ROWS; i >= 1; --i) {
    const double spike = i == 4321 ? 1e6 : 0;
    add(curve, 60 * i, 1, {-1.0 * i, i + spike, 1.0 * i, 2.0 * i, 3.0 * i});
  }
  const std::vector<PlotColumn> columns = curve.take_columns();
  EXPECT_LE(columns.size(), MOST);
  EXPECT_GE(columns.size(), MOST / 2 - 1);
  EXPECT_EQ(columns.front().start, 0);
  EXPECT_EQ(columns.back().end, 60 * ROWS);
  double spike = 0;
  double seconds = 0;
  double area = 0;
  std::int64_t end = 0;
  for (const PlotColumn& column : columns) {
    EXPECT_EQ(column.start, end);
    end = column.end;
    const std::int64_t first_minute = column.start / 60 + 1;
    const std::int64_t last_minute = column.end / 60;
    const auto first = static_cast<double>(first_minute);
    const auto last = static_cast<double>(last_minute);
    EXPECT_EQ(column.values[MIN].low, -last);
    EXPECT_EQ(column.values[AVG].low, first);
    EXPECT_EQ(column.values[AVG].high, last);
    EXPECT_NEAR(column.values[AVG].mean, (first + last) / 2, 1e-6);
    EXPECT_EQ(column.values[ACTUAL].high, 2 * last);
    EXPECT_EQ(column.values[SUM].low, 3 * first);
    spike = std::fmax(spike, column.values[MAX].high);
    seconds += column.values[AVG].seconds;
    area += column.values[AVG].mean * column.values[AVG].seconds;
  }
  EXPECT_EQ(spike, 1e6 + 4321);
  EXPECT_EQ(seconds, 60.0 * ROWS);
  EXPECT_NEAR(area / seconds, (ROWS + 1) / 2.0, 1e-6);
}

TEST(Curve, CountsAValueByTheLengthOfItsInterval) {
  Curve curve(10);
  add_average(curve, 86400 + 3600, 60, 25);
  add_average(curve, 86400, 1440, 0);
  curve.join_slices(1'000'000);
  const std::vector<PlotColumn> columns = curve.take_columns();
  ASSERT_EQ(columns.size(), 1U);
  EXPECT_EQ(columns[0].start, 0);
  EXPECT_EQ(columns[0].end, 90'000);
  EXPECT_DOUBLE_EQ(columns[0].values[AVG].mean, 1);
}

TEST(Curve, KeepsAGapWhereRowsAreMissing) {
  Curve curve(10);
  add_average(curve, 4 * 3600, 60, 1);
  add_average(curve, 2 * 3600, 60, 1);
  add_average(curve, 3600, 60, 1);
  const std::vector<PlotColumn> columns = curve.take_columns();
  ASSERT_EQ(columns.size(), 3U);
  EXPECT_FALSE(is_gap_between(columns[0], columns[1]));
  EXPECT_TRUE(is_gap_between(columns[1], columns[2]));
}

TEST(Curve, KeepsAGapBetweenReducedColumns) {
  Curve curve(20);
  for (int i = 2000; i >= 1; --i) {
    if (i <= 800 || i > 1200) add_average(curve, 60 * i, 1, i);
  }
  const std::vector<PlotColumn> columns = curve.take_columns();
  int gaps = 0;
  for (std::size_t i = 1; i < columns.size(); ++i) {
    if (!is_gap_between(columns[i - 1], columns[i])) continue;
    ++gaps;
    EXPECT_EQ(columns[i - 1].end, 60 * 800);
    EXPECT_EQ(columns[i].start, 60 * 1200);
  }
  EXPECT_EQ(gaps, 1);
}

TEST(Curve, SeesNoGapBetweenHoursAndDays) {
  Curve curve(10);
  add_average(curve, 2 * 86400 + 3600, 60, 1);
  add_average(curve, 2 * 86400, 1440, 1);
  add_average(curve, 86400, 1440, 1);
  const std::vector<PlotColumn> columns = curve.take_columns();
  ASSERT_EQ(columns.size(), 3U);
  EXPECT_FALSE(is_gap_between(columns[0], columns[1]));
  EXPECT_FALSE(is_gap_between(columns[1], columns[2]));
}

TEST(Curve, LeavesAGapWhereASampleHasNoValue) {
  Curve curve(10);
  add_average(curve, 3 * 3600, 60, 1);
  add_average(curve, 2 * 3600, 60, NONE);
  add_average(curve, 3600, 60, 2);
  const std::vector<PlotColumn> columns = curve.take_columns();
  ASSERT_EQ(columns.size(), 2U);
  EXPECT_TRUE(is_gap_between(columns[0], columns[1]));
  EXPECT_EQ(curve.undrawable_count(), 0U);
}

TEST(Curve, CountsValuesThatCantBeDrawn) {
  constexpr double INFINITE = std::numeric_limits<double>::infinity();
  Curve curve(10);
  add(curve, 3600, 60, {-INFINITE, INFINITE, 1, std::numeric_limits<double>::max(), NONE});
  const std::vector<PlotColumn> columns = curve.take_columns();
  ASSERT_EQ(columns.size(), 1U);
  EXPECT_EQ(curve.undrawable_count(), 3U);
  for (const std::size_t i : {MIN, MAX, ACTUAL, SUM}) {
    EXPECT_TRUE(std::isnan(columns[0].values[i].mean));
  }
  EXPECT_EQ(columns[0].values[AVG].mean, 1);
}

TEST(Curve, CalculatesTheMeanOfHugeValuesWithoutOverflow) {
  Curve curve(1);
  add_average(curve, 2 * 3600, 60, 9e299);
  add_average(curve, 3600, 60, -9e299);
  const std::vector<PlotColumn> columns = curve.take_columns();
  ASSERT_EQ(columns.size(), 1U);
  EXPECT_EQ(columns[0].values[AVG].mean, 0);
}

TEST(Curve, KnowsItsRange) {
  Curve curve(10);
  EXPECT_TRUE(curve.range().is_empty());
  add_average(curve, 90'000, 60, 1);
  add_average(curve, 86400, 1440, 1);
  EXPECT_EQ(curve.range().start, 0);
  EXPECT_EQ(curve.range().end, 90'000);
}

TEST(Curve, JoinsAValueWithNone) {
  for (const bool is_first : {true, false}) {
    Curve curve(1);
    add(curve, 2 * 3600, 60, {1, NONE, is_first ? 5 : NONE, NONE, NONE});
    add(curve, 3600, 60, {1, NONE, is_first ? NONE : 5, NONE, NONE});
    const std::vector<PlotColumn> columns = curve.take_columns();
    ASSERT_EQ(columns.size(), 1U);
    EXPECT_EQ(columns[0].values[AVG].low, 5);
    EXPECT_EQ(columns[0].values[AVG].high, 5);
    EXPECT_EQ(columns[0].values[AVG].mean, 5);
    EXPECT_EQ(columns[0].values[AVG].seconds, 3600);
    EXPECT_EQ(columns[0].values[MIN].seconds, 7200);
  }
}

}  // namespace
