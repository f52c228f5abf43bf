#include "trendtool/plot/script.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

using testing::HasSubstr;
using testing::Not;
using toolkit::trend::CSnapshot;

namespace {

constexpr double NONE = std::numeric_limits<double>::quiet_NaN();

PlotSeries hour_of(const std::string& name, std::uint32_t statistics,
                   const toolkit::trend::CSample& sample) {
  Curve curve(1);
  CSnapshot row;
  row.timestamp = 3600;
  row.interval_minutes = 60;
  curve.add(row, sample);
  PlotSeries series{name, {}, curve.take_columns()};
  toolkit::trend::set_statistics(series.param, statistics);
  return series;
}

PlotSeries average(const std::string& name) {
  return hour_of(name, 4, {NONE, NONE, 1.5, NONE, NONE});
}
PlotSeries sum(const std::string& name, double value = 8) {
  return hour_of(name, 16, {NONE, NONE, NONE, NONE, value});
}

Picture picture_of(std::vector<PlotSeries> series) {
  Picture picture;
  picture.format = PictureFormat::SVG;
  picture.title = "site/a";
  picture.use_utc = true;
  picture.range = {0, 3600};
  picture.series = std::move(series);
  return picture;
}

std::size_t count(const std::string& text, const std::string& part) {
  std::size_t found = 0;
  for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++found;
  return found;
}

TEST(Script, HasTheDataOfEachShape) {
  const std::string script = make_script(picture_of({average("a")}));
  EXPECT_THAT(script, HasSubstr("$block_0_0 << END_OF_BLOCK\n0 1.5\n3600 1.5\nEND_OF_BLOCK\n"));
  EXPECT_THAT(script, HasSubstr("plot $block_0_0 using 1:2 with lines"));
  EXPECT_THAT(script, HasSubstr("set xrange [0:3600]"));
}

TEST(Script, TurnsMarkupInNamesOff) {
  for (const PictureFormat format :
       {PictureFormat::TEXT, PictureFormat::PNG, PictureFormat::SVG, PictureFormat::PDF}) {
    Picture picture = picture_of({average("a")});
    picture.format = format;
    const std::string script = make_script(picture);
    const std::string terminal = script.substr(script.find("set terminal"));
    EXPECT_THAT(terminal.substr(0, terminal.find('\n')), HasSubstr(" noenhanced"));
  }
}

TEST(Script, NeverPutsANameOutsideOfQuotes) {
  const std::string name = "it's\n!touch x\n`y`\\";
  for (const bool together : {false, true}) {
    Picture picture = picture_of({average(name)});
    picture.title = name;
    picture.together = together;
    const std::string script = make_script(picture);
    EXPECT_EQ(count(script, "'it''s !touch x `y`\\'"), 2U);
    EXPECT_EQ(count(script, "touch"), 2U);
  }
}

TEST(Script, HasAPanelForEachParameter) {
  const std::string script = make_script(picture_of({average("a"), average("b")}));
  EXPECT_EQ(count(script, "\nplot "), 2U);
  EXPECT_THAT(script, HasSubstr("set label 1 'a'"));
  EXPECT_THAT(script, HasSubstr("set label 1 'b'"));
  // The times stand only below the last panel.
  EXPECT_EQ(count(script, "\"00:00\\n1 Jan 1970\" 0"), 1U);
}

TEST(Script, HasOnePanelForParametersTogether) {
  Picture picture = picture_of({average("a"), average("b")});
  picture.together = true;
  const std::string script = make_script(picture);
  EXPECT_EQ(count(script, "\nplot "), 1U);
  EXPECT_THAT(script, HasSubstr("lc rgb '#0072B2' title 'a', \\\n"));
  EXPECT_THAT(script, HasSubstr("lc rgb '#D55E00' title 'b'\n"));
}

TEST(Script, GivesSumsAnAxisOfTheirOwnBesideOtherValues) {
  Picture picture = picture_of({average("a"), sum("b")});
  EXPECT_THAT(make_script(picture), Not(HasSubstr("x1y2")));
  picture.together = true;
  const std::string script = make_script(picture);
  EXPECT_THAT(script, HasSubstr("axes x1y2 title 'b (sum)'"));
  EXPECT_THAT(script, HasSubstr("set y2range [0:*]"));
}

TEST(Script, SaysWhereAParameterHasNoValues) {
  PlotSeries empty = average("b");
  empty.columns.clear();
  const std::string script = make_script(picture_of({average("a"), empty}));
  EXPECT_EQ(count(script, "'no values'"), 1U);
}

TEST(Script, SetsTheSizeOfThePicture) {
  Picture picture = picture_of({average("a")});
  EXPECT_THAT(make_script(picture), HasSubstr("set terminal svg size 1200,464 "));
  picture.series.push_back(average("b"));
  EXPECT_THAT(make_script(picture), HasSubstr("set terminal svg size 1200,488 "));
  picture.width = 600;
  picture.height = 400;
  EXPECT_THAT(make_script(picture), HasSubstr("set terminal svg size 600,400 "));
  picture.format = PictureFormat::PDF;
  EXPECT_THAT(make_script(picture), HasSubstr("set terminal pdfcairo size 600e-2in,400e-2in "));
}

TEST(Script, ShowsNegativeSumsToo) {
  EXPECT_THAT(make_script(picture_of({sum("a")})), HasSubstr("set yrange [0:*]"));
  Picture picture = picture_of({sum("a", -8), sum("b"), average("c")});
  picture.together = true;
  EXPECT_THAT(make_script(picture), HasSubstr("set y2range [*:*]"));
  EXPECT_THAT(make_script(picture_of({sum("a", -8)})), Not(HasSubstr("[0:*]")));
}

TEST(Script, NamesTheCharacterThatFillsAnAreaOnce) {
  Picture picture = picture_of({hour_of("a", 7, {1, 3, 2, NONE, NONE})});
  picture.format = PictureFormat::TEXT;
  EXPECT_THAT(make_script(picture), HasSubstr("title 'min to max (X)'"));
  picture.together = true;
  EXPECT_THAT(make_script(picture), Not(HasSubstr("(X)")));
}

}  // namespace
