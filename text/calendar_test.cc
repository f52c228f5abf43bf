#include "text/calendar.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "tests/support/time_zone.h"

namespace {

std::tm library_fields(std::time_t time, bool use_utc) {
  std::tm fields = {};
  if (use_utc) {
    gmtime_r(&time, &fields);
  } else {
    localtime_r(&time, &fields);
  }
  return fields;
}

void expect_library_fields(Calendar& calendar, std::time_t time, bool use_utc) {
  const std::tm actual = calendar.fields_at(time, use_utc);
  const std::tm expected = library_fields(time, use_utc);
  ASSERT_EQ(actual.tm_sec, expected.tm_sec) << time;
  ASSERT_EQ(actual.tm_min, expected.tm_min) << time;
  ASSERT_EQ(actual.tm_hour, expected.tm_hour) << time;
  ASSERT_EQ(actual.tm_mday, expected.tm_mday) << time;
  ASSERT_EQ(actual.tm_mon, expected.tm_mon) << time;
  ASSERT_EQ(actual.tm_year, expected.tm_year) << time;
  ASSERT_EQ(actual.tm_wday, expected.tm_wday) << time;
  ASSERT_EQ(actual.tm_yday, expected.tm_yday) << time;
  ASSERT_EQ(actual.tm_isdst, expected.tm_isdst) << time;
  ASSERT_EQ(actual.tm_gmtoff, expected.tm_gmtoff) << time;
  ASSERT_STREQ(actual.tm_zone, expected.tm_zone) << time;
}

/// Walks through time in steps as rows do, both ways.
void expect_library_fields_on_walks(const std::string& zone) {
  SCOPED_TRACE(zone);
  const TimeZone time_zone(zone.c_str());
  std::mt19937 random(5);
  Calendar calendar;
  for (int walk = 0; walk < 40; ++walk) {
    static constexpr int STEPS[] = {1, 60, 300, 600, 900, 1000, 3600, 86400};
    const int step = STEPS[random() % 8] * (random() % 2 == 0 ? 1 : -1);
    const bool use_utc = random() % 8 == 0;
    std::int64_t time = random() % 2'000'000'000 + 100'000'000 - (walk % 4 == 0 ? 200'000'000 : 0);
    for (int i = 0; i < 500; ++i, time += step) {
      ASSERT_NO_FATAL_FAILURE(
          expect_library_fields(calendar, static_cast<std::time_t>(time), use_utc));
    }
  }
}

TEST(Calendar, AgreesWithTheLibraryInZonesSpelledOut) {
  for (const char* zone : {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "<+0530>-5:30",
                           "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0", "<-0437>4:37:13",
                           "EST5EDT,M3.2.0/2:07:13,M11.1.0/2:48:59"}) {
    ASSERT_NO_FATAL_FAILURE(expect_library_fields_on_walks(zone));
  }
}

TEST(Calendar, AgreesWithTheLibraryAtEveryChangeOfAZone) {
  const TimeZone time_zone("EST5EDT,M3.2.0/2:07:13,M11.1.0/2:48:59");
  Calendar calendar;
  for (std::time_t time = 1'300'000'000; time < 1'300'000'000 + 31'600'000; time += 97) {
    ASSERT_NO_FATAL_FAILURE(expect_library_fields(calendar, time, false));
  }
}

TEST(Calendar, SeesAZoneThatChangesTwiceWithinAnHour) {
  // Daylight saving from 00:10 to 00:20 on the first of July.
  const TimeZone time_zone("AAA0BBB,J182/0:10,J182/1:20");
  Calendar calendar;
  for (std::time_t time = 1'309'478'400 - 7200; time < 1'309'478'400 + 7200; time += 60) {
    ASSERT_NO_FATAL_FAILURE(expect_library_fields(calendar, time, false));
  }
}

TEST(Calendar, AgreesWithTheLibraryAtTheEndsOfTime) {
  const TimeZone time_zone("<+0530>-5:30");
  Calendar calendar;
  constexpr std::time_t LAST = std::numeric_limits<std::int32_t>::max();
  for (const std::time_t begin : {std::time_t{-8000}, LAST - 8000}) {
    for (std::time_t step = 0; step <= 8000; ++step) {
      ASSERT_NO_FATAL_FAILURE(expect_library_fields(calendar, begin + step, step % 3 == 0));
    }
  }
  ASSERT_NO_FATAL_FAILURE(
      expect_library_fields(calendar, std::numeric_limits<std::int32_t>::min(), true));
}

TEST(Calendar, AgreesWithTheLibraryInTheZonesOfTheDatabase) {
  const std::filesystem::path database = "/usr/share/zoneinfo";
  std::size_t zones = 0;
  for (const char* zone : {"Europe/Berlin", "America/New_York", "Australia/Lord_Howe",
                           "Asia/Kolkata", "Africa/Casablanca", "Pacific/Apia", "Asia/Pyongyang",
                           "Europe/Moscow", "America/Caracas", "Antarctica/Troll"}) {
    if (!std::filesystem::exists(database / zone)) continue;
    ++zones;
    ASSERT_NO_FATAL_FAILURE(expect_library_fields_on_walks(zone));
  }
  if (zones == 0) GTEST_SKIP() << "there is no time zone database";
}

}  // namespace
