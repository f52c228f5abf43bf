#include "text/calendar.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/time_zone.h"
#include "tests/support/zone_files.h"

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

/// All fields as text.
std::string to_text(const std::tm& fields) {
  std::array<char, 100> text;
  const std::size_t size = std::strftime(
      text.data(), text.size(), "%F %T, day %w of the week, %j of the year, %z %Z", &fields);
  return std::string(text.data(), size) + (fields.tm_isdst > 0 ? ", daylight saving" : "");
}

bool is_same(const std::tm& a, const std::tm& b) {
  return a.tm_sec == b.tm_sec && a.tm_min == b.tm_min && a.tm_hour == b.tm_hour &&
         a.tm_mday == b.tm_mday && a.tm_mon == b.tm_mon && a.tm_year == b.tm_year &&
         a.tm_wday == b.tm_wday && a.tm_yday == b.tm_yday && a.tm_isdst == b.tm_isdst &&
         a.tm_gmtoff == b.tm_gmtoff && std::strcmp(a.tm_zone, b.tm_zone) == 0;
}

void expect_library_fields(Calendar& calendar, std::time_t time, bool use_utc) {
  const std::tm actual = calendar.fields_at(time, use_utc);
  const std::tm expected = library_fields(time, use_utc);
  ASSERT_TRUE(is_same(actual, expected))
      << time << ": " << to_text(actual) << " instead of " << to_text(expected);
}

/// How far apart rows are, in seconds.
constexpr int STEPS[] = {1, 60, 300, 600, 900, 1000, 3600, 86400};

/// Checks series of times in the steps that rows have, forwards and backwards.
void expect_library_fields_on_walks(const std::string& zone) {
  SCOPED_TRACE(zone);
  const TimeZone time_zone(zone.c_str());
  std::mt19937 random(5);
  Calendar calendar;
  for (int walk = 0; walk < 40; ++walk) {
    const int step = STEPS[random() % std::size(STEPS)] * (random() % 2 == 0 ? 1 : -1);
    const bool use_utc = random() % 8 == 0;
    std::int64_t time = random() % 2'000'000'000 + 100'000'000 - (walk % 4 == 0 ? 200'000'000 : 0);
    for (int i = 0; i < 500; ++i, time += step) {
      ASSERT_NO_FATAL_FAILURE(
          expect_library_fields(calendar, static_cast<std::time_t>(time), use_utc));
    }
  }
}

TEST(Calendar, AgreesWithTheLibraryInZonesGivenByRules) {
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

TEST(Calendar, AgreesWithTheLibraryIfAZoneChangesTwiceInAnHour) {
  // Daylight saving from 00:10 to 00:20 on the first of July.
  const TimeZone time_zone("AAA0BBB,J182/0:10,J182/1:20");
  Calendar calendar;
  for (std::time_t time = 1'309'478'400 - 7200; time < 1'309'478'400 + 7200; time += 60) {
    ASSERT_NO_FATAL_FAILURE(expect_library_fields(calendar, time, false));
  }
}

TEST(Calendar, AgreesWithTheLibraryAtTheFirstAndLastTimes) {
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

/// Checks a series of times in one of the steps that rows have, from before `change` to after it or
/// backwards.
void expect_library_fields_around(std::int64_t change, std::mt19937& random, Calendar& calendar) {
  constexpr int ROWS = 40;
  const int step = STEPS[random() % std::size(STEPS)];
  const int before = static_cast<int>(random() % (ROWS * static_cast<unsigned>(step)));
  const int direction = random() % 2 == 0 ? 1 : -1;
  const bool use_utc = random() % 8 == 0;
  for (int row = 0; row < ROWS; ++row) {
    const std::int64_t time = change + direction * (std::int64_t{step} * row - before);
    if (time < 0 || time > std::numeric_limits<std::int32_t>::max()) continue;
    ASSERT_NO_FATAL_FAILURE(
        expect_library_fields(calendar, static_cast<std::time_t>(time), use_utc));
  }
}

TEST(Calendar, AgreesWithTheLibraryInAllZonesOfTheSystem) {
  std::vector<SystemZone> zones = system_zones();
  if (zones.empty()) GTEST_SKIP() << "there is no time zone database";
  std::mt19937 random(8);
  std::shuffle(zones.begin(), zones.end(), random);
  zones.resize(static_cast<std::size_t>(random_rounds(static_cast<int>(zones.size()))));
  for (const SystemZone& zone : zones) {
    SCOPED_TRACE(zone.name);
    const TimeZone time_zone(zone.name.c_str());
    Calendar calendar;
    std::vector<std::int64_t> times = zone.changes;
    for (int walk = 0; walk < 10; ++walk) times.push_back(random() % 0x80000000U);
    for (const std::int64_t time : times) {
      ASSERT_NO_FATAL_FAILURE(expect_library_fields_around(time, random, calendar));
    }
  }
}

TEST(Calendar, CountsTheLeapSecondsOfAZone) {
  const char* zone = "right/Asia/Tokyo";
  if (!std::filesystem::exists(std::string("/usr/share/zoneinfo/") + zone)) {
    GTEST_SKIP() << "there is no zone with leap seconds";
  }
  const TimeZone time_zone(zone);
  // Midnight before the leap second at the end of 2016, in that zone's count of seconds.
  constexpr std::time_t MIDNIGHT = 1483196400 + 26;
  for (const bool use_utc : {false, true}) {
    Calendar calendar;
    for (std::time_t time = MIDNIGHT; time < MIDNIGHT + 2 * 86400; time += 60) {
      ASSERT_NO_FATAL_FAILURE(expect_library_fields(calendar, time, use_utc));
    }
  }
  Calendar calendar;
  EXPECT_EQ(calendar.fields_at(MIDNIGHT, false).tm_hour, 0);
  EXPECT_EQ(calendar.fields_at(MIDNIGHT + 9 * 3600, false).tm_sec, 60);
}

TEST(WallSeconds, AreThoseOfTheEpochInUtc) {
  const TimeZone zone(TimeZone::UTC);
  for (std::int64_t time = -(std::int64_t{1} << 40); time < std::int64_t{1} << 40;
       time += 86'400'000 - 4321) {
    if (time < std::numeric_limits<std::time_t>::min() ||
        time > std::numeric_limits<std::time_t>::max()) {
      continue;
    }
    const auto seconds = static_cast<std::time_t>(time);
    std::tm fields = {};
    gmtime_r(&seconds, &fields);
    ASSERT_EQ(to_wall_seconds(fields), time);
  }
}

}  // namespace
