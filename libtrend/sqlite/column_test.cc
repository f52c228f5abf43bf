#include "libtrend/sqlite/column.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <functional>
#include <limits>
#include <random>

namespace toolkit::trend {
namespace {

using Bytes = std::vector<unsigned char>;
using Values = std::vector<double>;

constexpr double NONE = std::numeric_limits<double>::quiet_NaN();
constexpr double INF = std::numeric_limits<double>::infinity();

Bytes encode(const Values& values) {
  Bytes bytes;
  encode_column(values, bytes);
  return bytes;
}

testing::AssertionResult is_same(double actual, double expected) {
  if (std::isnan(expected)
          ? std::isnan(actual)
          : std::bit_cast<std::uint64_t>(actual) == std::bit_cast<std::uint64_t>(expected)) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << actual << " instead of " << expected;
}

/// Checks that the values come back from an encoding of so many bytes.
void expect_back(const Values& values, std::size_t size) {
  const Bytes bytes = encode(values);
  EXPECT_EQ(bytes.size(), size);
  Values back(values.size(), 77);
  ASSERT_TRUE(decode_column(bytes, back));
  for (std::size_t i = 0; i < values.size(); ++i) ASSERT_TRUE(is_same(back[i], values[i])) << i;
}

constexpr std::size_t DECIMAL_HEAD = 10;

TEST(Column, TakesOneByteWhereAllIsMissing) {
  for (const std::size_t count : {1U, 2U, 512U}) expect_back(Values(count, NONE), 1);
}

TEST(Column, TakesNineBytesForAConstant) {
  for (const double value : {0.0, -0.0, 21.5, 1 / 3.0, INF, -INF, 5e-324, 1.7976931348623157e308}) {
    for (const std::size_t count : {1U, 2U, 512U}) expect_back(Values(count, value), 9);
  }
}

TEST(Column, TellsZeroFromMinusZero) {
  expect_back({0.0, -0.0, 0.0}, 1 + 4 * 3);
  expect_back({-0.0, -0.0, 1.0}, 1 + 4 * 3);
  expect_back({0.0, 1.0, 2.0}, DECIMAL_HEAD + 3);
}

/// Values from `first` to `first` + `span` units of 10^-places, a missing one among them.
Values make_decimals(std::int64_t first, std::int64_t span, int places) {
  Values values = {NONE};
  for (const std::int64_t code : {std::int64_t{0}, span, span / 2, std::int64_t{1}}) {
    values.push_back(static_cast<double>(first + code) / std::pow(10.0, places));
  }
  return values;
}

TEST(Column, TakesTheFewestBytesForDecimals) {
  for (const int places : {0, 1, 2, 3, 6}) {
    for (const std::int64_t first : {0, 1, -127, -1000000, 123456789}) {
      expect_back(make_decimals(first, 254, places), DECIMAL_HEAD + 5);
      expect_back(make_decimals(first, 255, places), DECIMAL_HEAD + 2 * 5);
      expect_back(make_decimals(first, 65534, places), DECIMAL_HEAD + 2 * 5);
    }
  }
  // Beyond that, four bytes; 32-bit floats where these do.
  expect_back(make_decimals(0, 65535, 1), DECIMAL_HEAD + 4 * 5);
  expect_back(make_decimals(0, 65535, 0), 1 + 4 * 5);
  expect_back(make_decimals(-5, 4294967294, 1), DECIMAL_HEAD + 4 * 5);
  expect_back(make_decimals(0, 4294967295, 1), 1 + 8 * 5);
}

TEST(Column, KeepsDecimalsOfEveryLength) {
  std::mt19937_64 random(2);
  for (int places = 0; places <= 17; ++places) {
    for (int digits = 1; digits <= 17; ++digits) {
      Values values;
      for (int i = 0; i < 50; ++i) {
        const auto whole =
            static_cast<double>(random() % static_cast<std::uint64_t>(std::pow(10.0, digits)));
        values.push_back((i % 3 == 0 ? -whole : whole) / std::pow(10.0, places));
      }
      expect_back(values, encode(values).size());
    }
  }
}

TEST(Column, TakesFloatsWhereTheyAreExact) {
  expect_back({0.333251953125f, 1e30f, -INF, NONE}, 1 + 4 * 4);
  expect_back({1 / 3.0f, 2 / 3.0f, 1.17549435e-38f, 1e-45f}, 1 + 4 * 4);
  expect_back({1 / 3.0, 2 / 3.0, NONE}, 1 + 8 * 3);
  expect_back({INF, -INF, NONE, 1 / 3.0}, 1 + 8 * 4);
}

TEST(Column, KeepsEveryClassOfDoubles) {
  std::mt19937_64 random(3);
  const std::vector<std::function<double()>> classes = {
      [] { return NONE; },
      [] { return INF; },
      [] { return -0.0; },
      [&] { return std::bit_cast<double>(random()); },
      [&] { return std::bit_cast<double>(random() >> 12); },
      [&] { return static_cast<double>(random() % 100); },
      [&] { return static_cast<double>(random() % 3000) / 10; },
      [&] { return static_cast<double>(static_cast<float>(std::bit_cast<double>(random()))); },
      [&] { return static_cast<double>(random()); },
      [&] { return 9007199254740992.0 - static_cast<double>(random() % 5); },
  };
  for (std::size_t a = 0; a < classes.size(); ++a) {
    for (std::size_t b = 0; b < classes.size(); ++b) {
      for (const std::size_t count : {1U, 2U, 3U, 7U, 64U, 511U, 512U}) {
        Values values;
        for (std::size_t i = 0; i < count; ++i) {
          values.push_back(classes[random() % 2 == 0 ? a : b]());
        }
        ASSERT_NO_FATAL_FAILURE(expect_back(values, encode(values).size())) << a << ' ' << b;
        EXPECT_LE(encode(values).size(), 1 + 8 * count);
      }
    }
  }
}

TEST(Column, TakesEveryNanForTheSameMissingValue) {
  const auto nan = std::bit_cast<double>(std::uint64_t{0xFFF8000000000123});
  EXPECT_EQ(encode({nan, 1 / 3.0}), encode({NONE, 1 / 3.0}));
  EXPECT_EQ(encode({nan, nan}), encode({NONE, NONE}));
}

TEST(Column, RefusesOtherLengths) {
  const std::vector<Values> columns = {
      {NONE, NONE, NONE},      {1, 1, 1}, {1, 2, 3}, {1, 2, 300}, {1, 2.5, 1e5}, {0.1, 2, 1e5},
      {1 / 3.0, 2 / 3.0, NONE}};
  for (const Values& values : columns) {
    const Bytes bytes = encode(values);
    Values back(values.size());
    EXPECT_TRUE(decode_column(bytes, back));
    Bytes longer = bytes;
    longer.push_back(0);
    EXPECT_FALSE(decode_column(longer, back));
    for (std::size_t size = 0; size < bytes.size(); ++size) {
      EXPECT_FALSE(decode_column(std::span(bytes).first(size), back));
    }
  }
}

TEST(Column, RefusesUnknownKindsPlacesAndBases) {
  Values back(1);
  for (int kind = 7; kind < 256; ++kind) {
    EXPECT_FALSE(decode_column(Bytes{static_cast<unsigned char>(kind)}, back));
  }
  Bytes bytes = {2, 15, 0, 0, 0, 0, 0, 0, 0, 5, 0};
  EXPECT_TRUE(decode_column(bytes, back));
  bytes[1] = 16;
  EXPECT_FALSE(decode_column(bytes, back));
  bytes = {2, 0, 0, 0x20, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_TRUE(decode_column(bytes, back));
  EXPECT_EQ(back[0], 0x1p53);
  bytes[9] = 1;
  EXPECT_TRUE(decode_column(bytes, back)) << "2^53 + 1 is 2^53 as a double";
  bytes[9] = 2;
  EXPECT_FALSE(decode_column(bytes, back));
}

using Times = std::vector<std::int64_t>;
constexpr std::int64_t LATEST = (std::int64_t{1} << 40) - 1;

void expect_times_back(const Times& times, std::size_t size) {
  Bytes bytes;
  encode_times(times, bytes);
  EXPECT_EQ(bytes.size(), size);
  Times back(times.size());
  back[0] = times[0];
  ASSERT_TRUE(decode_times(bytes, LATEST, back));
  EXPECT_EQ(back, times);
  EXPECT_TRUE(decode_times(bytes, times.back(), back));
  EXPECT_FALSE(decode_times(bytes, times.back() - 1, back));
}

TEST(Times, TakeNineBytesWhereTheyAreRegular) {
  expect_times_back({300}, 9);
  expect_times_back({300, 600}, 9);
  Times times;
  for (std::int64_t i = 1; i <= 512; ++i) times.push_back(1'000'000'000 + 300 * i);
  expect_times_back(times, 9);
  expect_times_back({1, LATEST}, 9);
}

TEST(Times, TakeDifferencesWhereTheyAreNot) {
  expect_times_back({300, 600, 1200}, 9 + 2 * 2);
  expect_times_back({300, 600, 1155}, 9 + 2);
  expect_times_back({300, 600, 1156}, 9 + 2 * 2);
  expect_times_back({1, 2, 65538}, 9 + 2 * 2);
  expect_times_back({1, 2, 65539}, 9 + 2 * 4);
  expect_times_back({1, 2, LATEST}, 9 + 2 * 8);
}

TEST(Times, RefuseWhatDoesNotAscend) {
  Bytes bytes;
  encode_times(Times{5, 6, 7}, bytes);
  Times back = {5, 0, 0};
  EXPECT_TRUE(decode_times(bytes, LATEST, back));
  bytes[8] = 0;
  EXPECT_FALSE(decode_times(bytes, LATEST, back)) << "a step of 0";
  for (std::size_t i = 1; i < 8; ++i) {
    bytes[i] = 0xFF;
    EXPECT_FALSE(decode_times(bytes, LATEST, back)) << "a step beyond the end of time";
  }
}

TEST(Times, RefuseOtherLengthsAndSizes) {
  Bytes bytes;
  encode_times(Times{300, 600, 1200}, bytes);
  Times back = {300, 0, 0};
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_FALSE(decode_times(std::span(bytes).first(size), LATEST, back));
  }
  bytes.push_back(0);
  EXPECT_FALSE(decode_times(bytes, LATEST, back));
  EXPECT_FALSE(decode_times(bytes, LATEST, {}));
  bytes.resize(9);
  for (int size = 1; size < 256; ++size) {
    bytes[0] = static_cast<unsigned char>(size);
    EXPECT_FALSE(decode_times(bytes, LATEST, back));
  }
}

}  // namespace
}  // namespace toolkit::trend
