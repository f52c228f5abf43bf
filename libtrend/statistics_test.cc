#include "libtrend/statistics.h"

#include <gtest/gtest.h>

namespace toolkit::trend {
namespace {

TEST(Statistics, HaveOneBitEach) {
  EXPECT_EQ(ALL_STATISTICS, 31U);
  EXPECT_EQ(get_statistics({}), 0U);
  EXPECT_EQ(get_statistics({.path = "", .has_min = true}), 1U);
  EXPECT_EQ(get_statistics({.path = "", .has_max = true}), 2U);
  EXPECT_EQ(get_statistics({.path = "", .has_avg = true}), 4U);
  EXPECT_EQ(get_statistics({.path = "", .has_actual = true}), 8U);
  EXPECT_EQ(get_statistics({.path = "", .has_sum = true}), 16U);
}

TEST(Statistics, KeepTheirFlagsInAMask) {
  for (std::uint32_t mask = 0; mask <= ALL_STATISTICS; ++mask) {
    CParamProperties param;
    set_statistics(param, ~mask);
    set_statistics(param, mask);
    EXPECT_EQ(get_statistics(param), mask);
  }
}

TEST(Statistics, BelongToOneMemberEach) {
  const CSample sample = {.min = 1, .max = 2, .avg = 3, .actual = 4, .sum = 5};
  double expected = 1;
  for (const Statistic& statistic : STATISTICS) EXPECT_EQ(sample.*statistic.member, expected++);
}

TEST(Statistics, TakeSlotsOnlyIfTheyAreRecorded) {
  const CParamProperties param = {.path = "", .aux_1 = 7, .has_max = true, .has_actual = true};
  EXPECT_EQ(get_slot(param, 0), 7U);
  EXPECT_EQ(get_slot(param, 1), 7U);
  EXPECT_EQ(get_slot(param, 3), 8U);
  EXPECT_EQ(get_slot(param, STATISTICS.size()), 9U);
  EXPECT_EQ(get_slot({.path = "", .aux_1 = 3}, STATISTICS.size()), 3U);
}

}  // namespace
}  // namespace toolkit::trend
