#include "trendtool/export/sheet_name.h"

#include <gtest/gtest.h>

namespace {

TEST(SheetNames, ReplacesWhatExcelRefuses) {
  SheetNames names;
  EXPECT_EQ(names.make("site/weather"), "site weather");
  EXPECT_EQ(names.make("/a[b]:c*d?e\\f'"), "a b  c d e f");
  EXPECT_EQ(names.make("a\nb\tc"), "a b c");
  EXPECT_EQ(names.make("///"), "sheet");
  EXPECT_EQ(names.make(""), "sheet (2)");
}

TEST(SheetNames, CutsLongNames) {
  SheetNames names;
  EXPECT_EQ(names.make(std::string(40, 'x')), std::string(31, 'x'));
  EXPECT_EQ(names.make(std::string(40, 'x')), std::string(27, 'x') + " (2)");
  std::string umlauts;
  std::string cut;
  for (int i = 0; i < 40; ++i) umlauts += "\u00fc";
  for (int i = 0; i < 31; ++i) cut += "\u00fc";
  EXPECT_EQ(names.make(umlauts), cut);
}

TEST(SheetNames, AreDifferentWhateverTheirCase) {
  SheetNames names;
  EXPECT_EQ(names.make("a"), "a");
  EXPECT_EQ(names.make("A"), "A (2)");
  EXPECT_EQ(names.make("a"), "a (3)");
  EXPECT_EQ(names.make("b"), "b");
}

}  // namespace
