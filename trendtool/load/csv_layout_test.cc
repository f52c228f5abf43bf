#include "trendtool/load/csv_layout.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include "columns/statistics.h"
#include "text/number.h"

namespace {

constexpr double INF = std::numeric_limits<double>::infinity();

std::string print(double value) {
  std::array<char, MAX_VALUE_TEXT> text;
  return {text.data(), format_value(value, text.data())};
}

/// Whether what `value` prints as is read as a value that prints the same.
testing::AssertionResult survives(double value) {
  const std::string text = print(value);
  double again = 0;
  if (!read_value(text, again)) return testing::AssertionFailure() << text << " is not read";
  if (print(again) == text) return testing::AssertionSuccess();
  return testing::AssertionFailure() << text << " is read as " << print(again);
}

std::string header_error(std::string_view line) {
  Layout layout;
  return read_header(line, layout);
}

TEST(SplitFields, SplitsAtEveryComma) {
  EXPECT_EQ(split_fields("a,b c,d"), (std::vector<std::string_view>{"a", "b c", "d"}));
  EXPECT_EQ(split_fields("\"a,b\""), (std::vector<std::string_view>{"\"a", "b\""}));
}

TEST(SplitFields, KeepsEmptyFields) {
  EXPECT_EQ(split_fields(""), (std::vector<std::string_view>{""}));
  EXPECT_EQ(split_fields(","), (std::vector<std::string_view>{"", ""}));
  EXPECT_EQ(split_fields("a,,b,"), (std::vector<std::string_view>{"a", "", "b", ""}));
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
  for (const Statistic& statistic : STATISTICS) EXPECT_TRUE(layout.params[0].*statistic.flag);
}

TEST(ReadHeader, TakesPercentValidBehindTheTime) {
  Layout layout;
  ASSERT_EQ(read_header("Date,Time,Percent Valid,a:Value", layout), "");
  EXPECT_TRUE(layout.has_percent);
  EXPECT_EQ(layout.fixed_fields(), 3U);
  EXPECT_EQ(layout.columns.size(), 1U);
}

TEST(ReadHeader, RefusesPercentValidElsewhere) {
  EXPECT_EQ(header_error("Date,Time,a:Value,Percent Valid"),
            "column 'Percent Valid' is no parameter path with a statistic behind a colon");
}

TEST(ReadHeader, SplitsAtTheLastColon) {
  Layout layout;
  ASSERT_EQ(read_header("Date,Time,a:b:Value,::.ValueIntMin", layout), "");
  EXPECT_EQ(layout.params[0].path, "a:b");
  EXPECT_EQ(layout.params[1].path, ":");
}

TEST(ReadHeader, WantsDateAndTimeFirst) {
  for (const char* line :
       {"", "Date", "Time,Date,a:Value", "date,time,a:Value", "Date,Time ,a:Value",
        "\xEF\xBB\xBF"
        "Date,Time,a:Value"}) {
    EXPECT_EQ(header_error(line), "the header does not begin with Date,Time") << line;
  }
}

TEST(ReadHeader, RefusesAZeroByte) {
  // A dump would end the column's name there.
  EXPECT_EQ(header_error(std::string("Date,Time,a\0b:Value", 19)),
            "the header has a zero byte in it");
}

TEST(ReadHeader, WantsAtLeastOneParameter) {
  EXPECT_EQ(header_error("Date,Time"), "the header names no parameter");
  EXPECT_EQ(header_error("Date,Time,Percent Valid"), "the header names no parameter");
}

TEST(ReadHeader, RefusesColumnsWithoutAStatistic) {
  for (const std::string column : {"a", "", "a:", "a:value", "a:ValueIntMin", "a:.ValueIntMin ",
                                   "a:.ValueIntMinimum", "Boiler (min)", "Value"}) {
    EXPECT_EQ(header_error("Date,Time,b:Value," + column),
              "column '" + column + "' is no parameter path with a statistic behind a colon");
  }
}

TEST(ReadHeader, RefusesTheSameColumnTwice) {
  EXPECT_EQ(header_error("Date,Time,a:Value,b:Value,a:Value"),
            "column 'a:Value' stands there twice");
}

TEST(ReadValue, TakesAnEmptyFieldForAMissingValue) {
  double value = 0;
  ASSERT_TRUE(read_value("", value));
  EXPECT_TRUE(std::isnan(value));
}

TEST(ReadValue, ReadsNumbers) {
  const std::pair<const char*, double> cases[] = {
      {"0", 0},         {"21.5", 21.5},       {"-3.25", -3.25}, {"1.2345E-05", 1.2345e-5},
      {"1e3", 1000},    {"1234568", 1234568}, {".5", 0.5},      {"5.", 5},
      {"007", 7},       {"INF", INF},         {"-INF", -INF},   {"inf", INF},
      {"1E+300", 1e300}};
  for (const auto& [text, wanted] : cases) {
    double value = 99;
    EXPECT_TRUE(read_value(text, value)) << text;
    EXPECT_EQ(value, wanted) << text;
  }
}

TEST(ReadValue, RefusesWhatIsNoNumber) {
  for (const char* text :
       {"abc", "nan",   "NAN",   "-nan",  "nan(1)", "0x10",   "0X1P3", " 1", "1 ",
        "\t1", "+1",    "--1",   "-",     "+",      ".",      "e5",    "1e", "1e+",
        "1,5", "1.5.2", "1_000", "1e400", "-1e400", "1e-400", "12abc", "1;"}) {
    double value = 0;
    EXPECT_FALSE(read_value(text, value)) << text;
  }
}

TEST(ReadValue, ReadsThePowersThatNumbersBelowThemPrintAs) {
  EXPECT_EQ(print(999999.5), "1E+06");
  for (int power = 5; power <= 15; ++power) {
    const double ten = std::pow(10, power);
    for (const double value : {ten, std::nextafter(ten, 0.0), std::nextafter(ten, INF), ten - 0.5,
                               ten - 0.25, ten - 0.75, ten - 1, ten + 0.5}) {
      EXPECT_TRUE(survives(value)) << power;
      EXPECT_TRUE(survives(-value)) << power;
    }
  }
}

TEST(ReadValue, ReadsTheNumbersNextToPowersOfTen) {
  for (int power = 6; power <= 17; ++power) {
    double below = std::pow(10, power);
    double above = below;
    for (int i = 0; i < 200; ++i) {
      below = std::nextafter(below, 0.0);
      above = std::nextafter(above, INF);
      ASSERT_TRUE(survives(below) && survives(-above)) << power;
    }
  }
}

TEST(ReadValue, ReadsTheExtremesBack) {
  using Limits = std::numeric_limits<double>;
  for (const double value :
       {0.0, -0.0, INF, -INF, Limits::max(), Limits::lowest(), Limits::min(), Limits::denorm_min(),
        -Limits::denorm_min(), std::nextafter(Limits::min(), 0.0)}) {
    EXPECT_TRUE(survives(value));
  }
  for (int power = -323; power <= 308; ++power) {
    const double ten = std::pow(10, power);
    EXPECT_TRUE(survives(ten) && survives(std::nextafter(ten, 0.0)) &&
                survives(std::nextafter(ten, INF)))
        << power;
  }
}

TEST(ReadValue, ReadsBackAMillionNumbersAsPrinted) {
  std::mt19937_64 random(20231105);
  for (int i = 0; i < 250'000; ++i) {
    const double share = static_cast<double>(random() % (1 << 30)) / (1 << 30);
    const double power = std::pow(10, static_cast<int>(random() % 18));
    double values[] = {
        std::bit_cast<double>(random()),                             // any bits at all
        (share - 0.5) * 2 * power,                                   // of every usual size
        power - static_cast<double>(random() % 64) / 32,             // just below a power of ten
        std::bit_cast<double>(random() & 0x800F'FFFF'FFFF'FFFFULL),  // subnormal
    };
    for (const double value : values) {
      if (std::isnan(value)) continue;
      ASSERT_TRUE(survives(value));
    }
  }
}

TEST(ReadPercent, ReadsAShare) {
  double ratio = -1;
  ASSERT_TRUE(read_percent("100.00", ratio));
  EXPECT_EQ(ratio, 1);
  ASSERT_TRUE(read_percent("0", ratio));
  EXPECT_EQ(ratio, 0);
  ASSERT_TRUE(read_percent("12.5", ratio));
  EXPECT_EQ(ratio, 0.125);
}

TEST(ReadPercent, RefusesWhatIsNoPercentage) {
  for (const char* text : {"", "abc", "nan", "-1", "-0.01", "100.01", "1e3", "INF", "50%", " 50"}) {
    double ratio = 0;
    EXPECT_FALSE(read_percent(text, ratio)) << text;
  }
}

TEST(ReadPercent, KeepsEveryPercentageOfTwoDecimals) {
  for (int i = 0; i <= 10'000; ++i) {
    char text[16];
    std::snprintf(text, sizeof text, "%.2f", i / 100.0);
    double ratio = 0;
    ASSERT_TRUE(read_percent(text, ratio)) << text;
    char again[16];
    std::snprintf(again, sizeof again, "%.2f", ratio * 100);
    ASSERT_STREQ(again, text);
  }
}

}  // namespace
