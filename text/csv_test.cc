#include "text/csv.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include "tests/support/process.h"
#include "text/number.h"

namespace {

constexpr double INF = std::numeric_limits<double>::infinity();

std::string print(double value) {
  std::array<char, MAX_VALUE_TEXT> text;
  return {text.data(), format_value(value, text.data())};
}

/// Checks that the text of `value` is read as a value with the same text.
testing::AssertionResult survives(double value) {
  const std::string text = print(value);
  double again = 0;
  if (!read_value(text, again)) return testing::AssertionFailure() << text << " is not read";
  if (print(again) == text) return testing::AssertionSuccess();
  return testing::AssertionFailure() << text << " is read as " << print(again);
}

TEST(SplitFields, SplitsAtEveryComma) {
  EXPECT_EQ(split_fields("a,b c,d"), (std::vector<std::string_view>{"a", "b c", "d"}));
  EXPECT_EQ(split_fields("\"a,b\""), (std::vector<std::string_view>{"\"a", "b\""}));
}

TEST(SplitFields, KeepsEmptyFields) {
  EXPECT_EQ(split_fields(""), (std::vector<std::string_view>{""}));
  EXPECT_EQ(split_fields(","), (std::vector<std::string_view>{"", ""}));
  EXPECT_EQ(split_fields("a,,b,"), (std::vector<std::string_view>{"a", "", "b", ""}));
}

TEST(SplitFields, LeavesTheRestOfALineWithTooManyFieldsInOne) {
  const std::string line(2 * MOST_FIELDS, ',');
  const std::vector<std::string_view> fields = split_fields(line);
  ASSERT_EQ(fields.size(), MOST_FIELDS + 1);
  EXPECT_EQ(fields[MOST_FIELDS - 1], "");
  EXPECT_EQ(fields.back().size(), MOST_FIELDS);
}

TEST(Quote, ShortensLongTexts) {
  EXPECT_EQ(quote("a'b"), "'a'b'");
  const std::string longest(4096, 'x');
  EXPECT_EQ(quote(longest), "'" + longest + "'");
  EXPECT_EQ(quote(longest + "yz"), "'" + longest + "...'");
}

TEST(ReadValue, ReadsAnEmptyFieldAsNaN) {
  double value = 0;
  ASSERT_TRUE(read_value("", value));
  EXPECT_TRUE(std::isnan(value));
}

TEST(ReadValue, ReadsNumbers) {
  const std::pair<const char*, double> cases[] = {
      {"0", 0},         {"21.5", 21.5},       {"-3.25", -3.25}, {"1.2345E-05", 1.2345e-5},
      {"1e3", 1000},    {"1234568", 1234568}, {".5", 0.5},      {"5.", 5},
      {"007", 7},       {"INF", INF},         {"-INF", -INF},   {"inf", INF},
      {"1E+300", 1e300}};
  for (const auto& [text, wanted] : cases) {
    double value = 99;
    EXPECT_TRUE(read_value(text, value)) << text;
    EXPECT_EQ(value, wanted) << text;
  }
}

TEST(ReadValue, RefusesTextThatIsNotANumber) {
  for (const char* text :
       {"abc", "nan",   "NAN",   "-nan",  "nan(1)", "0x10",   "0X1P3", " 1", "1 ",
        "\t1", "+1",    "--1",   "-",     "+",      ".",      "e5",    "1e", "1e+",
        "1,5", "1.5.2", "1_000", "1e400", "-1e400", "1e-400", "12abc", "1;"}) {
    double value = 0;
    EXPECT_FALSE(read_value(text, value)) << text;
  }
}

TEST(ReadValue, ReadsPowersOfTenThatWereRoundedUp) {
  EXPECT_EQ(print(999999.5), "1E+06");
  for (int power = 5; power <= 15; ++power) {
    const double ten = std::pow(10, power);
    for (const double value : {ten, std::nextafter(ten, 0.0), std::nextafter(ten, INF), ten - 0.5,
                               ten - 0.25, ten - 0.75, ten - 1, ten + 0.5}) {
      EXPECT_TRUE(survives(value)) << power;
      EXPECT_TRUE(survives(-value)) << power;
    }
  }
}

TEST(ReadValue, ReadsTheNumbersNextToPowersOfTen) {
  for (int power = 6; power <= 17; ++power) {
    double below = std::pow(10, power);
    double above = below;
    for (int i = 0; i < 200; ++i) {
      below = std::nextafter(below, 0.0);
      above = std::nextafter(above, INF);
      ASSERT_TRUE(survives(below) && survives(-above)) << power;
    }
  }
}

TEST(ReadValue, ReadsTheExtremesBack) {
  using Limits = std::numeric_limits<double>;
  for (const double value :
       {0.0, -0.0, INF, -INF, Limits::max(), Limits::lowest(), Limits::min(), Limits::denorm_min(),
        -Limits::denorm_min(), std::nextafter(Limits::min(), 0.0)}) {
    EXPECT_TRUE(survives(value));
  }
  for (int power = -323; power <= 308; ++power) {
    const double ten = std::pow(10, power);
    EXPECT_TRUE(survives(ten) && survives(std::nextafter(ten, 0.0)) &&
                survives(std::nextafter(ten, INF)))
        << power;
  }
}

TEST(ReadValue, ReadsBackNumbersOfAnySizeAsPrinted) {
  std::mt19937_64 random(20231105);
  for (int i = 0; i < random_rounds(250'000); ++i) {
    const double share = static_cast<double>(random() % (1 << 30)) / (1 << 30);
    const double power = std::pow(10, static_cast<int>(random() % 18));
    double values[] = {
        std::bit_cast<double>(random()),                             // any bits at all
        (share - 0.5) * 2 * power,                                   // of every usual size
        power - static_cast<double>(random() % 64) / 32,             // just below a power of ten
        std::bit_cast<double>(random() & 0x800F'FFFF'FFFF'FFFFULL),  // subnormal
    };
    for (const double value : values) {
      if (std::isnan(value)) continue;
      ASSERT_TRUE(survives(value));
    }
  }
}

TEST(ReadPercent, ReadsAShare) {
  double ratio = -1;
  ASSERT_TRUE(read_percent("100.00", ratio));
  EXPECT_EQ(ratio, 1);
  ASSERT_TRUE(read_percent("0", ratio));
  EXPECT_EQ(ratio, 0);
  ASSERT_TRUE(read_percent("12.5", ratio));
  EXPECT_EQ(ratio, 0.125);
}

TEST(ReadPercent, RefusesTextThatIsNotAPercentage) {
  for (const char* text : {"", "abc", "nan", "-1", "-0.01", "100.01", "1e3", "INF", "50%", " 50"}) {
    double ratio = 0;
    EXPECT_FALSE(read_percent(text, ratio)) << text;
  }
}

TEST(ReadPercent, KeepsEveryPercentageOfTwoDecimals) {
  for (int i = 0; i <= 10'000; ++i) {
    char text[16];
    std::snprintf(text, sizeof text, "%.2f", i / 100.0);
    double ratio = 0;
    ASSERT_TRUE(read_percent(text, ratio)) << text;
    char again[16];
    std::snprintf(again, sizeof again, "%.2f", ratio * 100);
    ASSERT_STREQ(again, text);
  }
}

}  // namespace
