#include "trendtool/load/layout.h"

#include <gtest/gtest.h>

#include "libtrend/statistics.h"

using toolkit::trend::STATISTICS;

namespace {

std::string header_error(std::string_view line) {
  Layout layout;
  return read_header(line, layout);
}

TEST(ReadHeader, CollectsTheStatisticsOfEachParameter) {
  Layout layout;
  ASSERT_EQ(read_header("Date,Time,t:.ValueIntMax,p/q:Value,t:.ValueIntMin", layout), "");
  EXPECT_FALSE(layout.has_percent);
  EXPECT_EQ(layout.fixed_fields(), 2U);
  ASSERT_EQ(layout.params.size(), 2U);
  EXPECT_EQ(layout.params[0].path, "t");
  EXPECT_TRUE(layout.params[0].has_min && layout.params[0].has_max);
  EXPECT_FALSE(layout.params[0].has_avg || layout.params[0].has_actual || layout.params[0].has_sum);
  EXPECT_EQ(layout.params[1].path, "p/q");
  EXPECT_TRUE(layout.params[1].has_actual);
  ASSERT_EQ(layout.columns.size(), 3U);
  EXPECT_EQ(layout.columns[0].param, 0U);
  EXPECT_EQ(STATISTICS[layout.columns[0].statistic].flag,
            &toolkit::trend::CParamProperties::has_max);
  EXPECT_EQ(layout.columns[1].param, 1U);
  EXPECT_EQ(layout.columns[2].param, 0U);
  EXPECT_EQ(STATISTICS[layout.columns[2].statistic].flag,
            &toolkit::trend::CParamProperties::has_min);
}

TEST(ReadHeader, KnowsAllFiveStatistics) {
  Layout layout;
  ASSERT_EQ(read_header("Date,Time,a:.ValueIntMin,a:.ValueIntMax,a:.ValueIntAvg,a:Value,"
                        "a:.ValueIntSum",
                        layout),
            "");
  ASSERT_EQ(layout.params.size(), 1U);
  for (const auto& statistic : STATISTICS) EXPECT_TRUE(layout.params[0].*statistic.flag);
}

TEST(ReadHeader, AcceptsPercentValidAfterTheTime) {
  Layout layout;
  ASSERT_EQ(read_header("Date,Time,Percent Valid,a:Value", layout), "");
  EXPECT_TRUE(layout.has_percent);
  EXPECT_EQ(layout.fixed_fields(), 3U);
  EXPECT_EQ(layout.columns.size(), 1U);
}

TEST(ReadHeader, RefusesPercentValidAtAnyOtherPlace) {
  EXPECT_EQ(header_error("Date,Time,a:Value,Percent Valid"),
            "column 'Percent Valid' is not a parameter path with a colon and a statistic");
}

TEST(ReadHeader, SplitsAtTheLastColon) {
  Layout layout;
  ASSERT_EQ(read_header("Date,Time,a:b:Value,::.ValueIntMin", layout), "");
  EXPECT_EQ(layout.params[0].path, "a:b");
  EXPECT_EQ(layout.params[1].path, ":");
}

TEST(ReadHeader, RequiresDateAndTimeFirst) {
  for (const char* line : {"", "Date", "Time,Date,a:Value", "date,time,a:Value",
                           "Date,Time ,a:Value", "\uFEFFDate,Time,a:Value"}) {
    EXPECT_EQ(header_error(line), "the header does not start with Date,Time") << line;
  }
}

TEST(ReadHeader, RefusesAZeroByte) {
  // trendcsv would print the column's name only up to there.
  EXPECT_EQ(header_error(std::string("Date,Time,a\0b:Value", 19)),
            "the header contains a zero byte");
}

TEST(ReadHeader, RequiresAtLeastOneParameter) {
  EXPECT_EQ(header_error("Date,Time"), "the header has no parameter column");
  EXPECT_EQ(header_error("Date,Time,Percent Valid"), "the header has no parameter column");
}

TEST(ReadHeader, RefusesColumnsWithoutAStatistic) {
  for (const std::string column : {"a", "", "a:", "a:value", "a:ValueIntMin", "a:.ValueIntMin ",
                                   "a:.ValueIntMinimum", "Boiler (min)", "Value"}) {
    EXPECT_EQ(header_error("Date,Time,b:Value," + column),
              "column '" + column + "' is not a parameter path with a colon and a statistic");
  }
}

TEST(ReadHeader, RefusesTheSameColumnTwice) {
  EXPECT_EQ(header_error("Date,Time,a:Value,b:Value,a:Value"), "column 'a:Value' appears twice");
}

}  // namespace
