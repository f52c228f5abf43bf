#include "trendtool/plot/gnuplot_text.h"

#include <gtest/gtest.h>

namespace {

TEST(GnuplotString, PutsQuotesAroundAText) {
  EXPECT_EQ(gnuplot_string("outdoor/temperature"), "'outdoor/temperature'");
  EXPECT_EQ(gnuplot_string(""), "''");
}

TEST(GnuplotString, DoublesQuotes) {
  EXPECT_EQ(gnuplot_string("it's"), "'it''s'");
  EXPECT_EQ(gnuplot_string("'"), "''''");
}

TEST(GnuplotString, LeavesWhatIsNotSpecialBetweenTheseQuotes) {
  EXPECT_EQ(gnuplot_string(R"(a\n`date` "b" $c @d #e {f}_g^h %d)"),
            R"('a\n`date` "b" $c @d #e {f}_g^h %d')");
}

TEST(GnuplotString, ReplacesControlCharactersByBlanks) {
  EXPECT_EQ(gnuplot_string("a\nb\tc\rd\x7f\u009b"), "'a b c d  '");
}

TEST(GnuplotString, KeepsUtf8AndReplacesOtherBytes) {
  EXPECT_EQ(gnuplot_string("Temperature [°C] €𝄞"), "'Temperature [°C] €𝄞'");
  EXPECT_EQ(gnuplot_string("\xB0"
                           "C"),
            "'?C'");
  // A character that is cut off, a longer form than needed, a surrogate, and one beyond the last.
  for (const std::string text :
       {"\xE2\x82", "\xC0\xA7", "\xE0\x80\xA7", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
    EXPECT_EQ(gnuplot_string(text), "'" + std::string(text.size(), '?') + "'");
  }
}

TEST(AppendNumber, WritesTheShortestText) {
  std::string script;
  for (const double value : {0.1, -1e300, 5e-324, 1017.1, 0.0}) {
    append_number(script, value);
    script += ' ';
  }
  append_number(script, std::int64_t{1} << 40);
  EXPECT_EQ(script, "0.1 -1e+300 5e-324 1017.1 0 1099511627776");
}

}  // namespace
