#include "trendtool/plot/ticks.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/time_zone.h"

namespace {

constexpr std::int64_t HOUR = 3600;
constexpr std::int64_t DAY = 24 * HOUR;
constexpr std::int64_t NOVEMBER_2010 = 1288569600;   ///< 2010-11-01 00:00 UTC
constexpr std::int64_t CLOCK_FORWARD = 1269738000;   ///< 2010-03-28 01:00 UTC
constexpr std::int64_t CLOCK_BACKWARD = 1288486800;  ///< 2010-10-31 01:00 UTC

/// The texts of ticks, with the date after a '|' where there is one.
std::string texts(const std::vector<Tick>& ticks) {
  std::string text;
  for (const Tick& tick : ticks) {
    if (!text.empty()) text += ", ";
    text += tick.time_text;
    if (!tick.date_text.empty()) text += "|" + tick.date_text;
  }
  return text;
}

std::string utc_texts(std::int64_t start, std::int64_t end, std::size_t most) {
  return texts(make_ticks(start, end, most, true));
}

TEST(Ticks, AreAtRoundTimes) {
  const std::int64_t start = NOVEMBER_2010;
  EXPECT_EQ(utc_texts(start, start + 20, 5),
            "00:00:00|1 Nov 2010, 00:00:05, 00:00:10, 00:00:15, "
            "00:00:20");
  EXPECT_EQ(utc_texts(start + 1, start + HOUR, 5), "00:15|1 Nov 2010, 00:30, 00:45, 01:00");
  EXPECT_EQ(utc_texts(start - 7 * HOUR, start + 7 * HOUR, 5),
            "18:00|31 Oct 2010, 21:00, 00:00|1 Nov 2010, 03:00, 06:00");
  EXPECT_EQ(utc_texts(start - 1, start + 4 * DAY, 5), "1 Nov|2010, 2 Nov, 3 Nov, 4 Nov, 5 Nov");
  EXPECT_EQ(utc_texts(start, start + 365 * DAY, 5), "Jan|2011, Apr, Jul, Oct");
  EXPECT_EQ(utc_texts(start - 200 * DAY, start + 200 * DAY, 5), "Jul|2010, Oct, Jan|2011, Apr");
  EXPECT_EQ(utc_texts(start, start + 4000 * DAY, 5), "2012, 2014, 2016, 2018, 2020");
}

TEST(Ticks, StartWeeksOnMondays) {
  // 1 November 2010 was a Monday.
  EXPECT_EQ(utc_texts(NOVEMBER_2010 - 2 * DAY, NOVEMBER_2010 + 22 * DAY, 5),
            "1 Nov|2010, 8 Nov, 15 Nov, 22 Nov");
}

TEST(Ticks, AreNeverMoreThanWanted) {
  for (std::int64_t length = 1; length < 200'000 * DAY; length += length / 3 + 1) {
    for (const std::size_t most : {2U, 3U, 9U}) {
      const std::vector<Tick> ticks = make_ticks(NOVEMBER_2010, NOVEMBER_2010 + length, most, true);
      EXPECT_LE(ticks.size(), most) << length;
      for (const Tick& tick : ticks) {
        EXPECT_GE(tick.time, NOVEMBER_2010);
        EXPECT_LE(tick.time, NOVEMBER_2010 + length);
      }
    }
  }
}

TEST(Ticks, FollowAClockThatSkipsAnHour) {
  const TimeZone zone(TimeZone::CENTRAL_EUROPE);
  const std::vector<Tick> ticks =
      make_ticks(CLOCK_FORWARD - 2 * HOUR, CLOCK_FORWARD + 2 * HOUR, 5, false);
  EXPECT_EQ(texts(ticks), "00:00|28 Mar 2010, 01:00, 03:00, 04:00, 05:00");
  for (std::size_t i = 1; i < ticks.size(); ++i) EXPECT_EQ(ticks[i].time, ticks[i - 1].time + HOUR);
  EXPECT_EQ(texts(make_ticks(CLOCK_FORWARD - 8 * HOUR, CLOCK_FORWARD + 15 * HOUR, 5, false)),
            "18:00|27 Mar 2010, 00:00|28 Mar 2010, 06:00, 12:00, 18:00");
}

TEST(Ticks, FollowAClockThatRepeatsAnHour) {
  const TimeZone zone(TimeZone::CENTRAL_EUROPE);
  EXPECT_EQ(texts(make_ticks(CLOCK_BACKWARD - 2 * HOUR, CLOCK_BACKWARD + 2 * HOUR, 5, false)),
            "01:00|31 Oct 2010, 02:00, 02:00, 03:00, 04:00");
  const std::vector<Tick> days =
      make_ticks(CLOCK_BACKWARD - 30 * HOUR, CLOCK_BACKWARD + 30 * HOUR, 3, false);
  EXPECT_EQ(texts(days), "30 Oct|2010, 31 Oct, 1 Nov");
  EXPECT_EQ(days[2].time - days[1].time, 25 * HOUR);
}

TEST(Ticks, AreRoundInZonesWithHalfHours) {
  const TimeZone zone(TimeZone::INDIA);
  const std::vector<Tick> ticks = make_ticks(NOVEMBER_2010, NOVEMBER_2010 + DAY, 3, false);
  EXPECT_EQ(texts(ticks), "12:00|1 Nov 2010, 00:00|2 Nov 2010");
  EXPECT_EQ(ticks[0].time, NOVEMBER_2010 + 13 * HOUR / 2);
}

TEST(ZoneName, HasBothNamesIfTheClockChanges) {
  const TimeZone zone(TimeZone::CENTRAL_EUROPE);
  EXPECT_EQ(zone_name(CLOCK_FORWARD, CLOCK_BACKWARD, true), "UTC");
  EXPECT_EQ(zone_name(CLOCK_FORWARD, CLOCK_FORWARD + DAY, false), "CEST");
  EXPECT_EQ(zone_name(CLOCK_FORWARD - 1, CLOCK_FORWARD, false), "CET/CEST");
  EXPECT_EQ(zone_name(NOVEMBER_2010, NOVEMBER_2010 + 365 * DAY, false), "CET/CEST");
}

TEST(Ticks, AreAtRoundTimesWhereLeapSecondsCount) {
  const char* zone = "right/Asia/Kolkata";
  if (!std::filesystem::exists(std::string("/usr/share/zoneinfo/") + zone)) {
    GTEST_SKIP() << "there is no zone with leap seconds";
  }
  const TimeZone time_zone(zone);
  const std::int64_t start = NOVEMBER_2010 + 24;
  EXPECT_EQ(utc_texts(start + 1, start + HOUR, 5), "00:15|1 Nov 2010, 00:30, 00:45, 01:00");
  EXPECT_EQ(utc_texts(start - 1, start + 4 * DAY, 5), "1 Nov|2010, 2 Nov, 3 Nov, 4 Nov, 5 Nov");
}

TEST(Ticks, MarkTheTimeAfterARoundOneThatTheClockSkips) {
  const TimeZone zone("LHST-10:30LHDT-11,M10.1.0,M4.1.0");
  constexpr std::int64_t TWO_O_CLOCK = 1696087800;  // when the clock goes to half past two
  EXPECT_EQ(texts(make_ticks(TWO_O_CLOCK - 2 * HOUR, TWO_O_CLOCK + 2 * HOUR, 5, false)),
            "00:00|1 Oct 2023, 01:00, 02:30, 03:00, 04:00");
}

TEST(Ticks, AreAbsentWhereNoDistanceIsLongEnough) {
  constexpr std::int64_t YEARS = 366 * DAY;
  EXPECT_EQ(utc_texts(0, 12'000 * YEARS, 1), "");
  EXPECT_EQ(utc_texts(0, 50'000 * YEARS, 2), "");
}

}  // namespace
