// What trendtool copy brings from one file to another.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <set>

#include "tests/support/database_file.h"
#include "tests/support/log_content.h"
#include "tests/support/model.h"
#include "tests/support/terminal.h"
#include "tests/support/version_1.h"
#include "tests/trendtool/copy_fixture.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

using testing::StartsWith;

constexpr double MISSING = std::numeric_limits<double>::quiet_NaN();

TEST_F(TrendtoolCopy, CopiesEveryBit) {
  Random random(1);
  for (int round = random_rounds(12, 2); round > 0; --round) {
    std::filesystem::remove(from_);
    std::filesystem::remove(to_);
    std::vector<ModelLog> logs;
    for (const char* device : {"/plant", "site/pump", "x"}) {
      logs.push_back(random_log(random, false));
      logs.back().device = device;
      record(logs.back(), from_);
    }
    copy_surely();
    EXPECT_EQ(read_content(to_), read_content(from_));
    for (const ModelLog& log : logs) {
      for (const std::vector<std::string>& command :
           {std::vector<std::string>{"trendcsv", "-d", log.device, "-u", "-pv"},
            {"trendtool", "export", "-d", log.device, "--exact", "--percent-valid"}}) {
        std::vector<std::string> arguments(command.begin() + 1, command.end());
        arguments.insert(arguments.end(), {"-x", from_});
        const ProcessResult expected = run_tool(command[0], arguments);
        arguments.back() = to_;
        const ProcessResult found = run_tool(command[0], arguments);
        EXPECT_EQ(found.out, expected.out);
        EXPECT_EQ(found.exit_status, expected.exit_status);
      }
    }
  }
}

TEST_F(TrendtoolCopy, CopiesTheWholeCatalogue) {
  CRecorder recorder;
  CDeviceProperties bare{.path = "bare", .aux_text = "On the roof"};
  CDeviceProperties idle{.path = "idle", .aux_text = ""};
  CParamProperties level{.path = "level", .has_min = true, .has_sum = true};
  CSeries series;
  ASSERT_EQ(recorder.open(from_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  ASSERT_EQ(recorder.add_device(bare), 0);
  ASSERT_EQ(recorder.add_device(idle), 0);
  ASSERT_EQ(recorder.add_param(idle, level), 0);
  ASSERT_EQ(recorder.add_series(idle, 15, series), 0);
  ASSERT_EQ(recorder.commit(), 0);
  EXPECT_EQ(copy_surely(), summary(2, 1, 0, 0));
  EXPECT_EQ(read_content(to_), read_content(from_));
  EXPECT_EQ(read_content(to_).devices.at("idle").series.count(15), 1U);
}

TEST_F(TrendtoolCopy, LeavesNoFilesBesideTheDatabases) {
  append_rows(from_, "/plant", 1, make_rows(60, 60, 2000));
  copy_surely();
  EXPECT_THAT(list_folder(folder_.path()), testing::ElementsAre("from.db", "to.db"));
}

TEST_F(TrendtoolCopy, ReadsOnlyWhatIsNew) {
  append_rows(from_, "/plant", 1, make_rows(60, 60, 60'000));
  EXPECT_EQ(copy_surely(), summary(1, 1, 60'000, 0));
  EXPECT_EQ(copy_surely(), summary(1, 1, 0, 0));
  append_rows(from_, "/plant", 1, {{60 * 60'001, 1, {1, 2}}, {60 * 7000 + 5, 1, {3, 4}}});
  const std::string out = copy_surely();
  EXPECT_THAT(out, StartsWith("devices: 1, series: 1, rows copied: 2, rows there before: "));
  const std::string before = out.substr(out.find("before: ") + 8);
  EXPECT_LT(std::stoi(before), 3 * 512);
  EXPECT_EQ(read_content(to_), read_content(from_));
  EXPECT_EQ(copy_surely({"--all"}), summary(1, 1, 0, 60'002));
}

TEST_F(TrendtoolCopy, FollowsADatabaseThatGrows) {
  Random random(2);
  std::set<std::int64_t> recorded;
  std::uint64_t round = 0;
  for (int rounds = random_rounds(20, 5); rounds > 0; --rounds, ++round) {
    std::vector<NewRow> rows;
    const std::int64_t first = 1 + pick(random, 500'000);
    const std::int64_t step = 1 + pick(random, 100);
    for (std::uint32_t i = pick(random, 1200); i > 0; --i) {
      const std::int64_t time = first + step * i;
      if (recorded.insert(time).second) {
        rows.push_back({time, 1, {random_value(random), random_value(random)}});
      }
    }
    append_rows(from_, "/plant", 5, rows);
    if (round == 7) {
      CRecorder recorder;
      CDeviceProperties plant{.path = "/plant", .aux_text = ""};
      CParamProperties later{.path = "A", .has_min = true, .has_max = true};
      CSeries series;
      ASSERT_EQ(recorder.open(from_), 0);
      ASSERT_EQ(recorder.begin(), 0);
      ASSERT_EQ(recorder.add_device(plant), 0);
      ASSERT_EQ(recorder.add_param(plant, later), 0);
      ASSERT_EQ(recorder.add_series(plant, 60, series), 0);
      const double values[] = {1, 2, 3, 4};
      ASSERT_EQ(recorder.append(series, 3600, 0.5, values), 0);
      ASSERT_EQ(recorder.commit(), 0);
    }
    if (pick(random, 3) == 0) continue;
    copy_surely();
    ASSERT_EQ(read_content(to_), read_content(from_));
  }
}

TEST_F(TrendtoolCopy, KeepsTheSitesOfOneArchiveApart) {
  const std::string other = folder_.file("other.db");
  append_rows(from_, "pump", 1, make_rows(60, 60, 700));
  append_rows(other, "pump", 1, make_rows(60, 120, 900));
  for (int i = 0; i < 2; ++i) {
    copy_surely({"--prefix", "oslo/"});
    const ProcessResult result =
        run_tool("trendtool", {"copy", "-x", other, "--prefix", "bergen/", to_});
    EXPECT_EQ(result.exit_status, 0) << result.err;
    EXPECT_EQ(result.out, i == 0 ? summary(1, 1, 900, 0) : summary(1, 1, 0, 0));
  }
  const LogContent found = read_content(to_);
  ASSERT_EQ(found.devices.size(), 2U);
  EXPECT_EQ(found.devices.at("oslo/pump"), read_content(from_).devices.at("pump"));
  EXPECT_EQ(found.devices.at("bergen/pump"), read_content(other).devices.at("pump"));
}

TEST_F(TrendtoolCopy, AddsRowsOfTwoSourcesToOneSeries) {
  append_rows(to_, "pump", 1, make_rows(60, 120, 900));
  append_rows(from_, "pump", 1, make_rows(120, 120, 900));
  EXPECT_EQ(copy_surely(), summary(1, 1, 900, 0));
  EXPECT_EQ(read_content(to_).devices.at("pump").series.at(1).rows.size(), 1800U);
}

TEST_F(TrendtoolCopy, NarrowsByDeviceIntervalAndTime) {
  append_rows(from_, "pump", 5, make_rows(300, 300, 20));
  append_rows(from_, "pump", 60, make_rows(3600, 3600, 20));
  append_rows(from_, "well", 5, make_rows(300, 300, 20));
  EXPECT_EQ(copy_surely({"-d", "pump", "-i", "0", "-s", "@3000"}), summary(1, 1, 11, 0));
  const LogContent found = read_content(to_);
  EXPECT_EQ(found.devices.size(), 1U);
  EXPECT_EQ(found.devices.at("pump").series.size(), 1U);
  EXPECT_EQ(found.devices.at("pump").series.at(5).rows.begin()->first, 3000);
  EXPECT_EQ(copy_surely({"-d", "pump", "-i", "60"}), summary(1, 1, 20, 0));
  // What was left out by time is not taken for copied.
  EXPECT_EQ(copy_surely(), summary(2, 3, 29, 11));
  EXPECT_EQ(read_content(to_), read_content(from_));
}

TEST_F(TrendtoolCopy, ReadsVersion1) {
  std::map<std::int64_t, RecordedSeries> rows;
  for (int i = 1; i <= 1500; ++i) {
    rows[1][60 * i] = {1, {1.0 * i, MISSING, 0.1 * i}};
    rows[10][600 * i] = {0.5, {2.0 * i}};
  }
  make_version_1(from_, rows);
  EXPECT_EQ(copy_surely(), summary(1, 2, 3000, 0));
  EXPECT_EQ(read_content(to_), read_content(from_));
  EXPECT_EQ(copy_surely(), summary(1, 2, 0, 3000));
}

TEST_F(TrendtoolCopy, ComparesAllIfTheSourceWasSetBack) {
  append_rows(from_, "pump", 1, make_rows(60, 60, 100));
  const std::string backup = folder_.file("backup.db");
  ASSERT_EQ(run_tool("trendtool", {"backup", "-x", from_, backup}).exit_status, 0);
  append_rows(from_, "pump", 1, make_rows(60'000, 60, 100));
  append_rows(from_, "pump", 1, make_rows(120'000, 60, 100));
  EXPECT_EQ(copy_surely(), summary(1, 1, 300, 0));
  std::filesystem::rename(backup, from_);
  append_rows(from_, "pump", 1, make_rows(600'000, 60, 10));
  EXPECT_EQ(copy_surely(), summary(1, 1, 10, 100));
  EXPECT_EQ(copy_surely(), summary(1, 1, 0, 0));
}

TEST_F(TrendtoolCopy, BringsASeriesBackThatWasRemoved) {
  append_rows(from_, "pump", 1, make_rows(60, 60, 100));
  copy_surely();
  ASSERT_EQ(run_tool("trendtool", {"remove", "-x", to_, "-d", "pump", "-y"}).exit_status, 0);
  EXPECT_EQ(copy_surely(), summary(1, 1, 100, 0));
}

TEST_F(TrendtoolCopy, DoesNotBringBackWhatWasPurged) {
  append_rows(from_, "pump", 1, make_rows(60, 60, 2000));
  copy_surely();
  ASSERT_EQ(
      run_tool("trendtool", {"purge", "-x", to_, "-d", "pump", "-i", "1", "--before", "@6000"})
          .exit_status,
      0);
  append_rows(from_, "pump", 1, make_rows(300'000, 60, 10));
  EXPECT_THAT(copy_surely(), StartsWith("devices: 1, series: 1, rows copied: 10,"));
}

TEST_F(TrendtoolCopy, CopiesIntoACopyOfTheFile) {
  append_rows(from_, "pump", 1, make_rows(60, 60, 100));
  ASSERT_EQ(run_tool("trendtool", {"backup", "-x", from_, to_}).exit_status, 0);
  append_rows(from_, "pump", 1, make_rows(60'000, 60, 100));
  EXPECT_EQ(copy_surely(), summary(1, 1, 100, 100));
  EXPECT_EQ(read_content(to_), read_content(from_));
}

TEST_F(TrendtoolCopy, ShowsNoProgressOfAShortCopy) {
  append_rows(from_, "pump", 1, make_rows(60, 60, 1500));
  const ProcessResult result = run_at_terminal(tool_command("trendtool", {"copy", from_, to_}));
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.out,
              testing::EndsWith("rows copied: 1500, rows there before: 0, conflicts: 0\r\n"));
}

}  // namespace
