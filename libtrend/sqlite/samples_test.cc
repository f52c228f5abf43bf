#include "libtrend/sqlite/samples.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

namespace toolkit::trend {
namespace {

using Bytes = std::vector<unsigned char>;

const CParamProperties MIN_AND_SUM = {.path = "", .aux_1 = 1, .has_min = true, .has_sum = true};
const CParamProperties ACTUAL = {.path = "", .aux_1 = 0, .has_actual = true};

TEST(PackSamples, PutsTheMostSignificantByteFirst) {
  EXPECT_EQ(pack_samples({}), Bytes{});
  const double values[] = {1.0, -2.5};
  EXPECT_EQ(pack_samples(values),
            (Bytes{0x3F, 0xF0, 0, 0, 0, 0, 0, 0, 0xC0, 0x04, 0, 0, 0, 0, 0, 0}));
}

TEST(UnpackSamples, ReadsEachStatisticFromItsSlot) {
  const double values[] = {10, 11, 12};
  std::vector<CSample> samples;
  ASSERT_TRUE(unpack_samples(pack_samples(values), {MIN_AND_SUM, ACTUAL, MIN_AND_SUM}, samples));
  ASSERT_EQ(samples.size(), 3U);
  EXPECT_EQ(samples[0].min, 11);
  EXPECT_EQ(samples[0].sum, 12);
  EXPECT_TRUE(std::isnan(samples[0].max) && std::isnan(samples[0].avg));
  EXPECT_EQ(samples[1].actual, 10);
  EXPECT_EQ(samples[2].sum, 12);
}

TEST(UnpackSamples, ReturnsNaNForSlotsAfterTheEnd) {
  const double values[] = {10, 11};
  std::vector<CSample> samples;
  ASSERT_TRUE(unpack_samples(pack_samples(values), {MIN_AND_SUM}, samples));
  EXPECT_EQ(samples[0].min, 11);
  EXPECT_TRUE(std::isnan(samples[0].sum));
  ASSERT_TRUE(unpack_samples({}, {MIN_AND_SUM, ACTUAL}, samples));
  EXPECT_TRUE(std::isnan(samples[0].min) && std::isnan(samples[1].actual));
  constexpr std::uint32_t FAR = std::numeric_limits<std::uint32_t>::max();
  ASSERT_TRUE(
      unpack_samples(pack_samples(values), {{.path = "", .aux_1 = FAR, .has_sum = true}}, samples));
  EXPECT_TRUE(std::isnan(samples[0].sum));
}

TEST(UnpackSamples, RefusesAPartOfAValue) {
  std::vector<CSample> samples;
  for (std::size_t size = 1; size < 24; ++size) {
    EXPECT_EQ(unpack_samples(Bytes(size), {ACTUAL}, samples), size % 8 == 0) << size;
  }
}

TEST(UnpackSamples, KeepsEveryBit) {
  for (const std::uint64_t bits :
       {std::uint64_t{0x8000000000000000}, std::uint64_t{1}, std::uint64_t{0x7FF0000000000000},
        std::uint64_t{0x7FF8000000000123}, std::uint64_t{0x0123456789ABCDEF}}) {
    const double values[] = {std::bit_cast<double>(bits)};
    std::vector<CSample> samples;
    ASSERT_TRUE(unpack_samples(pack_samples(values), {ACTUAL}, samples));
    EXPECT_EQ(std::bit_cast<std::uint64_t>(samples[0].actual), bits);
  }
}

}  // namespace
}  // namespace toolkit::trend
