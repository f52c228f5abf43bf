#include "text/time_text.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <random>
#include <string>

#include "tests/support/process.h"

namespace {

std::string formatted(const std::string& format, const std::tm& fields) {
  std::array<char, MAX_TIME_TEXT> text;
  return {text.data(), format_time(format, fields, text.data())};
}

std::string reference(const std::string& format, const std::tm& fields) {
  std::array<char, MAX_TIME_TEXT> text;
  return {text.data(), std::strftime(text.data(), text.size(), format.c_str(), &fields)};
}

std::tm utc(std::int64_t time) {
  std::tm fields = {};
  const auto seconds = static_cast<std::time_t>(time);
  gmtime_r(&seconds, &fields);
  return fields;
}

TEST(FormatTime, WritesDateAndTimeLikeStrftimeAtAnyTime) {
  std::mt19937_64 random(1);
  for (int i = 0; i < random_rounds(200000); ++i) {
    const std::tm fields = utc(static_cast<std::int32_t>(random()));
    for (const char* format : {"%F", "%R", "%T", "%Y%m%dT%H%M%S", "%d.%m.%Y", "at %H o'clock"}) {
      ASSERT_EQ(formatted(format, fields), reference(format, fields)) << i;
    }
  }
}

TEST(FormatTime, WritesEveryConversionLikeStrftime) {
  for (const std::time_t time : {1, 951827696, 1330473600, 2147483647}) {
    const std::tm fields = utc(time);
    for (int c = 1; c < 128; ++c) {
      for (const std::string flag : {"", "E", "O", "-", "_", "0", "^", "#", "5", "+4"}) {
        const std::string format = "<%" + flag + static_cast<char>(c) + ">%Y";
        EXPECT_EQ(formatted(format, fields), reference(format, fields)) << format;
      }
    }
    EXPECT_EQ(formatted("%", fields), reference("%", fields));
    EXPECT_EQ(formatted("%Y%", fields), reference("%Y%", fields));
    EXPECT_EQ(formatted("%%Y", fields), "%Y");
  }
}

TEST(FormatTime, WritesYearsOfOtherLengthsLikeStrftime) {
  for (const int year : {-5, 0, 7, 99, 999, 1000, 9999, 10000, 36812}) {
    std::tm fields = utc(1000000000);
    fields.tm_year = year - 1900;
    for (const char* format : {"%F", "%Y", "%Y-%m-%d %T"}) {
      EXPECT_EQ(formatted(format, fields), reference(format, fields)) << year;
    }
  }
}

TEST(FormatTime, WritesNothingIfTheTextDoesNotFit) {
  const std::tm fields = utc(1000000000);
  for (std::size_t length = 0; length < 140; ++length) {
    const std::string text(length, 'x');
    EXPECT_EQ(formatted(text, fields), length < MAX_TIME_TEXT ? text : "") << length;
    EXPECT_EQ(formatted(text + "%F", fields),
              length + 10 < MAX_TIME_TEXT ? text + "2001-09-09" : "")
        << length;
  }
  std::string dates;
  for (std::size_t count = 1; count < 20; ++count) {
    dates += "%F";
    EXPECT_EQ(formatted(dates, fields).size(), count * 10 < 128 ? count * 10 : 0) << count;
  }
}

}  // namespace
