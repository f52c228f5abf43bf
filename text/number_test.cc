#include "text/number.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/support/number_samples.h"
#include "tests/support/process.h"

namespace {

constexpr int COUNT_OF_A_KIND = 100000;
constexpr double INFINITE = std::numeric_limits<double>::infinity();

void expect_reference(double v) {
  ASSERT_EQ(formatted(v), reference_text(v)) << testing::PrintToString(v);
}

void expect_reference_for(Samples::Kind kind) {
  Samples samples(kind, 20);
  for (int i = 0; i < COUNT_OF_A_KIND; ++i) {
    ASSERT_NO_FATAL_FAILURE(expect_reference(samples.next()));
  }
}

TEST(FormatValue, WritesZeroWithItsSign) {
  EXPECT_EQ(formatted(0.0), "0");
  EXPECT_EQ(formatted(-0.0), "-0");
}

TEST(FormatValue, WritesInfinityInCapitals) {
  EXPECT_EQ(formatted(INFINITE), "INF");
  EXPECT_EQ(formatted(-INFINITE), "-INF");
}

TEST(FormatValue, WritesNanInCapitals) {
  EXPECT_EQ(formatted(std::bit_cast<double>(std::uint64_t{0x7FF8000000000000})), "NAN");
  EXPECT_EQ(formatted(std::bit_cast<double>(std::uint64_t{0xFFF8000000000000})), "-NAN");
}

TEST(FormatValue, LeavesOutTrailingZerosAndTheirPoint) {
  EXPECT_EQ(formatted(20), "20");
  EXPECT_EQ(formatted(-7), "-7");
  EXPECT_EQ(formatted(100000), "100000");
  EXPECT_EQ(formatted(21.5), "21.5");
  EXPECT_EQ(formatted(0.25), "0.25");
}

TEST(FormatValue, WritesSixSignificantDigitsBelowAMillion) {
  EXPECT_EQ(formatted(21.53), "21.53");
  EXPECT_EQ(formatted(1017.4), "1017.4");
  EXPECT_EQ(formatted(-4.69167123123), "-4.69167");
  EXPECT_EQ(formatted(123456.7), "123457");
  EXPECT_EQ(formatted(0.000123456789), "0.000123457");
}

TEST(FormatValue, WritesAllIntegerDigitsFromAMillionUp) {
  EXPECT_EQ(formatted(1000000), "1000000");
  EXPECT_EQ(formatted(1234567), "1234567");
  EXPECT_EQ(formatted(-123456789012.25), "-123456789012");
  EXPECT_EQ(formatted(300000007.75), "300000008");
  EXPECT_EQ(formatted(1e20), "100000000000000000000");
}

TEST(FormatValue, WritesAnExponentBelowOneTenThousandth) {
  EXPECT_EQ(formatted(0.0001), "0.0001");
  EXPECT_EQ(formatted(0.00001), "1E-05");
  EXPECT_EQ(formatted(-0.0000123456789), "-1.23457E-05");
  EXPECT_EQ(formatted(1.5e-8), "1.5E-08");
  EXPECT_EQ(formatted(1.5e-9), "1.5E-09");
  EXPECT_EQ(formatted(5e-324), "4.94066E-324");
}

TEST(FormatValue, RoundsUpToTheNextPowerOfTen) {
  EXPECT_EQ(formatted(9.9999999), "10");
  EXPECT_EQ(formatted(0.99999999), "1");
  EXPECT_EQ(formatted(99999.97), "100000");
  EXPECT_EQ(formatted(0.000099999999), "0.0001");
}

TEST(FormatValue, ComputesThePrecisionBeforeRounding) {
  EXPECT_EQ(formatted(999999.4), "999999");
  EXPECT_EQ(formatted(999999.5), "1E+06");
  EXPECT_EQ(formatted(-9999999.5), "-1E+07");
  EXPECT_EQ(formatted(99999999.75), "1E+08");
}

TEST(FormatValue, RoundsExactTiesToTheEvenDigit) {
  EXPECT_EQ(formatted(100000.5), "100000");
  EXPECT_EQ(formatted(100001.5), "100002");
  EXPECT_EQ(formatted(1.953125), "1.95312");
  EXPECT_EQ(formatted(1.984375), "1.98438");
  EXPECT_EQ(formatted(1234566.5), "1234566");
  EXPECT_EQ(formatted(1234567.5), "1234568");
}

TEST(FormatValue, FillsTheLongestTextWithTheLowestDouble) {
  const std::string text = formatted(std::numeric_limits<double>::lowest());
  EXPECT_EQ(text.size(), MAX_VALUE_TEXT);
  EXPECT_EQ(text, reference_text(std::numeric_limits<double>::lowest()));
}

TEST(FormatValue, EqualsPrintfForAnyBits) { expect_reference_for(Samples::RANDOM_BITS); }
TEST(FormatValue, EqualsPrintfInUniformRanges) { expect_reference_for(Samples::UNIFORM); }
TEST(FormatValue, EqualsPrintfInAllMagnitudes) { expect_reference_for(Samples::ANY_MAGNITUDE); }
TEST(FormatValue, EqualsPrintfForDecimals) { expect_reference_for(Samples::DECIMAL); }
TEST(FormatValue, EqualsPrintfForWholeNumbers) { expect_reference_for(Samples::WHOLE); }
TEST(FormatValue, EqualsPrintfForHalves) { expect_reference_for(Samples::HALF); }
TEST(FormatValue, EqualsPrintfForBinaryFractions) { expect_reference_for(Samples::DYADIC); }
TEST(FormatValue, EqualsPrintfNextToTies) { expect_reference_for(Samples::SIX_DIGIT_TIE); }
TEST(FormatValue, EqualsPrintfAroundRandomChangesOfPrecision) {
  expect_reference_for(Samples::NEAR_SWITCH);
}
TEST(FormatValue, EqualsPrintfIfItRoundsUp) { expect_reference_for(Samples::NEAR_ROUNDING_UP); }
TEST(FormatValue, EqualsPrintfNearPowersOfTen) { expect_reference_for(Samples::NEAR_SEAM); }
TEST(FormatValue, EqualsPrintfForSubnormals) { expect_reference_for(Samples::SUBNORMAL); }

TEST(FormatValue, EqualsPrintfWithin64DoublesOfEveryPowerOfTen) {
  for (int exponent = -320; exponent <= 308; ++exponent) {
    for (std::int64_t i = -64; i <= 64; ++i) {
      const double v = neighbour(power_of_ten(exponent), i);
      ASSERT_NO_FATAL_FAILURE(expect_reference(v));
      ASSERT_NO_FATAL_FAILURE(expect_reference(-v));
    }
  }
}

TEST(FormatValue, EqualsPrintfAroundEveryChangeOfPrecision) {
  const std::int64_t reach = is_emulated() ? 100 : 600;
  for (int exponent = 5; exponent <= 308; ++exponent) {
    const double first = switch_of_precision(exponent);
    ASSERT_EQ(static_cast<int>(std::log10(first)), exponent);
    ASSERT_EQ(static_cast<int>(std::log10(neighbour(first, -1))), exponent - 1);
    for (std::int64_t i = -reach; i <= reach; ++i) {
      ASSERT_NO_FATAL_FAILURE(expect_reference(neighbour(first, i)));
    }
  }
}

}  // namespace
