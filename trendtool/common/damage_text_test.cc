#include "trendtool/common/damage_text.h"

#include <gtest/gtest.h>

namespace {

std::string describe(std::int64_t first, std::int64_t last) {
  return describe_damage({.device = "site/weather",
                          .minutes = 60,
                          .param = "",
                          .first = first,
                          .last = last,
                          .text = "a block is missing"},
                         true);
}

TEST(DescribeDamage, NamesTheSeriesAndTheTimes) {
  EXPECT_EQ(describe(1288612800, 1288616400),
            "device 'site/weather', interval of 60 minutes, from 2010-11-01T12:00:00Z to "
            "2010-11-01T13:00:00Z: a block is missing");
}

TEST(DescribeDamage, LeavesOutTheEndsOfTime) {
  constexpr std::int64_t LAST = (std::int64_t{1} << 40) - 1;
  EXPECT_EQ(describe(1, LAST),
            "device 'site/weather', interval of 60 minutes, all rows: a block is missing");
  EXPECT_EQ(describe(1288612800, LAST),
            "device 'site/weather', interval of 60 minutes, from 2010-11-01T12:00:00Z: a block is "
            "missing");
  EXPECT_EQ(describe(1, 1288612800),
            "device 'site/weather', interval of 60 minutes, up to 2010-11-01T12:00:00Z: a block is "
            "missing");
  EXPECT_EQ(describe(1288612800, 1288612800),
            "device 'site/weather', interval of 60 minutes, 2010-11-01T12:00:00Z: a block is "
            "missing");
}

TEST(DescribeDamage, NamesAParameterAlone) {
  EXPECT_EQ(describe_damage({.device = "d", .param = "a", .text = "its slots are wrong"}, true),
            "device 'd', parameter 'a': its slots are wrong");
  EXPECT_EQ(describe_damage({.device = "", .param = "a", .text = "it has no device"}, true),
            "parameter 'a': it has no device");
  EXPECT_EQ(describe_damage({.device = "", .minutes = 5, .param = "", .text = "it is new"}, true),
            "interval of 5 minutes: it is new");
  EXPECT_EQ(describe_damage({.device = "", .param = "", .text = "SQLite: broken"}, true),
            "SQLite: broken");
}

}  // namespace
