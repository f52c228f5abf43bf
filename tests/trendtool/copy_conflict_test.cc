// What trendtool copy can't copy.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <limits>

#include "tests/support/database_file.h"
#include "tests/support/log_content.h"
#include "tests/support/version_1.h"
#include "tests/trendtool/copy_fixture.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;

namespace {

using testing::EndsWith;
using testing::StartsWith;

constexpr double MISSING = std::numeric_limits<double>::quiet_NaN();

TEST_F(TrendtoolCopy, NamesConflictsAndOverwritesNothing) {
  append_rows(from_, "pump", 5,
              {{300, 1, {1, 2}},
               {600, 1, {1, 2}},
               {900, 0.25, {1, 2}},
               {1200, 1, {1, 2}},
               {1500, 1, {1, -0.0}},
               {1800, 1, {7.1, MISSING}},
               {2100, 1, {7.1, MISSING}}});
  append_rows(to_, "pump", 5,
              {{300, 1, {1, 2}},
               {600, 1, {1.5, 2}},
               {900, 1, {1, 2}},
               {1200, 1, {1}},
               {1500, 1, {1, 0.0}},
               {1800, 1, {7.1, MISSING}}});
  const LogContent before = read_content(to_);
  for (const int copied : {1, 0}) {
    const ProcessResult result = copy();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.out, summary(1, 1, copied, 3 - copied, 4));
    const std::string start =
        "trendtool: conflict: device 'pump' at the interval of 5 minutes, 1970-01-01T00:";
    EXPECT_EQ(result.err,
              start + "10:00Z: actual of parameter 'a' is 1, but 1.5 is recorded\n" + start +
                  "15:00Z: the share of valid data is 0.25, but 1 is recorded\n" + start +
                  "20:00Z: actual of parameter 'b' is 2, but missing is recorded\n" + start +
                  "25:00Z: actual of parameter 'b' is -0, but 0 is recorded\n");
  }
  LogContent found = read_content(to_);
  EXPECT_EQ(found.devices.at("pump").series.at(5).rows.erase(2100), 1U);
  EXPECT_EQ(found, before);
}

TEST_F(TrendtoolCopy, CountsConflictsAfterTheFirstTwenty) {
  append_rows(from_, "pump", 5, make_rows(300, 300, 700));
  append_rows(to_, "pump", 5, {{300 * 1000, 1, {}}});
  copy_surely();
  std::vector<NewRow> others = make_rows(60, 60, 700);
  append_rows(from_, "pump", 1, others);
  for (NewRow& row : others) row.ratio = 0.5;
  append_rows(to_, "pump", 1, others);
  const ProcessResult result = copy();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 21);
  EXPECT_THAT(result.err, EndsWith("trendtool: conflict: device 'pump' at the interval of 1 "
                                   "minutes: 680 more rows differ\n"));
  EXPECT_EQ(result.out, summary(1, 2, 0, 0, 700));
}

TEST_F(TrendtoolCopy, LeavesOutAParameterWithOtherStatistics) {
  append_rows(from_, "pump", 5, make_rows(300, 300, 10));
  CRecorder recorder;
  CDeviceProperties pump{.path = "pump", .aux_text = "Deep"};
  CParamProperties a{.path = "a", .has_min = true, .has_max = true};
  ASSERT_EQ(recorder.open(to_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  ASSERT_EQ(recorder.add_device(pump), 0);
  ASSERT_EQ(recorder.add_param(pump, a), 0);
  ASSERT_EQ(recorder.commit(), 0);
  const std::string messages =
      "trendtool: conflict: parameter 'a' of device 'pump' has the statistics actual, but is "
      "recorded with min max; its values are not copied\n"
      "trendtool: device 'pump' keeps its description, which is another one\n";
  ProcessResult result = copy();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, messages);
  EXPECT_EQ(result.out, summary(1, 1, 10, 0, 1));
  result = run_tool("trendcsv", {"-x", to_, "-d", "pump", "-u", "-m", "1"});
  EXPECT_EQ(result.out, "Date,Time,a:.ValueIntMin,a:.ValueIntMax,b:Value\n1970-01-01,00:50,,,18\n");
  // Nothing is noted as copied, so the rows are compared again.
  EXPECT_EQ(copy().out, summary(1, 1, 0, 10, 1));
}

TEST_F(TrendtoolCopy, NamesARowThatCantBeRecorded) {
  make_version_1(from_, {{1, {{60, {1.5, {1}}}, {120, {1, {2}}}, {180, {-0.5, {3}}}}}});
  const ProcessResult result = copy();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err,
            "trendtool: conflict: device '/plant' at the interval of 1 minutes, "
            "1970-01-01T00:01:00Z: the share of valid data is not from 0 to 1\n"
            "trendtool: conflict: device '/plant' at the interval of 1 minutes, "
            "1970-01-01T00:03:00Z: the share of valid data is not from 0 to 1\n");
  EXPECT_EQ(result.out, summary(1, 1, 1, 0, 2));
}

TEST_F(TrendtoolCopy, GoesOnAfterADamagedSeries) {
  append_rows(from_, "pump", 1, make_rows(60, 60, 2000));
  append_rows(from_, "well", 1, make_rows(60, 60, 2000));
  const LogContent before = read_content(from_);
  run_sql(from_, "UPDATE segment SET data = zeroblob(length(data)) WHERE id = (1 << 16)");
  const ProcessResult result = copy();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.err, StartsWith("trendtool: can't read the rows of device 'pump' at the "
                                     "interval of 1 minutes: "));
  EXPECT_EQ(result.out, summary(2, 1, 2000, 0));
  EXPECT_EQ(read_content(to_).devices.at("well"), before.devices.at("well"));
}

TEST_F(TrendtoolCopy, RefusesAWrongCommandLine) {
  append_rows(from_, "pump", 1, make_rows(60, 60, 10));
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"copy"}, "name two databases, the one to copy from and the one to copy into"},
      {{"copy", from_}, "name two databases, the one to copy from and the one to copy into"},
      {{"copy", "-x", from_, from_, to_}, "with -x, name one more database, the one to copy into"},
      {{"copy", from_, to_, "-s", "soon"}, "--start: 'soon' is not a time; "}};
  for (const auto& [arguments, message] : cases) {
    const ProcessResult result = run_tool("trendtool", arguments);
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_THAT(result.err, StartsWith("trendtool: " + message));
  }
  EXPECT_FALSE(std::filesystem::exists(to_));
}

TEST_F(TrendtoolCopy, SaysWhatCantBeOpened) {
  EXPECT_EQ(copy().err,
            "trendtool: can't open the database '" + from_ + "': No such file or directory\n");
  EXPECT_FALSE(std::filesystem::exists(to_));
  append_rows(from_, "pump", 1, make_rows(60, 60, 10));
  EXPECT_THAT(copy({"-d", "well"}).err, StartsWith("trendtool: the database has no device 'well'"));
  EXPECT_THAT(copy({"-i", "7"}).err,
              StartsWith("trendtool: the database has no interval of 7 minutes"));
  EXPECT_FALSE(std::filesystem::exists(to_));
  std::filesystem::create_symlink(from_, to_);
  ProcessResult result = copy();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendtool: '" + from_ + "' and '" + to_ + "' are the same database\n");
  std::filesystem::remove(to_);
  write_file(to_, "This is not a database.");
  result = copy();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.err, StartsWith("trendtool: can't open the database '" + to_ + "': "));
  EXPECT_EQ(read_file(to_), "This is not a database.");
}

}  // namespace
