// trendtool plot, with the real gnuplot, and with programs of its name that do something else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "libtrend/recorder.h"
#include "tests/support/process.h"
#include "tests/support/terminal.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr std::int64_t START = 1288569600;  ///< 2010-11-01 00:00 UTC
constexpr std::int64_t HOUR = 3600;
constexpr std::int64_t DAY = 24 * HOUR;

/// A name that would do something if gnuplot or a shell read it as a command or as markup.
const std::string EVIL_NAME = "it's_{/=30 x}^2 `touch evil`\" $(touch evil) <b>&%d\\n";

/// Records one device with days and then hours. There are no rows between hours 5 and 8.
void record_site(const std::string& path) {
  CRecorder recorder;
  CDeviceProperties site{.path = "site/one", .aux_text = ""};
  CParamProperties flow{.path = "flow", .has_avg = true, .has_sum = true};
  CParamProperties level{.path = EVIL_NAME, .has_actual = true};
  CSeries days;
  CSeries hours;
  bool is_recorded =
      recorder.open(path) == 0 && recorder.begin() == 0 && recorder.add_device(site) == 0 &&
      recorder.add_param(site, flow) == 0 && recorder.add_param(site, level) == 0 &&
      recorder.add_series(site, 60, hours) == 0 && recorder.add_series(site, 1440, days) == 0;
  for (int day = 1; day <= 2; ++day) {
    const double values[] = {100.0 + day, 200.0 + day, 300.0 + day};
    is_recorded = is_recorded && recorder.append(days, START + day * DAY, 1, values) == 0;
  }
  for (int hour = 1; hour <= 10; ++hour) {
    if (hour == 6 || hour == 7) continue;
    const double values[] = {100.0 + hour, 200.0 + hour, 300.0 + hour};
    is_recorded =
        is_recorded && recorder.append(hours, START + 2 * DAY + hour * HOUR, 1, values) == 0;
  }
  if (!is_recorded || recorder.commit() != 0) throw std::runtime_error(recorder.error());
}

class TrendtoolPlot : public testing::Test {
 protected:
  TrendtoolPlot() { record_site(db_); }

  std::vector<std::string> arguments(const std::vector<std::string>& more) const {
    std::vector<std::string> words = {"plot", "-x", db_};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }

  ProcessResult plot(const std::vector<std::string>& more, const Environment& environment = {}) {
    return run_tool("trendtool", arguments(more), "", environment, enter(folder_.path()));
  }

  /// Makes the program `gnuplot` from the lines of a shell script. Returns the environment in which
  /// it is found.
  Environment fake_gnuplot(const std::string& lines) {
    const std::string program = folder_.file("bin") + "/gnuplot";
    fs::create_directory(folder_.file("bin"));
    write_file(program, "#!/bin/sh\n" + lines);
    fs::permissions(program, fs::perms::owner_all);
    return {{"PATH", folder_.file("bin") + ":" + std::getenv("PATH")}};
  }

  /// The script that gnuplot is fed for these options.
  std::string script_for(const std::vector<std::string>& more) {
    const ProcessResult result = plot(more, fake_gnuplot("cat > script\necho picture\n"));
    EXPECT_EQ(result.exit_status, 0) << result.err;
    EXPECT_EQ(result.out, "picture\n");
    return read_file(folder_.file("script"));
  }

  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_.path())) {
      const std::string name = entry.path().filename();
      if (!name.starts_with("trend.db")) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};

using Files = std::vector<std::string>;

TEST_F(TrendtoolPlot, WritesAPngOfTheWantedSize) {
  const ProcessResult result = plot({"-f", "a.png", "--size", "700x500"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
  const std::string png = read_file(folder_.file("a.png"));
  ASSERT_GT(png.size(), 1000U);
  EXPECT_EQ(png.substr(0, 8), "\x89PNG\r\n\x1A\n");
  // The width and the height, with the highest byte first.
  EXPECT_EQ(png.substr(16, 8), std::string("\0\0\x02\xBC\0\0\x01\xF4", 8));
  EXPECT_THAT(png.substr(png.size() - 8), StartsWith("IEND"));
  EXPECT_EQ(files(), Files{"a.png"});
}

TEST_F(TrendtoolPlot, WritesAPdf) {
  const ProcessResult result = plot({"-f", "a.PDF"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.err, "");
  const std::string pdf = read_file(folder_.file("a.PDF"));
  EXPECT_THAT(pdf, StartsWith("%PDF-"));
  EXPECT_THAT(pdf, HasSubstr("%%EOF"));
}

TEST_F(TrendtoolPlot, ShowsNamesInAnSvgCharacterByCharacter) {
  const ProcessResult result = plot({"-f", "a.svg", "-u"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.err, "");
  const std::string svg = read_file(folder_.file("a.svg"));
  EXPECT_THAT(svg, HasSubstr(">site/one<"));
  EXPECT_THAT(svg, HasSubstr(">flow<"));
  EXPECT_THAT(svg, HasSubstr("it's_{/=30 x}^2 `touch evil`\" $(touch evil) &lt;b>&amp;%d\\n<"));
  EXPECT_THAT(svg, HasSubstr(">time: UTC<"));
  EXPECT_THAT(svg, HasSubstr("</svg>"));
  EXPECT_EQ(files(), Files{"a.svg"});
}

TEST_F(TrendtoolPlot, ShowsAPictureOfCharactersWithoutAFile) {
  const ProcessResult result = plot({"-u", "--size", "70x30"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, HasSubstr("site/one"));
  EXPECT_THAT(result.out, HasSubstr("flow"));
  EXPECT_THAT(result.out, HasSubstr("time: UTC"));
  EXPECT_THAT(result.out, HasSubstr("average"));
  EXPECT_THAT(result.out, HasSubstr("+-----"));
}

TEST_F(TrendtoolPlot, FillsTheTerminal) {
  const ProcessResult result =
      run_at_terminal(tool_command("trendtool", arguments({"-p", "flow"})), "", 66, 33);
  EXPECT_EQ(result.exit_status, 0);
  const std::string& shown = result.out;
  EXPECT_THAT(shown, HasSubstr("site/one"));
  std::size_t width = 0;
  std::size_t height = 0;
  for (std::size_t at = 0; at < shown.size(); ++height) {
    const std::size_t end = std::min(shown.find("\r\n", at), shown.size());
    width = std::max(width, end - at);
    at = end + 2;
  }
  EXPECT_GE(width, 66U);
  EXPECT_LE(width, 67U);
  EXPECT_GE(height, 32U);
  EXPECT_LE(height, 33U);
}

TEST_F(TrendtoolPlot, FeedsTheValuesAsLongAsTheirIntervals) {
  const std::string script = script_for({"-p", "flow", "-u"});
  const auto at = [](std::int64_t time) { return std::to_string(START + time); };
  std::string line =
      at(0) + " 101\n" + at(DAY) + " 101\n" + at(DAY) + " 102\n" + at(2 * DAY) + " 102\n";
  for (int hour = 1; hour <= 10; ++hour) {
    if (hour == 6) line += "\n";
    if (hour == 6 || hour == 7) continue;
    for (const int edge : {hour - 1, hour}) {
      line += at(2 * DAY + edge * HOUR) + " " + std::to_string(100 + hour) + "\n";
    }
  }
  EXPECT_THAT(script, HasSubstr(" << END_OF_BLOCK\n" + line + "END_OF_BLOCK\n"));
  EXPECT_THAT(script, HasSubstr(at(0) + " " + at(DAY) + " 0 201\n"));
  EXPECT_THAT(script, HasSubstr("set xrange [" + at(0) + ":" + at(2 * DAY + 10 * HOUR) + "]"));
}

TEST_F(TrendtoolPlot, DrawsTheRowsThatAreSelected) {
  const auto at = [](std::int64_t time) { return std::to_string(START + time); };
  const std::string range_of_two_hours =
      "set xrange [" + at(2 * DAY + 8 * HOUR) + ":" + at(2 * DAY + 10 * HOUR) + "]";
  EXPECT_THAT(script_for({"-p", "flow", "-m", "2"}), HasSubstr(range_of_two_hours));
  EXPECT_THAT(script_for({"-u", "-s", "2010-11-03T09:00"}), HasSubstr(range_of_two_hours));
  EXPECT_THAT(script_for({"-i", "1440"}),
              HasSubstr("set xrange [" + at(0) + ":" + at(2 * DAY) + "]"));
  EXPECT_THAT(script_for({"-p", "flow"}), Not(HasSubstr("touch")));
}

TEST_F(TrendtoolPlot, ShowsLocalTimeUnlessUtcIsWanted) {
  const Environment fake = fake_gnuplot("cat > script\necho picture\n");
  Environment environment = fake;
  environment.emplace_back("TZ", "IST-5:30");
  EXPECT_EQ(plot({"-i", "60"}, environment).exit_status, 0);
  EXPECT_THAT(read_file(folder_.file("script")), HasSubstr("'time: IST'"));
  EXPECT_THAT(read_file(folder_.file("script")),
              HasSubstr("\"06:00\\n3 Nov 2010\" " + std::to_string(START + 2 * DAY + HOUR / 2)));
  EXPECT_EQ(plot({"-i", "60", "-u"}, environment).exit_status, 0);
  EXPECT_THAT(read_file(folder_.file("script")), HasSubstr("'time: UTC'"));
}

TEST_F(TrendtoolPlot, ReducesALongLogToWhatThePictureShows) {
  constexpr int ROWS = 50'000;
  constexpr std::size_t PIXELS = 1200;
  std::string csv = "Date,Time,level:Value,flow:.ValueIntAvg\n";
  for (int i = 1; i <= ROWS; ++i) {
    csv += std::to_string(START + 60 * i) + ",," + (i == 31'234 ? "777" : "5") + ",2\n";
  }
  ASSERT_EQ(run_tool("trendload", {"-x", db_, "-d", "long", "-i", "1", "-t", "%s ", "-"}, csv)
                .exit_status,
            0);
  const std::string script = script_for({"-d", "long", "-f", "", "--format", "png"});
  EXPECT_LE(std::count(script.begin(), script.end(), '\n'), 2 * 2 * PIXELS + 100);
  EXPECT_THAT(script, HasSubstr(" 777\n"));
  EXPECT_THAT(script, HasSubstr("set xrange [" + std::to_string(START) + ":" +
                                std::to_string(START + 60 * ROWS) + "]"));
}

TEST_F(TrendtoolPlot, DrawsTheFirstDeviceAndFewParametersIfNoneIsNamed) {
  std::string header = "Date,Time";
  std::string row = std::to_string(START) + ",";
  for (int i = 10; i < 30; ++i) {
    header += ",p" + std::to_string(i) + ":Value";
    row += ",1";
  }
  ASSERT_EQ(run_tool("trendload", {"-x", db_, "-d", "many", "-i", "1", "-t", "%s ", "-"},
                     header + "\n" + row + "\n")
                .exit_status,
            0);
  const ProcessResult first = plot({"-f", "a.svg"});
  EXPECT_EQ(first.exit_status, 0);
  EXPECT_EQ(first.err,
            "trendtool: drawing 'site/one', the first of 2 devices; choose another one with -d\n");
  const ProcessResult many = plot({"-d", "many", "-f", "a.svg"});
  EXPECT_EQ(many.exit_status, 0);
  EXPECT_EQ(many.err, "trendtool: drawing the first 8 of 20 parameters; choose others with -p\n");
  const std::string svg = read_file(folder_.file("a.svg"));
  EXPECT_THAT(svg, HasSubstr(">p17<"));
  EXPECT_THAT(svg, Not(HasSubstr(">p18<")));
}

TEST_F(TrendtoolPlot, SaysThatGnuplotIsMissing) {
  if (is_emulated()) GTEST_SKIP() << "the emulator is on the PATH, too";
  const ProcessResult result = plot({"-f", "a.png"}, {{"PATH", "/nonexistent"}});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err,
            "trendtool: can't draw without the program gnuplot; please install it, on Debian by "
            "'apt install gnuplot-nox'\n");
  EXPECT_EQ(files(), Files{});
}

TEST_F(TrendtoolPlot, LeavesTheOldPictureIfGnuplotFails) {
  write_file(folder_.file("a.png"), "old");
  const std::pair<std::string, std::string> cases[] = {
      {"cat >/dev/null; echo half; echo 'line 1: no such terminal' >&2; echo >&2; exit 3\n",
       "gnuplot can't draw the picture: line 1: no such terminal"},
      {"cat >/dev/null; echo one >&2; echo two >&2; exit 3\n",
       "gnuplot can't draw the picture: two"},
      {"cat >/dev/null; exec >&-; sleep 0.1; echo late >&2; exit 1\n",
       "gnuplot can't draw the picture: late"},
      {"exit 127\n",
       "can't draw without the program gnuplot; please install it, on Debian by 'apt install "
       "gnuplot-nox'"},
      {"echo 'no library' >&2; exit 127\n", "gnuplot can't draw the picture: no library"},
      // It does not read its script, so that the pipe breaks.
      {"echo 'no memory' >&2; exit 1\n", "gnuplot can't draw the picture: no memory"},
      {"cat >/dev/null\n", "gnuplot has drawn nothing: it does not say why"},
      {"kill -9 $$\n", "gnuplot ended by signal 9"}};
  for (const auto& [lines, message] : cases) {
    const ProcessResult result = plot({"-f", "a.png"}, fake_gnuplot(lines));
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.err, "trendtool: " + message + "\n");
    EXPECT_EQ(read_file(folder_.file("a.png")), "old");
    EXPECT_EQ(files(), (Files{"a.png", "bin"}));
  }
}

TEST_F(TrendtoolPlot, ReportsAFullDisk) {
  const ProcessResult result = plot({"-f", "/dev/full", "--format", "svg"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendtool: can't write '/dev/full': No space left on device\n");
}

TEST_F(TrendtoolPlot, LeavesNothingAfterASignal) {
  const Environment environment = fake_gnuplot("echo $$ > started\nexec sleep 60\n");
  for (const int number : {SIGINT, SIGTERM}) {
    fs::remove(folder_.file("started"));
    const pid_t child = start_process(tool_command("trendtool", arguments({"-f", "a.png"})),
                                      environment, enter(folder_.path()));
    pid_t gnuplot = 0;
    for (int i = 0; i < 3000 && gnuplot == 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      std::ifstream(folder_.file("started")) >> gnuplot;
    }
    ASSERT_GT(gnuplot, 0) << "gnuplot was not started";
    EXPECT_EQ(files().size(), 3U);
    kill(child, number);
    EXPECT_EQ(wait_for(child), 128 + number);
    kill(gnuplot, SIGKILL);
    EXPECT_EQ(files(), (Files{"bin", "started"}));
  }
}

TEST_F(TrendtoolPlot, RefusesWhatItCantDraw) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"-f", "a.jpg"},
       "can't tell the format of 'a.jpg'; use a name that ends in .png, .svg or .pdf, or --format"},
      {{"--size", "big"}, "--size: 'big' is not a size like 1200x800; see 'trendtool plot --help'"},
      {{"--size", "10x10"}, "a picture of this format has a size from 40x15 to 20000x20000"},
      {{"--size", "40x14"}, "a picture of this format has a size from 40x15 to 20000x20000"},
      {{"--size", "20001x500"}, "a picture of this format has a size from 40x15 to 20000x20000"},
      {{"-f", "a.png", "--size", "700x10"},
       "a picture of this format has a size from 500x300 to 20000x20000"},
      {{"-s", "2010-11-02", "-e", "2010-11-01"},
       "the end '2010-11-01' is before the start '2010-11-02'"}};
  for (const auto& [more, message] : cases) {
    const ProcessResult result = plot(more);
    EXPECT_EQ(result.exit_status, 2) << message;
    EXPECT_EQ(result.err, "trendtool: " + message + "\n");
  }
  for (const std::string size : {"500", "x", "500x", "500xy", "500x600y", "0x500", "500x0"}) {
    EXPECT_EQ(plot({"--size", size}).err, "trendtool: --size: '" + size +
                                              "' is not a size like 1200x800; see 'trendtool plot "
                                              "--help'\n");
  }
  const ProcessResult empty = plot({"-e", "2010-10-01", "-f", "a.png"});
  EXPECT_EQ(empty.exit_status, 1);
  EXPECT_EQ(empty.err,
            "trendtool: there is nothing to draw: device 'site/one' has no values at these times "
            "and intervals\n");
  const ProcessResult database = plot({"-f", "trend.db", "--format", "png"});
  EXPECT_EQ(database.exit_status, 1);
  EXPECT_THAT(database.err, HasSubstr("it is a file of the database"));
  EXPECT_EQ(files(), Files{});
}

TEST_F(TrendtoolPlot, DrawsRealMeasurements) {
  for (const char* minutes : {"60", "1440"}) {
    const std::string csv = std::string(TRENDCSV_EXAMPLES) + "/seattle-normals-" + minutes + ".csv";
    ASSERT_EQ(
        run_tool("trendload", {"-x", db_, "-d", "weather", "-i", minutes, "-u", csv}).exit_status,
        0);
  }
  for (const char* file : {"a.svg", "a.png", "a.pdf"}) {
    const ProcessResult result = plot({"-d", "weather", "-f", file});
    EXPECT_EQ(result.exit_status, 0) << file;
    EXPECT_EQ(result.err, "") << file;
  }
  const std::string svg = read_file(folder_.file("a.svg"));
  EXPECT_THAT(svg, HasSubstr(">outdoor/temperature<"));
  EXPECT_THAT(svg, HasSubstr(">min to max<"));
}

TEST_F(TrendtoolPlot, SaysThatAnUnknownThingIsNotThere) {
  EXPECT_THAT(plot({"-d", "none"}).err, HasSubstr("the database has no device 'none'"));
  EXPECT_THAT(plot({"-p", "none"}).err, HasSubstr("has no parameter 'none'"));
  EXPECT_THAT(plot({"-i", "7"}).err, HasSubstr("the database has no interval of 7 minutes"));
  ASSERT_EQ(run_tool("trendtool", {"remove", "-x", db_, "-d", "site/one", "--yes"}).exit_status, 0);
  const ProcessResult result = plot({});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendtool: the database '" + db_ + "' has no devices\n");
}

TEST_F(TrendtoolPlot, DrawsAsManyParametersAsAreNamed) {
  std::vector<std::string> words = {"-d", "many"};
  std::string header = "Date,Time";
  std::string row = std::to_string(START) + ",";
  for (int i = 0; i < 65; ++i) {
    words.insert(words.end(), {"-p", "p" + std::to_string(i)});
    header += ",p" + std::to_string(i) + ":Value";
    row += i == 3 ? ",inf" : ",1";
  }
  ASSERT_EQ(run_tool("trendload", {"-x", db_, "-d", "many", "-i", "1", "-t", "%s ", "-"},
                     header + "\n" + row + "\n")
                .exit_status,
            0);
  EXPECT_EQ(plot(words).err, "trendtool: a picture shows at most 64 parameters\n");
  EXPECT_EQ(plot({"-d", "many"}, fake_gnuplot("cat >/dev/null\necho picture\n")).err,
            "trendtool: drawing the first 8 of 65 parameters; choose others with -p\n");
  words.resize(2 + 2 * 64);
  words.emplace_back("--together");
  const ProcessResult result = plot(words, fake_gnuplot("cat > script\necho picture\n"));
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.err, "trendtool: 1 values of 'p3' are infinite or too large, and not drawn\n");
  EXPECT_THAT(read_file(folder_.file("script")), HasSubstr("title 'p63'"));
}

TEST_F(TrendtoolPlot, WritesCharactersIntoAFile) {
  const ProcessResult result =
      plot({"-p", "flow", "-f", "a.txt", "--format", "text", "--size", "60x20"});
  EXPECT_EQ(result.exit_status, 0) << result.err;
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(read_file(folder_.file("a.txt")), HasSubstr("site/one"));
}

TEST_F(TrendtoolPlot, SaysThatGnuplotCantBeStarted) {
  if (is_emulated()) GTEST_SKIP() << "the emulator does not tell that a program can't be started";
  const Environment environment = {{"PATH", folder_.file("bin")}};
  static_cast<void>(fake_gnuplot(""));
  fs::permissions(folder_.file("bin") + "/gnuplot", fs::perms::owner_read);
  const ProcessResult result = plot({}, environment);
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendtool: can't start gnuplot: Permission denied\n");
}

TEST_F(TrendtoolPlot, DrawsADeviceThatHasAnIntervalWithoutRows) {
  CRecorder recorder;
  CDeviceProperties site{.path = "site/one", .aux_text = ""};
  CSeries quarters;
  ASSERT_EQ(recorder.open(db_), 0);
  ASSERT_TRUE(recorder.begin() == 0 && recorder.add_device(site) == 0 &&
              recorder.add_series(site, 15, quarters) == 0 && recorder.commit() == 0);
  EXPECT_THAT(script_for({"-p", "flow"}), HasSubstr("title 'average'"));
}

}  // namespace
