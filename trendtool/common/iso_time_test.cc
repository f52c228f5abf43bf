#include "trendtool/common/iso_time.h"

#include <gtest/gtest.h>

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

}  // namespace
