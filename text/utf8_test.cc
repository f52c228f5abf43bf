#include "text/utf8.h"

#include <gtest/gtest.h>

namespace {

TEST(ShowControls, KeepsWhatATerminalOnlyShows) {
  for (const char* text : {"", "site/weather", "a\\nb", "it's \"x\"",
                           "Temperature [\u00b0C] \u20ac\U0001d11e", "\u00a0"}) {
    EXPECT_EQ(show_controls(text), text);
  }
}

TEST(ShowControls, EscapesEachControlCharacter) {
  EXPECT_EQ(show_controls("a\nb\rc\td"), "a\\nb\\rc\\td");
  EXPECT_EQ(show_controls("\x1b[2J\x07\x7f"), "\\x1b[2J\\x07\\x7f");
  EXPECT_EQ(show_controls(std::string_view("\0x", 2)), "\\x00x");
  EXPECT_EQ(show_controls("\u0080\u009b31m\u009f"), "\\u0080\\u009b31m\\u009f");
  for (char c = 1; c < ' '; ++c) EXPECT_EQ(show_controls({&c, 1})[0], '\\') << int{c};
}

TEST(ShowControls, EscapesBytesThatAreNotUtf8) {
  // Some terminals take the byte 0x9B for the start of a command.
  EXPECT_EQ(show_controls("\x9b"
                          "2J"),
            "\\x9b2J");
  EXPECT_EQ(show_controls("\xb0"
                          "C \xe2\x82"),
            "\\xb0C \\xe2\\x82");
  EXPECT_EQ(show_controls("\xc0\x9b\xed\xa0\x80"), "\\xc0\\x9b\\xed\\xa0\\x80");
}

}  // namespace
