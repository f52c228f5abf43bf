#include "output/row.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/scripted_trend_log.h"
#include "tests/support/streams.h"
#include "tests/support/time_zone.h"

namespace {

using toolkit::trend::CSample;

constexpr double NO_VALUE = std::numeric_limits<double>::quiet_NaN();
constexpr double INFINITE = std::numeric_limits<double>::infinity();

constexpr std::time_t HOUR = 3600;
/// 2024-01-01 00:00 in UTC.
constexpr std::time_t NEW_YEAR = 1704067200;
/// 2024-01-01 12:15 in UTC.
constexpr std::time_t QUARTER_PAST_NOON = NEW_YEAR + 12 * HOUR + 15 * 60;
/// 2024-03-31 01:00 in UTC, when Central Europe goes from 2:00 to 3:00.
constexpr std::time_t SPRING = 1711846800;
/// 2024-10-27 01:00 in UTC, when Central Europe goes from 3:00 to 2:00.
constexpr std::time_t AUTUMN = 1729990800;

/// What print_value writes.
std::string printed(double v) {
  DumpContext context;
  context.out = std::tmpfile();
  const int result = print_value(context, v);
  const std::string text = read_stream(context.out);
  EXPECT_EQ(result, static_cast<int>(text.size()));
  return text;
}

class PrintRow : public testing::Test {
 protected:
  PrintRow() : zone_(TimeZone::UTC) {
    options_.output_date_format = "%F";
    options_.output_time_format = "%R";
  }

  void select(const std::string& flags) {
    context_.device_params.params.push_back(make_param("p", flags));
  }

  std::string row(const toolkit::trend::CSnapshot& snapshot) {
    context_.out = std::tmpfile();
    EXPECT_EQ(print_row(context_, options_, snapshot), '\n');
    const std::string text = read_stream(context_.out);
    close_output(context_);
    return text;
  }

  std::string row(std::time_t timestamp, std::uint32_t interval_minutes) {
    toolkit::trend::CSnapshot snapshot = make_snapshot(timestamp);
    snapshot.interval_minutes = interval_minutes;
    return row(snapshot);
  }

  std::string row_of_samples(const std::vector<CSample>& samples) {
    return row(make_snapshot(NEW_YEAR, samples));
  }

  std::string row_of_ratio(double valid_ratio) {
    toolkit::trend::CSnapshot snapshot = make_snapshot(NEW_YEAR);
    snapshot.valid_ratio = valid_ratio;
    return row(snapshot);
  }

  TimeZone zone_;
  DumpOptions options_;
  DumpContext context_;
};

TEST_F(PrintRow, WritesDateAndTimeAndALineFeed) {
  EXPECT_EQ(row(QUARTER_PAST_NOON, 15), "2024-01-01,12:15\n");
}

TEST_F(PrintRow, WritesStatisticsInTheirOrder) {
  select("savxn");
  EXPECT_EQ(row_of_samples({{1, 5, 3, 2, 30}}), "2024-01-01,00:00,1,5,3,2,30\n");
}

TEST_F(PrintRow, LeavesTheFieldOfAMissingValueEmpty) {
  select("nxvas");
  EXPECT_EQ(row_of_samples({{1, 5, NO_VALUE, 2, 30}}), "2024-01-01,00:00,1,5,,2,30\n");
  EXPECT_EQ(row_of_samples({{1, 5, 3, 2, -NO_VALUE}}), "2024-01-01,00:00,1,5,3,2,\n");
}

TEST_F(PrintRow, KeepsAllSeparatorsIfEveryValueIsMissing) {
  select("nxvas");
  select("a");
  EXPECT_EQ(row_of_samples({{NO_VALUE, NO_VALUE, NO_VALUE, NO_VALUE, NO_VALUE},
                            {NO_VALUE, NO_VALUE, NO_VALUE, NO_VALUE, NO_VALUE}}),
            "2024-01-01,00:00,,,,,,\n");
}

TEST_F(PrintRow, WritesOnlyWhatTheParameterCarries) {
  const CSample sample = {1, 2, 3, 4, 5};
  for (const auto& [flags, fields] :
       std::vector<std::pair<std::string, std::string>>{{"n", ",1"},
                                                        {"x", ",2"},
                                                        {"v", ",3"},
                                                        {"a", ",4"},
                                                        {"s", ",5"},
                                                        {"ns", ",1,5"},
                                                        {"", ""}}) {
    context_.device_params.params = {make_param("p", flags)};
    EXPECT_EQ(row_of_samples({sample}), "2024-01-01,00:00" + fields + "\n");
  }
}

TEST_F(PrintRow, PairsSamplesWithParameters) {
  select("n");
  select("");
  select("xs");
  EXPECT_EQ(row_of_samples({{1, 2, 3, 4, 5}, {10, 20, 30, 40, 50}, {6, 7, 8, 9, 11}}),
            "2024-01-01,00:00,1,7,11\n");
}

TEST_F(PrintRow, EndsTheRowWhereTheSamplesEnd) {
  select("nx");
  select("nx");
  select("nx");
  EXPECT_EQ(row_of_samples({{1, 2, 0, 0, 0}}), "2024-01-01,00:00,1,2\n");
  EXPECT_EQ(row_of_samples({}), "2024-01-01,00:00\n");
}

TEST_F(PrintRow, PutsThePercentageBetweenTimeAndValues) {
  options_.percent_valid = true;
  select("a");
  toolkit::trend::CSnapshot snapshot = make_snapshot(NEW_YEAR, {{0, 0, 0, 21.5, 0}});
  snapshot.valid_ratio = 0.5;
  EXPECT_EQ(row(snapshot), "2024-01-01,00:00,50.00,21.5\n");
}

TEST_F(PrintRow, EndsWithThePercentageIfThereIsNoColumn) {
  options_.percent_valid = true;
  select("");
  select("");
  toolkit::trend::CSnapshot snapshot = make_snapshot(NEW_YEAR, {{1, 2, 3, 4, 5}, {1, 2, 3, 4, 5}});
  snapshot.valid_ratio = 0.25;
  EXPECT_EQ(row(snapshot), "2024-01-01,00:00,25.00\n");
}

TEST_F(PrintRow, WritesThePercentageWithTwoDecimals) {
  options_.percent_valid = true;
  EXPECT_EQ(row_of_ratio(1), "2024-01-01,00:00,100.00\n");
  EXPECT_EQ(row_of_ratio(0), "2024-01-01,00:00,0.00\n");
  EXPECT_EQ(row_of_ratio(0.123456), "2024-01-01,00:00,12.35\n");
  EXPECT_EQ(row_of_ratio(1.0 / 3), "2024-01-01,00:00,33.33\n");
  EXPECT_EQ(row_of_ratio(0.999949), "2024-01-01,00:00,99.99\n");
  EXPECT_EQ(row_of_ratio(0.99996), "2024-01-01,00:00,100.00\n");
}

TEST_F(PrintRow, RoundsAPercentageToTheEvenDigit) {
  options_.percent_valid = true;
  EXPECT_EQ(row_of_ratio(0.00125), "2024-01-01,00:00,0.12\n");
  EXPECT_EQ(row_of_ratio(0.00375), "2024-01-01,00:00,0.38\n");
}

TEST_F(PrintRow, WritesTheLocalTimeOnBothSidesOfDaylightSaving) {
  const TimeZone zone(TimeZone::CENTRAL_EUROPE);
  EXPECT_EQ(row(SPRING - 60, 1), "2024-03-31,01:59\n");
  EXPECT_EQ(row(SPRING, 1), "2024-03-31,03:00\n");
  EXPECT_EQ(row(AUTUMN - 60, 1), "2024-10-27,02:59\n");
  EXPECT_EQ(row(AUTUMN, 1), "2024-10-27,02:00\n");
}

TEST_F(PrintRow, WritesTheLocalTimeOfAHalfHourOffset) {
  const TimeZone zone(TimeZone::INDIA);
  EXPECT_EQ(row(NEW_YEAR, 1), "2024-01-01,05:30\n");
  EXPECT_EQ(row(NEW_YEAR + 18 * HOUR + 30 * 60, 1), "2024-01-02,00:00\n");
}

TEST_F(PrintRow, WritesTheSameInstantInUtc) {
  options_.use_utc = true;
  for (const char* name : {TimeZone::UTC, TimeZone::CENTRAL_EUROPE, TimeZone::INDIA}) {
    const TimeZone zone(name);
    EXPECT_EQ(row(SPRING, 1), "2024-03-31,01:00\n");
    EXPECT_EQ(row(AUTUMN - 60, 1), "2024-10-27,00:59\n");
  }
}

TEST_F(PrintRow, ShowsTheStartOfTheInterval) {
  options_.interval_begin = true;
  EXPECT_EQ(row(QUARTER_PAST_NOON, 15), "2024-01-01,12:00\n");
  EXPECT_EQ(row(QUARTER_PAST_NOON, 60), "2024-01-01,11:15\n");
  EXPECT_EQ(row(QUARTER_PAST_NOON, 1440), "2023-12-31,12:15\n");
  EXPECT_EQ(row(QUARTER_PAST_NOON, 0), "2024-01-01,12:15\n");
}

TEST_F(PrintRow, ShowsTheStartAcrossDaylightSavingChanges) {
  const TimeZone zone(TimeZone::CENTRAL_EUROPE);
  options_.interval_begin = true;
  EXPECT_EQ(row(SPRING, 60), "2024-03-31,01:00\n");
  EXPECT_EQ(row(AUTUMN + HOUR, 60), "2024-10-27,02:00\n");
  EXPECT_EQ(row(AUTUMN, 60), "2024-10-27,02:00\n");
}

TEST_F(PrintRow, ShowsAStartBeforeTheEpoch) {
  options_.interval_begin = true;
  EXPECT_EQ(row(60, 2), "1969-12-31,23:59\n");
}

TEST_F(PrintRow, WrapsIntervalLengthsThatOverflow32Bits) {
  options_.interval_begin = true;
  options_.output_time_format = "%T";
  // 60 * 71582789 is 2^32 + 44.
  EXPECT_EQ(row(QUARTER_PAST_NOON, 71582789), "2024-01-01,12:14:16\n");
  // 60 * 50000000 is -1294967296 as a signed number.
  EXPECT_EQ(row(100, 50000000), "2011-01-14,01:09:56\n");
  // 60 * 35791394 is the largest length that fits.
  EXPECT_EQ(row(100, 35791394), "1901-12-13,20:47:40\n");
}

TEST_F(PrintRow, WrapsStartsThatOverflow32Bits) {
  options_.interval_begin = true;
  options_.output_time_format = "%T";
  EXPECT_EQ(row(2000000000, 50000000), "1938-04-24,22:13:20\n");
  EXPECT_EQ(row(1000, 35791395), "1901-12-13,21:01:40\n");
}

TEST_F(PrintRow, DoesNotWrapTimesBeyond32Bits) {
  if constexpr (sizeof(std::time_t) > 4) {
    const auto later = static_cast<std::time_t>(4102444800);
    EXPECT_EQ(row(later, 15), "2100-01-01,00:00\n");
    options_.interval_begin = true;
    EXPECT_EQ(row(later, 15), "2099-12-31,23:45\n");
    // The length still wraps.
    EXPECT_EQ(row(later, 50000000), "2141-01-14,01:08\n");
  } else {
    EXPECT_EQ(row(2147483647, 15), "2038-01-19,03:14\n");
  }
}

TEST_F(PrintRow, TakesCustomFormats) {
  options_.output_date_format = "%s";
  options_.output_time_format = "%H";
  EXPECT_EQ(row(QUARTER_PAST_NOON, 15), "1704111300,12\n");
}

TEST_F(PrintRow, ShiftsEpochSecondsInUtcByTheOffsetOfTheLocalZone) {
  options_.output_date_format = "%s";
  options_.use_utc = true;
  EXPECT_EQ(row(QUARTER_PAST_NOON, 15), "1704111300,12:15\n");
  const TimeZone zone(TimeZone::INDIA);
  EXPECT_EQ(row(QUARTER_PAST_NOON, 15), "1704091500,12:15\n");
  options_.use_utc = false;
  EXPECT_EQ(row(QUARTER_PAST_NOON, 15), "1704111300,17:45\n");
}

TEST_F(PrintRow, QuotesNothingInDatesAndTimes) {
  options_.output_date_format = "%d,%m \"%%\"";
  options_.output_time_format = "at %H";
  EXPECT_EQ(row(QUARTER_PAST_NOON, 15), "01,01 \"%\",at 12\n");
}

TEST_F(PrintRow, WritesDatesAndTimesOfUpTo127Characters) {
  const std::string longest(127, 'x');
  options_.output_date_format = longest;
  options_.output_time_format = longest;
  EXPECT_EQ(row(NEW_YEAR, 1), longest + "," + longest + "\n");
}

TEST_F(PrintRow, LeavesLongerDatesAndTimesEmpty) {
  options_.output_date_format = std::string(128, 'x');
  EXPECT_EQ(row(NEW_YEAR, 1), ",00:00\n");
  options_.output_date_format = "%F";
  options_.output_time_format = std::string(126, 'x') + "%F";
  EXPECT_EQ(row(NEW_YEAR, 1), "2024-01-01,\n");
}

TEST_F(PrintRow, WritesEmptyFieldsForEmptyTimeFormats) {
  options_.output_date_format = "";
  options_.output_time_format = "";
  EXPECT_EQ(row(NEW_YEAR, 1), ",\n");
}

TEST_F(PrintRow, WritesRowsOfAnyLength) {
  // The longest fields, after dates of all lengths, so that fields end anywhere in the buffer.
  const double largest = -std::numeric_limits<double>::max();
  const std::string number = "," + printed(largest);
  ASSERT_EQ(number.size(), 311U);
  std::vector<CSample> samples;
  std::string fields;
  for (int i = 0; i < 6; ++i) {
    select("nxvas");
    samples.push_back({largest, NO_VALUE, largest, 7, largest});
    fields.append(number).append(",").append(number).append(",7").append(number);
  }
  options_.output_time_format = "x";
  for (std::size_t length = 1; length < 128; ++length) {
    options_.output_date_format = std::string(length, 'd');
    ASSERT_EQ(row_of_samples(samples), options_.output_date_format + ",x" + fields + "\n");
  }
}

TEST_F(PrintRow, WritesManyShortFields) {
  std::string fields;
  std::vector<CSample> samples;
  for (int i = 0; i < 3000; ++i) {
    select("a");
    samples.push_back({0, 0, 0, static_cast<double>(i), 0});
    fields += "," + std::to_string(i);
  }
  EXPECT_EQ(row_of_samples(samples), "2024-01-01,00:00" + fields + "\n");
}

TEST_F(PrintRow, WritesPercentagesOfAnySize) {
  options_.percent_valid = true;
  options_.output_date_format = std::string(127, 'd');
  options_.output_time_format = options_.output_date_format;
  const std::string times = options_.output_date_format + "," + options_.output_time_format;
  EXPECT_EQ(row_of_ratio(-1.25), times + ",-125.00\n");
  const std::string text = row_of_ratio(std::numeric_limits<double>::max() / 128);
  EXPECT_EQ(text.size(), times.size() + 1 + 309 + 3 + 1);
  EXPECT_EQ(text.substr(text.size() - 4), ".00\n");
}

TEST(PrintValue, WritesSixSignificantDigitsBelowAMillion) {
  EXPECT_EQ(printed(21.5), "21.5");
  EXPECT_EQ(printed(-3.25), "-3.25");
  EXPECT_EQ(printed(123.456789), "123.457");
  EXPECT_EQ(printed(0.000012345), "1.2345E-05");
  EXPECT_EQ(printed(999999), "999999");
}

TEST(PrintValue, KeepsUnitsDigitOfLargeTotals) {
  EXPECT_EQ(printed(1000000), "1000000");
  EXPECT_EQ(printed(1234567.89), "1234568");
  EXPECT_EQ(printed(-1234567.89), "-1234568");
  EXPECT_EQ(printed(123456789012), "123456789012");
}

TEST(PrintValue, SwitchesOnTheValueBeforeRounding) { EXPECT_EQ(printed(999999.5), "1E+06"); }

TEST(PrintValue, WritesZeroAndInfinity) {
  EXPECT_EQ(printed(0), "0");
  EXPECT_EQ(printed(-0.0), "-0");
  EXPECT_EQ(printed(INFINITE), "INF");
  EXPECT_EQ(printed(-INFINITE), "-INF");
}

TEST(PrintValue, WritesTheLargestDoubleInFull) {
  const std::string text = printed(-std::numeric_limits<double>::max());
  EXPECT_EQ(text.size(), 310U);
  EXPECT_EQ(text.substr(0, 10), "-179769313");
}

TEST(PrintValue, ReturnsANegativeNumberIfTheWriteFails) {
  DumpContext context;
  context.out = std::fopen("/dev/null", "r");
  ASSERT_NE(context.out, nullptr);
  EXPECT_LT(print_value(context, 1), 0);
}

TEST(HasValue, IsFalseForNaNAlone) {
  EXPECT_FALSE(has_value(NO_VALUE));
  EXPECT_FALSE(has_value(-NO_VALUE));
  EXPECT_TRUE(has_value(0));
  EXPECT_TRUE(has_value(INFINITE));
  EXPECT_TRUE(has_value(-INFINITE));
}

}  // namespace
