#include "trendtool/common/times.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/time_zone.h"

namespace {

using testing::HasSubstr;

constexpr std::time_t NOW = 1'700'000'000;

/// Reads `text` as a start in local time, which must succeed.
std::time_t start(const char* text) {
  std::time_t time = -2;
  EXPECT_EQ(read_time(text, Bound::START, false, NOW, time), "") << text;
  return time;
}

std::time_t end(const char* text) {
  std::time_t time = -2;
  EXPECT_EQ(read_time(text, Bound::END, false, NOW, time), "") << text;
  return time;
}

std::time_t utc_start(const char* text) {
  std::time_t time = -2;
  EXPECT_EQ(read_time(text, Bound::START, true, NOW, time), "") << text;
  return time;
}

std::string refusal(const char* text) {
  std::time_t time = -2;
  std::string wrong = read_time(text, Bound::START, false, NOW, time);
  EXPECT_EQ(time, -2) << text;
  return wrong;
}

TEST(ReadTime, ReadsDatesAndTimesOfDay) {
  const TimeZone zone(TimeZone::UTC);
  EXPECT_EQ(start("2010-11-01"), 1288569600);
  EXPECT_EQ(start("2010-11-01T12:30"), 1288614600);
  EXPECT_EQ(start("2010-11-01 12:30"), 1288614600);
  EXPECT_EQ(start("2010-11-01t12:30:15"), 1288614615);
  EXPECT_EQ(start("1970-01-01"), 0);
  EXPECT_EQ(start("1969-12-31T23:59:59"), -1);
  EXPECT_EQ(start("2000-02-29"), 951782400);
}

TEST(ReadTime, ReadsOffsets) {
  const TimeZone zone(TimeZone::INDIA);
  EXPECT_EQ(start("2010-11-01T12:30Z"), 1288614600);
  EXPECT_EQ(start("2010-11-01T12:30:00z"), 1288614600);
  EXPECT_EQ(start("2010-11-01T12:30+01:00"), 1288611000);
  EXPECT_EQ(start("2010-11-01T12:30:00-0330"), 1288627200);
  EXPECT_EQ(start("2010-11-01T12:30+01"), 1288611000);
  EXPECT_EQ(start("2010-11-01T12:30"), 1288614600 - 19800);
  EXPECT_EQ(utc_start("2010-11-01T12:30"), 1288614600);
  EXPECT_EQ(utc_start("2010-11-01T12:30+01:00"), 1288611000);
}

TEST(ReadTime, ReadsSecondsSinceTheEpoch) {
  EXPECT_EQ(start("@1288614600"), 1288614600);
  EXPECT_EQ(start("@0"), 0);
  EXPECT_EQ(start("@-5"), -5);
}

TEST(ReadTime, ReadsTimesBeforeNow) {
  EXPECT_EQ(start("now"), NOW);
  EXPECT_EQ(start("-90s"), NOW - 90);
  EXPECT_EQ(start("-5m"), NOW - 300);
  EXPECT_EQ(start("-12h"), NOW - 43200);
  EXPECT_EQ(start("-7d"), NOW - 604800);
  EXPECT_EQ(start("-2w"), NOW - 1209600);
}

TEST(ReadTime, TakesTheFirstOfTwoTimesAsStartAndTheSecondAsEnd) {
  const TimeZone zone(TimeZone::CENTRAL_EUROPE);
  EXPECT_EQ(start("2010-10-31T02:30"), 1288485000);
  EXPECT_EQ(end("2010-10-31T02:30"), 1288488600);
  EXPECT_EQ(start("2010-10-31T01:59:59"), 1288483199);
  EXPECT_EQ(end("2010-10-31T01:59:59"), 1288483199);
  EXPECT_EQ(start("2010-10-31T03:00"), 1288490400);
}

TEST(ReadTime, RefusesATimeThatTheClockSkips) {
  const TimeZone zone(TimeZone::CENTRAL_EUROPE);
  EXPECT_EQ(refusal("2010-03-28T02:30"),
            "'2010-03-28T02:30' does not exist in this time zone; the clock skips it");
  EXPECT_EQ(start("2010-03-28T01:59"), 1269737940);
  EXPECT_EQ(start("2010-03-28T03:00"), 1269738000);
}

TEST(ReadTime, RefusesEverythingElse) {
  for (const char* text : {"",
                           "2010",
                           "2010-11",
                           "2010-13-01",
                           "2010-02-29",
                           "2010-11-31",
                           "2010-1-1",
                           "2010-11-x1",
                           "10-11-01",
                           "2010-11-01T",
                           "2010-11-01T12",
                           "2010-11-01T24:00",
                           "2010-11-01T12:3",
                           "2010-11-01T12:60",
                           "2010-11-01T12:30:61",
                           "2010-11-01T12:30:60",
                           "2010-11-01T12:30:5",
                           "2010-11-01T12:30 ",
                           "2010-11-01T12:30+1",
                           "2010-11-01T12:30+24:00",
                           "2010-11-01T12:30+01:3",
                           "2010-11-01T12:30+01:60",
                           "2010-11-01T12:30Zulu",
                           "2010-11-01Z",
                           "20101101",
                           "@",
                           "@1.5",
                           "@x",
                           "@99999999999999999999",
                           "-",
                           "-7",
                           "-d",
                           "-7y",
                           "--7d",
                           "-1.5h",
                           "7d",
                           "-99999999999999999999s",
                           "-9999999999999d",
                           "Now",
                           "now ",
                           "yesterday"}) {
    EXPECT_THAT(refusal(text), HasSubstr("is not a time; use 2010-11-01, ")) << text;
  }
}

TEST(ReadRange, LeavesABoundOpenThatIsNotGiven) {
  std::pair<long, long> range;
  EXPECT_EQ(read_range("", "", true, range), "");
  EXPECT_EQ(range, std::pair(-1L, -1L));
  EXPECT_EQ(read_range("@5", "", true, range), "");
  EXPECT_EQ(range, std::pair(5L, -1L));
  EXPECT_EQ(read_range("", "@7", true, range), "");
  EXPECT_EQ(range, std::pair(-1L, 7L));
}

TEST(ReadRange, TakesTimesBeforeTheEpochForTheEpoch) {
  std::pair<long, long> range;
  EXPECT_EQ(read_range("@-1", "@-1", true, range), "");
  EXPECT_EQ(range, std::pair(0L, 0L));
}

TEST(ReadRange, RefusesABadTimeAndAnEndBeforeTheStart) {
  std::pair<long, long> range;
  EXPECT_THAT(read_range("x", "", true, range), HasSubstr("'x' is not a time"));
  EXPECT_THAT(read_range("", "y", true, range), HasSubstr("'y' is not a time"));
  EXPECT_EQ(read_range("@7", "@6", true, range), "the end '@6' is before the start '@7'");
  EXPECT_EQ(read_range("@7", "@7", true, range), "");
}

}  // namespace
