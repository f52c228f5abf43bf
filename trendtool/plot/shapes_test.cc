#include "trendtool/plot/shapes.h"

#include <gtest/gtest.h>

#include <limits>

using toolkit::trend::CParamProperties;
using toolkit::trend::CSample;
using toolkit::trend::CSnapshot;

namespace {

constexpr double NONE = std::numeric_limits<double>::quiet_NaN();

/// An hour, by its number from the epoch on.
struct Hour {
  int number;
  CSample sample;
};

CParamProperties param_with(std::uint32_t statistics) {
  CParamProperties param;
  toolkit::trend::set_statistics(param, statistics);
  return param;
}

constexpr std::uint32_t MIN = 1;
constexpr std::uint32_t MAX = 2;
constexpr std::uint32_t AVG = 4;
constexpr std::uint32_t ACTUAL = 8;
constexpr std::uint32_t SUM = 16;

/// A series of these hours, which are newest first. If `seconds` is not 0, hours that end in the
/// same `seconds` share a column.
PlotSeries series_of(std::uint32_t statistics, const std::vector<Hour>& hours,
                     std::int64_t seconds = 0) {
  Curve curve(100);
  for (const Hour& hour : hours) {
    CSnapshot row;
    row.timestamp = 3600 * hour.number;
    row.interval_minutes = 60;
    curve.add(row, hour.sample);
  }
  curve.join_slices(seconds);
  return {"name", param_with(statistics), curve.take_columns()};
}

/// The points of the shape of this kind, or "absent".
std::string points_of(const PlotSeries& series, Shape shape) {
  for (const ShapeData& data : make_shapes(series)) {
    if (data.shape == shape) return data.points;
  }
  return "absent";
}

std::string labels_of(const PlotSeries& series) {
  std::string labels;
  for (const ShapeData& data : make_shapes(series)) labels += "[" + data.label + "]";
  return labels;
}

TEST(Shapes, DrawAnAverageAsLongAsItsInterval) {
  const PlotSeries series =
      series_of(AVG, {{2, {NONE, NONE, 2.5, NONE, NONE}}, {1, {NONE, NONE, 1.5, NONE, NONE}}});
  EXPECT_EQ(points_of(series, Shape::LINE), "0 1.5\n3600 1.5\n3600 2.5\n7200 2.5\n");
  EXPECT_EQ(labels_of(series), "[average]");
}

TEST(Shapes, BreakALineAtAGap) {
  const PlotSeries series =
      series_of(AVG, {{4, {NONE, NONE, 2, NONE, NONE}}, {1, {NONE, NONE, 1, NONE, NONE}}});
  EXPECT_EQ(points_of(series, Shape::LINE), "0 1\n3600 1\n\n10800 2\n14400 2\n");
}

TEST(Shapes, BreakALineWhereOnlyItsStatisticIsMissing) {
  const PlotSeries series = series_of(AVG | ACTUAL, {{3, {NONE, NONE, 3, 30, NONE}},
                                                     {2, {NONE, NONE, NONE, 20, NONE}},
                                                     {1, {NONE, NONE, 1, 10, NONE}}});
  EXPECT_EQ(points_of(series, Shape::LINE), "0 1\n3600 1\n\n7200 3\n10800 3\n");
  EXPECT_EQ(points_of(series, Shape::STEPS),
            "0 10\n3600 10\n3600 20\n7200 20\n7200 30\n10800 30\n");
}

TEST(Shapes, ReachFromTheMinimumToTheMaximum) {
  const PlotSeries series = series_of(MIN | MAX | AVG, {{1, {1, 5, 3, NONE, NONE}}});
  EXPECT_EQ(points_of(series, Shape::BAND), "0 1 5\n3600 1 5\n");
  EXPECT_EQ(labels_of(series), "[min to max][average]");
}

TEST(Shapes, ReachFromTheAverageIfThereIsOneLimitOnly) {
  const PlotSeries with_max = series_of(MAX | AVG, {{1, {NONE, 5, 3, NONE, NONE}}});
  EXPECT_EQ(points_of(with_max, Shape::BAND), "0 3 5\n3600 3 5\n");
  EXPECT_EQ(labels_of(with_max), "[average to max][average]");
  const PlotSeries with_min = series_of(MIN | AVG, {{1, {1, NONE, 3, NONE, NONE}}});
  EXPECT_EQ(points_of(with_min, Shape::BAND), "0 1 3\n3600 1 3\n");
  EXPECT_EQ(labels_of(with_min), "[min to average][average]");
}

TEST(Shapes, HaveEdgesWithoutAnAverage) {
  const PlotSeries series = series_of(MIN | MAX, {{1, {4, 4, NONE, NONE, NONE}}});
  EXPECT_EQ(points_of(series, Shape::EDGE), "0 4\n3600 4\n");
  EXPECT_EQ(labels_of(series), "[min to max][][]");
}

TEST(Shapes, ShowALimitThatIsAlone) {
  const PlotSeries series = series_of(MAX, {{1, {NONE, 5, NONE, NONE, NONE}}});
  EXPECT_EQ(points_of(series, Shape::LINE), "0 5\n3600 5\n");
  EXPECT_EQ(labels_of(series), "[maximum]");
  EXPECT_EQ(labels_of(series_of(MIN, {{1, {5, NONE, NONE, NONE, NONE}}})), "[minimum]");
}

TEST(Shapes, ShowTheRangeOfALimitThatIsAlone) {
  const PlotSeries minima =
      series_of(MIN, {{2, {9, NONE, NONE, NONE, NONE}}, {1, {1, NONE, NONE, NONE, NONE}}}, 7200);
  EXPECT_EQ(points_of(minima, Shape::BAND), "0 1 9\n7200 1 9\n");
  EXPECT_EQ(labels_of(minima), "[range][minimum]");
  const PlotSeries maxima =
      series_of(MAX, {{2, {NONE, 9, NONE, NONE, NONE}}, {1, {NONE, 1, NONE, NONE, NONE}}}, 7200);
  EXPECT_EQ(labels_of(maxima), "[range][maximum]");
}

TEST(Shapes, BreakABandWhereBothLimitsAreMissing) {
  const PlotSeries series = series_of(MIN | MAX | ACTUAL, {{3, {1, 2, NONE, NONE, NONE}},
                                                           {2, {NONE, NONE, NONE, 7, NONE}},
                                                           {1, {3, 4, NONE, NONE, NONE}}});
  EXPECT_EQ(points_of(series, Shape::BAND), "0 3 4\n3600 3 4\n\n7200 1 2\n10800 1 2\n");
}

TEST(Shapes, KeepTheExtremesOfAveragesInOneColumn) {
  const PlotSeries series =
      series_of(AVG, {{2, {NONE, NONE, 9, NONE, NONE}}, {1, {NONE, NONE, 1, NONE, NONE}}}, 7200);
  EXPECT_EQ(points_of(series, Shape::LINE), "0 5\n7200 5\n");
  EXPECT_EQ(points_of(series, Shape::BAND), "0 1 9\n7200 1 9\n");
}

TEST(Shapes, KeepTheExtremesOfActualValuesInOneColumn) {
  const PlotSeries series =
      series_of(ACTUAL, {{2, {NONE, NONE, NONE, 9, NONE}}, {1, {NONE, NONE, NONE, 1, NONE}}}, 7200);
  EXPECT_EQ(points_of(series, Shape::STEPS), "0 1\n7200 9\n");
}

TEST(Shapes, DrawSumsAsBoxesFromZero) {
  const PlotSeries series =
      series_of(SUM, {{2, {NONE, NONE, NONE, NONE, -4}}, {1, {NONE, NONE, NONE, NONE, 7}}});
  EXPECT_EQ(points_of(series, Shape::SUM), "0 3600 0 7\n3600 7200 -4 0\n");
  EXPECT_EQ(points_of(series, Shape::SUM_EXTENT), "absent");
}

TEST(Shapes, ShowTheMeanAndTheExtremesOfSumsInOneColumn) {
  const PlotSeries series =
      series_of(SUM, {{2, {NONE, NONE, NONE, NONE, 3}}, {1, {NONE, NONE, NONE, NONE, 7}}}, 7200);
  EXPECT_EQ(points_of(series, Shape::SUM), "0 7200 0 5\n");
  EXPECT_EQ(points_of(series, Shape::SUM_EXTENT), "0 7200 3 7\n");
}

TEST(Shapes, AreAbsentWithoutRows) {
  EXPECT_TRUE(make_shapes(series_of(MIN | MAX | AVG | ACTUAL | SUM, {})).empty());
}

}  // namespace
