#include "trendtool/common/iso_time.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/time_zone.h"
#include "trendtool/common/times.h"

namespace {

std::string local(std::time_t time) { return IsoClock(false).text_of(time); }

TEST(IsoClock, WritesUtcWithZ) {
  const TimeZone zone(TimeZone::INDIA);
  EXPECT_EQ(IsoClock(true).text_of(1288614600), "2010-11-01T12:30:00Z");
  EXPECT_EQ(IsoClock(true).text_of(1), "1970-01-01T00:00:01Z");
  EXPECT_EQ(IsoClock(true).text_of(2147483647), "2038-01-19T03:14:07Z");
}

TEST(IsoClock, WritesLocalTimeWithItsOffset) {
  {
    const TimeZone zone(TimeZone::INDIA);
    EXPECT_EQ(local(1288614600), "2010-11-01T18:00:00+05:30");
  }
  {
    const TimeZone zone(TimeZone::UTC);
    EXPECT_EQ(local(1288614600), "2010-11-01T12:30:00+00:00");
  }
  const TimeZone zone("<-0330>3:30");
  EXPECT_EQ(local(1288614600), "2010-11-01T09:00:00-03:30");
}

TEST(IsoClock, TellsTheHoursApartThatAClockShowsTwice) {
  const TimeZone zone(TimeZone::CENTRAL_EUROPE);
  IsoClock clock(false);
  EXPECT_EQ(clock.text_of(1288485000), "2010-10-31T02:30:00+02:00");
  EXPECT_EQ(clock.text_of(1288488600), "2010-10-31T02:30:00+01:00");
  EXPECT_EQ(clock.text_of(1269737999), "2010-03-28T01:59:59+01:00");
  EXPECT_EQ(clock.text_of(1269738000), "2010-03-28T03:00:00+02:00");
}

TEST(IsoClock, WritesUtcWhereTheOffsetIsNotInMinutes) {
  const TimeZone zone("<-004430>0:44:30");
  EXPECT_EQ(local(1000000000), "2001-09-09T01:46:40Z");
}

TEST(IsoClock, WritesWhatReadTimeReads) {
  for (const char* name : {TimeZone::UTC, TimeZone::INDIA, TimeZone::CENTRAL_EUROPE}) {
    const TimeZone zone(name);
    IsoClock clock(false);
    for (std::time_t time = 1; time < 1'600'000'000; time += 1'234'567) {
      std::time_t read = 0;
      EXPECT_EQ(read_time(clock.text_of(time), Bound::START, false, 0, read), "");
      EXPECT_EQ(read, time);
    }
  }
}

TEST(IsoClock, WritesTimesThatAreReadBackWhereLeapSecondsCount) {
  const char* zone = "right/Asia/Kolkata";
  if (!std::filesystem::exists(std::string("/usr/share/zoneinfo/") + zone)) {
    GTEST_SKIP() << "there is no zone with leap seconds";
  }
  const TimeZone time_zone(zone);
  // The leap second at the end of 2016, in that zone's count of seconds.
  constexpr std::time_t LEAP_SECOND = 1483228800 + 26;
  EXPECT_EQ(IsoClock(true).text_of(LEAP_SECOND), "2016-12-31T23:59:60Z");
  std::time_t time = 0;
  for (const bool use_utc : {false, true}) {
    IsoClock clock(use_utc);
    for (std::time_t expected = LEAP_SECOND - 100; expected < LEAP_SECOND + 100; ++expected) {
      ASSERT_EQ(read_time(clock.text_of(expected), Bound::START, false, 0, time), "");
      ASSERT_EQ(time, expected);
    }
  }
  // Without an offset, local and in UTC.
  EXPECT_EQ(read_time("2017-01-01T05:30:00", Bound::START, false, 0, time), "");
  EXPECT_EQ(time, LEAP_SECOND + 1);
  EXPECT_EQ(read_time("2017-01-01T00:00:00", Bound::START, true, 0, time), "");
  EXPECT_EQ(time, LEAP_SECOND + 1);
  EXPECT_NE(read_time("2017-06-30T23:59:60Z", Bound::START, true, 0, time), "");
}

}  // namespace
