#include "trendtool/load/row_clock.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr const char* NEW_YORK = "EST5EDT,M3.2.0,M11.1.0";
constexpr const char* LORD_HOWE = "LHST-10:30LHDT-11,M10.1.0,M4.1.0";
constexpr const char* KOLKATA = "IST-5:30";
constexpr std::time_t FOLD = 1699160400;  // 2023-11-05 05:00 UTC, the first 01:00 in New York
constexpr std::time_t MINUTE = 60;
constexpr std::time_t HOUR = 3600;

/// The local time zone while the object exists.
class LocalZone {
 public:
  explicit LocalZone(const char* name) {
    setenv("TZ", name, 1);
    tzset();
  }
  ~LocalZone() {
    unsetenv("TZ");
    tzset();
  }
  LocalZone(const LocalZone&) = delete;
  LocalZone& operator=(const LocalZone&) = delete;
};

std::string convert_error(const std::string& format, const std::string& text) {
  RowClock clock(format, true);
  std::time_t time = 0;
  return clock.convert(text, time);
}

std::time_t convert_one(const char* format, const char* text, bool use_utc) {
  RowClock clock(format, use_utc);
  std::time_t time = 0;
  EXPECT_EQ(clock.convert(text, time), "");
  return time;
}

/// Converts rows of one day, after the clock has looked at as many of them as it needs.
std::vector<std::time_t> convert_day(const std::string& date,
                                     std::initializer_list<const char*> texts) {
  RowClock clock("%F %R", false);
  for (const char* text : texts) {
    if (!clock.look_ahead(date + " " + text)) break;
  }
  std::vector<std::time_t> times;
  for (const char* text : texts) {
    std::time_t time = 0;
    EXPECT_EQ(clock.convert(date + " " + text, time), "");
    times.push_back(time);
  }
  return times;
}

using Times = std::vector<std::time_t>;

TEST(RowClock, ConvertsAnyFormat) {
  EXPECT_EQ(convert_one("%F %R", "2023-11-05 05:00", true), FOLD);
  EXPECT_EQ(convert_one("%F %T", "2023-11-05 05:00:07", true), FOLD + 7);
  EXPECT_EQ(convert_one("%d.%m.%Y %H:%M", "05.11.2023 05:00", true), FOLD);
  EXPECT_EQ(convert_one("%m/%d/%y %I:%M %p", "11/05/23 05:00 AM", true), FOLD);
  EXPECT_EQ(convert_one("%Y-%j %R", "2023-309 05:00", true), FOLD);
}

TEST(RowClock, ConvertsSecondsSinceTheEpoch) {
  const LocalZone zone(KOLKATA);
  EXPECT_EQ(convert_one("%s -", "1699160400 -", false), FOLD);
}

TEST(RowClock, UsesTheLocalZoneUnlessToldOtherwise) {
  const LocalZone zone(KOLKATA);
  EXPECT_EQ(convert_one("%F %R", "2023-11-05 10:30", false), FOLD);
  EXPECT_EQ(convert_one("%F %R", "2023-11-05 05:00", true), FOLD);
}

TEST(RowClock, RefusesTextThatDoesNotMatch) {
  for (const std::string text : {"2023-11-05", "05:00", "2023-11-05 05:00x", "2023-11-05 25:00",
                                 "2023-13-05 05:00", "", "2023-11-05 05"}) {
    EXPECT_EQ(convert_error("%F %R", text), "'" + text + "' does not match the format '%F %R'");
  }
}

TEST(RowClock, RefusesTheEpochAndEarlierTimes) {
  EXPECT_EQ(convert_error("%F %R", "1970-01-01 00:00"),
            "'1970-01-01 00:00' is not after the epoch");
  EXPECT_EQ(convert_error("%F %R", "1969-12-31 23:59"),
            "'1969-12-31 23:59' is not after the epoch");
  EXPECT_EQ(convert_error("%F %T", "1969-12-31 23:59:59"),
            "'1969-12-31 23:59:59' is not after the epoch");
  EXPECT_EQ(convert_one("%F %T", "1970-01-01 00:00:01", true), 1);
}

TEST(RowClock, RefusesTimesThatDoNotFitIntoTimeT) {
  const LocalZone zone("EST5");
  const bool is_narrow = sizeof(std::time_t) == 4;
  const auto converted = [](const char* text) {
    RowClock clock("%F %T", false);
    std::time_t time = 0;
    clock.look_ahead(text);
    const std::string wrong = clock.convert(text, time);
    return std::pair(wrong, std::int64_t{time});
  };
  const auto wanted = [&](const std::string& text, std::int64_t time) {
    return is_narrow ? std::pair("'" + text +
                                     "' is later than the last time that this system can represent",
                                 std::int64_t{-1})
                     : std::pair(std::string(), time);
  };
  EXPECT_EQ(converted("2038-01-18 22:14:07"), std::pair(std::string(), std::int64_t{2147483647}));
  EXPECT_EQ(converted("2038-01-18 22:14:08"), wanted("2038-01-18 22:14:08", 2147483648));
  // In UTC this time can still be represented.
  EXPECT_EQ(converted("2038-01-19 00:00:00"), wanted("2038-01-19 00:00:00", 2147490000));
  EXPECT_EQ(converted("2100-01-01 00:00:00"), wanted("2100-01-01 00:00:00", 4102462800));
}

TEST(RowClock, RefusesTimesLongBeforeTheEpoch) {
  const LocalZone zone("EST5");
  RowClock clock("%F %T", false);
  std::time_t time = 0;
  for (const std::string text : {"1901-12-13 15:45:52", "1901-12-13 15:45:51"}) {
    EXPECT_EQ(clock.convert(text, time), "'" + text + "' is not after the epoch");
  }
}

TEST(RowClock, RefusesDaysThatDoNotExist) {
  EXPECT_EQ(convert_error("%F %R", "2023-02-29 05:00"),
            "'2023-02-29 05:00' is a time that does not exist");
  EXPECT_EQ(convert_error("%F %R", "2023-04-31 05:00"),
            "'2023-04-31 05:00' is a time that does not exist");
  EXPECT_EQ(convert_error("%F %R", "2024-02-29 05:00"), "");
}

TEST(RowClock, RefusesTheSkippedHour) {
  const LocalZone zone(NEW_YORK);
  RowClock clock("%F %R", false);
  std::time_t time = 0;
  EXPECT_EQ(clock.convert("2023-03-12 02:30", time),
            "'2023-03-12 02:30' is a time that does not exist");
  EXPECT_EQ(clock.convert("2023-03-12 01:59", time), "");
  EXPECT_EQ(time, 1678604340);
  EXPECT_EQ(clock.convert("2023-03-12 03:00", time), "");
  EXPECT_EQ(time, 1678604400);
}

TEST(RowClock, ResolvesTheRepeatedHourInAscendingOrder) {
  const LocalZone zone(NEW_YORK);
  EXPECT_EQ(convert_day("2023-11-05", {"00:30", "01:00", "01:30", "01:00", "01:30", "02:00"}),
            (Times{FOLD - 30 * MINUTE, FOLD, FOLD + 30 * MINUTE, FOLD + HOUR, FOLD + 90 * MINUTE,
                   FOLD + 2 * HOUR}));
}

TEST(RowClock, ResolvesTheRepeatedHourInDescendingOrder) {
  const LocalZone zone(NEW_YORK);
  EXPECT_EQ(convert_day("2023-11-05", {"02:00", "01:30", "01:00", "01:30", "01:00", "00:30"}),
            (Times{FOLD + 2 * HOUR, FOLD + 90 * MINUTE, FOLD + HOUR, FOLD + 30 * MINUTE, FOLD,
                   FOLD - 30 * MINUTE}));
}

TEST(RowClock, ResolvesRowsThatStartInTheRepeatedHour) {
  const LocalZone zone(NEW_YORK);
  EXPECT_EQ(convert_day("2023-11-05", {"01:30", "01:00", "01:30", "02:00"}),
            (Times{FOLD + 30 * MINUTE, FOLD + HOUR, FOLD + 90 * MINUTE, FOLD + 2 * HOUR}));
  EXPECT_EQ(convert_day("2023-11-05", {"01:00", "01:30", "01:00", "00:30"}),
            (Times{FOLD + HOUR, FOLD + 30 * MINUTE, FOLD, FOLD - 30 * MINUTE}));
}

TEST(RowClock, ResolvesRowsThatAreAllInTheRepeatedHour) {
  const LocalZone zone(NEW_YORK);
  EXPECT_EQ(convert_day("2023-11-05", {"01:00", "01:30", "01:00", "01:30"}),
            (Times{FOLD, FOLD + 30 * MINUTE, FOLD + HOUR, FOLD + 90 * MINUTE}));
  EXPECT_EQ(convert_day("2023-11-05", {"01:30", "01:00", "01:30", "01:00"}),
            (Times{FOLD + 90 * MINUTE, FOLD + HOUR, FOLD + 30 * MINUTE, FOLD}));
}

TEST(RowClock, ResolvesARepeatedHalfHour) {
  const LocalZone zone(LORD_HOWE);
  const std::time_t fold = 1680359400;  // 2023-04-01 14:30 UTC, the first 01:30 of April 2
  EXPECT_EQ(convert_day("2023-04-02", {"01:15", "01:30", "01:45", "01:30", "01:45", "02:00"}),
            (Times{fold - 15 * MINUTE, fold, fold + 15 * MINUTE, fold + 30 * MINUTE,
                   fold + 45 * MINUTE, fold + HOUR}));
  EXPECT_EQ(convert_day("2023-04-02", {"02:00", "01:45", "01:30", "01:45", "01:30", "01:15"}),
            (Times{fold + HOUR, fold + 45 * MINUTE, fold + 30 * MINUTE, fold + 15 * MINUTE, fold,
                   fold - 15 * MINUTE}));
}

TEST(RowClock, StopsLookingAheadAfterTheRepeatedHour) {
  const LocalZone zone(NEW_YORK);
  RowClock clock("%F %R", false);
  EXPECT_FALSE(clock.look_ahead("2023-11-05 00:30"));
  EXPECT_TRUE(clock.look_ahead("2023-11-05 01:30"));
  EXPECT_FALSE(clock.look_ahead("2023-11-05 02:00"));
  EXPECT_FALSE(clock.look_ahead("nonsense"));
  RowClock in_utc("%F %R", true);
  EXPECT_FALSE(in_utc.look_ahead("2023-11-05 01:30"));
}

TEST(RowClock, AcceptsUnsortedRowsOutsideTheRepeatedHour) {
  const LocalZone zone(NEW_YORK);
  EXPECT_EQ(convert_day("2023-11-05", {"05:00", "00:15", "03:00", "00:45"}),
            (Times{FOLD + 5 * HOUR, FOLD - 45 * MINUTE, FOLD + 3 * HOUR, FOLD - 15 * MINUTE}));
}

/// Converts rows of a walk through time by the default format, for which a clock keeps days, and by
/// an equal one, for which it does not.
void expect_same_with_kept_days(const char* zone, std::time_t start, std::time_t step) {
  const LocalZone local_zone(zone);
  for (const bool use_utc : {false, true}) {
    RowClock keeping("%F %R", use_utc);
    RowClock plain("%Y-%m-%d %R", use_utc);
    for (int row = 0; row < 400; ++row) {
      const std::time_t time = start + row * step;
      std::tm fields = {};
      use_utc ? gmtime_r(&time, &fields) : localtime_r(&time, &fields);
      char text[32];
      std::strftime(text, sizeof text, "%Y-%m-%d %R", &fields);
      std::time_t kept = 0;
      std::time_t expected = 0;
      ASSERT_EQ(keeping.convert(text, kept), "") << text;
      ASSERT_EQ(plain.convert(text, expected), "") << text;
      ASSERT_EQ(kept, expected) << zone << ' ' << text;
    }
  }
}

TEST(RowClock, ConvertsTheSameOnADayItKeeps) {
  for (const char* zone : {NEW_YORK, LORD_HOWE, KOLKATA, "UTC0", "AAA0BBB,J309/0:10,J309/1:20",
                           "Europe/Berlin", "Pacific/Apia", "right/Asia/Tokyo"}) {
    for (const std::time_t step : {1 * MINUTE, 7 * MINUTE, HOUR, 5 * HOUR}) {
      for (const std::time_t start :
           {FOLD - 100 * step, std::time_t{1483228800} - 200 * step,
            std::time_t{1325203200} - 200 * step, std::time_t{1699056000}}) {
        ASSERT_NO_FATAL_FAILURE(expect_same_with_kept_days(zone, start, step));
        ASSERT_NO_FATAL_FAILURE(expect_same_with_kept_days(zone, start, -step));
      }
    }
  }
}

TEST(RowClock, ReadsOnlyProperTimesOnADayItKeeps) {
  RowClock clock("%F %R", true);
  std::time_t time = 0;
  ASSERT_EQ(clock.convert("2023-11-05 05:00", time), "");
  for (const char* text :
       {"2023-11-05 24:00", "2023-11-05 23:60", "2023-11-05 2a:00", "2023-11-05 05:0x",
        "2023-11-05 05-00", "2023-11-05x05:00", "2023-11-05 05:00 ", "2023-11-05"}) {
    EXPECT_EQ(clock.convert(text, time),
              "'" + std::string(text) + "' does not match the format '%F %R'");
  }
  for (const char* text : {"2023-11-05  5:07", "2023-11-05 05: 7", "2023-11-5 05:07"}) {
    EXPECT_EQ(clock.convert(text, time), "") << text;
    EXPECT_EQ(time, FOLD + 7 * MINUTE);
  }
}

}  // namespace
