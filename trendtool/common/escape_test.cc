#include "trendtool/common/escape.h"

#include <gtest/gtest.h>

namespace {

std::string csv(std::string_view field, char separator = ',') {
  std::string text;
  append_csv_field(field, separator, text);
  return text;
}

std::string json(std::string_view value) {
  std::string text;
  append_json_string(value, text);
  return text;
}

TEST(AppendCsvField, QuotesWhatNeedsIt) {
  EXPECT_EQ(csv(""), "");
  EXPECT_EQ(csv("outdoor/temperature:.ValueIntMin"), "outdoor/temperature:.ValueIntMin");
  EXPECT_EQ(csv("a,b"), "\"a,b\"");
  EXPECT_EQ(csv("a\"b"), "\"a\"\"b\"");
  EXPECT_EQ(csv("\""), "\"\"\"\"");
  EXPECT_EQ(csv("a\nb"), "\"a\nb\"");
  EXPECT_EQ(csv("a\rb"), "\"a\rb\"");
  EXPECT_EQ(csv(" a"), "\" a\"");
  EXPECT_EQ(csv("a "), "\"a \"");
  EXPECT_EQ(csv("a b"), "a b");
}

TEST(AppendCsvField, QuotesTheSeparatorThatIsUsed) {
  EXPECT_EQ(csv("a,b", ';'), "a,b");
  EXPECT_EQ(csv("a;b", ';'), "\"a;b\"");
  EXPECT_EQ(csv("a\tb", '\t'), "\"a\tb\"");
}

TEST(AppendJsonString, EscapesWhatJsonDoesNotAllow) {
  EXPECT_EQ(json(""), "\"\"");
  EXPECT_EQ(json("a/b"), "\"a/b\"");
  EXPECT_EQ(json("a\"b\\c"), "\"a\\\"b\\\\c\"");
  EXPECT_EQ(json("\n\t\x01\x7f"), "\"\\u000a\\u0009\\u0001\\u007f\"");
  EXPECT_EQ(json(std::string_view("\0", 1)), "\"\\u0000\"");
}

TEST(AppendJsonString, KeepsUtf8) {
  for (const char* text : {"\u00e9", "\u20ac", "\U0001f321", "\u07ff\u0800\uffff", "\U0010ffff"}) {
    EXPECT_EQ(json(text), "\"" + std::string(text) + "\"");
  }
}

TEST(AppendJsonString, ReplacesWhatIsNotUtf8) {
  EXPECT_EQ(json("a\xffz"), "\"a\\ufffdz\"");
  EXPECT_EQ(json("\xe2\x82"), "\"\\ufffd\\ufffd\"");
  EXPECT_EQ(json("\x80"), "\"\\ufffd\"");
  EXPECT_EQ(json("\xc0\x80"), "\"\\ufffd\\ufffd\"");
  EXPECT_EQ(json("\xc1\xbf"), "\"\\ufffd\\ufffd\"");
  EXPECT_EQ(json("\xe0\x9f\xbf"), "\"\\ufffd\\ufffd\\ufffd\"");
  EXPECT_EQ(json("\xed\xa0\x80"), "\"\\ufffd\\ufffd\\ufffd\"");
  EXPECT_EQ(json("\xf0\x8f\xbf\xbf"), "\"\\ufffd\\ufffd\\ufffd\\ufffd\"");
  EXPECT_EQ(json("\xf4\x90\x80\x80"), "\"\\ufffd\\ufffd\\ufffd\\ufffd\"");
  EXPECT_EQ(json("\xf5\x80\x80\x80"), "\"\\ufffd\\ufffd\\ufffd\\ufffd\"");
}

}  // namespace
