// What trendload records. trendload_refusal_test.cc tests what it refuses.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

#include "libtrend/recorder.h"
#include "tests/support/model.h"

using toolkit::trend::CRecorder;

namespace {

constexpr const char* HEADER = "Date,Time,a:Value\n";

class Trendload : public testing::Test {
 protected:
  ProcessResult load(const std::string& csv, std::vector<std::string> more = {},
                     const Environment& environment = {}) {
    std::vector<std::string> arguments = {"-x", db_, "-d", "/plant", "-u"};
    if (std::find(more.begin(), more.end(), "-i") == more.end()) {
      arguments.insert(arguments.end(), {"-i", "60"});
    }
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run_tool("trendload", arguments, csv, environment);
  }

  /// Loads `csv`, which must succeed without a message.
  void load_well(const std::string& csv, std::vector<std::string> more = {}) {
    const ProcessResult result = load(csv, std::move(more));
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out + result.err, "");
  }

  std::string dump(std::vector<std::string> more = {}) {
    std::vector<std::string> arguments = {"-x", db_, "-d", "/plant", "-u", "-a"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const ProcessResult result = run_tool("trendcsv", arguments);
    EXPECT_EQ(result.err, "");
    return result.out;
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};

TEST_F(Trendload, CreatesEverythingThatDoesNotExist) {
  const std::string csv =
      "Date,Time,a:.ValueIntMin,a:.ValueIntSum,b/c:Value\n"
      "2023-05-01,01:00,1,2,3.5\n"
      "2023-05-01,02:00,-4,5E-07,INF\n";
  load_well(csv);
  EXPECT_TRUE(std::filesystem::exists(db_));
  EXPECT_FALSE(std::filesystem::exists(db_ + "-wal"));
  EXPECT_EQ(dump(), csv);
  EXPECT_EQ(dump({"-i", "60"}), csv);
}

TEST_F(Trendload, FillsAnEmptyFile) {
  write_file(db_, "");
  load_well(std::string(HEADER) + "2023-05-01,01:00,1\n");
  EXPECT_EQ(dump(), std::string(HEADER) + "2023-05-01,01:00,1\n");
}

TEST_F(Trendload, RecordsAHeaderWithoutRows) {
  load_well(HEADER);
  EXPECT_EQ(dump(), HEADER);
}

TEST_F(Trendload, ReadsPercentValidOrUsesAHundred) {
  load_well(
      "Date,Time,Percent Valid,a:Value\n"
      "2023-05-01,01:00,12.35,1\n"
      "2023-05-01,02:00,0,2\n");
  load_well(std::string(HEADER) + "2023-05-01,03:00,3\n");
  EXPECT_EQ(dump({"-pv"}),
            "Date,Time,Percent Valid,a:Value\n"
            "2023-05-01,01:00,12.35,1\n"
            "2023-05-01,02:00,0.00,2\n"
            "2023-05-01,03:00,100.00,3\n");
}

TEST_F(Trendload, ReadsEmptyFieldsAsMissingValues) {
  const std::string csv =
      "Date,Time,a:.ValueIntMin,a:.ValueIntMax,b:Value\n"
      "2023-05-01,01:00,,2,\n"
      "2023-05-01,02:00,,,\n";
  load_well(csv);
  EXPECT_EQ(dump(), csv);
}

TEST_F(Trendload, SplitsAColumnNameAtTheLastColon) {
  const std::string csv = "Date,Time,a:b:Value\n2023-05-01,01:00,1\n";
  load_well(csv);
  EXPECT_EQ(dump({"-p", "a:b"}), csv);
}

TEST_F(Trendload, KeepsTheStatisticsOfAnExistingParameter) {
  load_well(
      "Date,Time,a:.ValueIntMin,a:.ValueIntMax,a:.ValueIntAvg\n"
      "2023-05-01,01:00,1,2,3\n");
  load_well(
      "Date,Time,a:.ValueIntAvg,a:.ValueIntMin\n"
      "2023-05-01,02:00,6,4\n");
  load_well("Date,Time,a:.ValueIntMax\n2023-05-01,03:00,8\n");
  EXPECT_EQ(dump(),
            "Date,Time,a:.ValueIntMin,a:.ValueIntMax,a:.ValueIntAvg\n"
            "2023-05-01,01:00,1,2,3\n"
            "2023-05-01,02:00,4,,6\n"
            "2023-05-01,03:00,,8,\n");
}

TEST_F(Trendload, AddsParametersToAnExistingDevice) {
  load_well("Date,Time,m:Value\n2023-05-01,01:00,1\n");
  load_well(
      "Date,Time,a:.ValueIntMin,a:Value,m:Value,z:Value\n"
      "2023-05-01,02:00,2,3,4,5\n");
  load_well("Date,Time,z:Value\n2023-05-01,03:00,6\n");
  EXPECT_EQ(dump(),
            "Date,Time,a:.ValueIntMin,a:Value,m:Value,z:Value\n"
            "2023-05-01,01:00,,,1,\n"
            "2023-05-01,02:00,2,3,4,5\n"
            "2023-05-01,03:00,,,,6\n");
}

TEST_F(Trendload, KeepsDevicesAndIntervalsApart) {
  const std::string row = std::string(HEADER) + "2023-05-01,01:00,";
  load_well(row + "1\n");
  load_well(row + "2\n", {"-i", "15"});
  const ProcessResult other =
      run_tool("trendload", {"-x", db_, "-d", "/other", "-i", "60", "-u"}, row + "3\n");
  EXPECT_EQ(other.exit_status, 0);
  EXPECT_EQ(dump({"-i", "60"}), row + "1\n");
  EXPECT_EQ(dump({"-i", "15"}), row + "2\n");
  EXPECT_EQ(run_tool("trendcsv", {"-x", db_, "-d", "/other", "-u"}).out, row + "3\n");
}

TEST_F(Trendload, AcceptsRowsInAnyOrder) {
  load_well(std::string(HEADER) +
            "2023-05-01,02:00,2\n2023-05-01,04:00,4\n2023-05-01,01:00,1\n2023-05-01,03:00,3\n");
  load_well(std::string(HEADER) + "2023-05-01,02:30,2.5\n");
  EXPECT_EQ(dump(), std::string(HEADER) +
                        "2023-05-01,01:00,1\n2023-05-01,02:00,2\n2023-05-01,02:30,2.5\n"
                        "2023-05-01,03:00,3\n2023-05-01,04:00,4\n");
}

TEST_F(Trendload, ReadsAFileOrStandardInput) {
  const std::string rows[] = {"2023-05-01,01:00,1\n", "2023-05-01,02:00,2\n",
                              "2023-05-01,03:00,3\n"};
  const std::string file = folder_.file("rows.csv");
  write_file(file, HEADER + rows[0]);
  load_well("never read", {file});
  load_well(HEADER + rows[1], {"-"});
  load_well(HEADER + rows[2]);
  EXPECT_EQ(dump(), HEADER + rows[0] + rows[1] + rows[2]);
}

TEST_F(Trendload, ReadsLinesThatEndInCarriageReturns) {
  load_well("Date,Time,a:Value\r\n2023-05-01,01:00,1\r\n2023-05-01,02:00,\r\n");
  EXPECT_EQ(dump(), std::string(HEADER) + "2023-05-01,01:00,1\n2023-05-01,02:00,\n");
}

TEST_F(Trendload, ReadsALastLineWithoutLineFeed) {
  load_well(std::string(HEADER) + "2023-05-01,01:00,1\n2023-05-01,02:00,2");
  EXPECT_EQ(dump(), std::string(HEADER) + "2023-05-01,01:00,1\n2023-05-01,02:00,2\n");
}

TEST_F(Trendload, ReadsAHeaderWithoutLineFeed) {
  load_well("Date,Time,a:Value");
  EXPECT_EQ(dump(), HEADER);
}

TEST_F(Trendload, ReadsTimesInAnotherFormat) {
  load_well(std::string(HEADER) + "05/01/2023,01:02:03 PM,1\n", {"-t", "%m/%d/%Y %I:%M:%S %p"});
  EXPECT_EQ(dump({"-y", "%T"}), std::string(HEADER) + "2023-05-01,13:02:03,1\n");
}

TEST_F(Trendload, ReadsLocalTimesUnlessToldOtherwise) {
  const ProcessResult result =
      run_tool("trendload", {"-x", db_, "-d", "/plant", "-i", "60"},
               std::string(HEADER) + "2023-05-01,05:30,1\n", {{"TZ", KOLKATA.name}});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(dump(), std::string(HEADER) + "2023-05-01,00:00,1\n");
}

TEST_F(Trendload, AcceptsNamesThatAreSpecialToSqlite) {
  for (const std::string name : {"a?b#c%41 d", "file:x", ":memory:"}) {
    const std::string csv = std::string(HEADER) + "2023-05-01,01:00,1\n";
    const ProcessResult result =
        run_tool("trendload", {"-x", name, "-d", "/plant", "-i", "60", "-u"}, csv, {},
                 [&] { std::filesystem::current_path(folder_.path()); });
    EXPECT_EQ(result.exit_status, 0) << result.err;
    EXPECT_TRUE(std::filesystem::is_regular_file(folder_.file(name))) << name;
    db_ = folder_.file(name);
    EXPECT_EQ(dump(), csv);
  }
}

TEST_F(Trendload, WaitsForAnotherWriter) {
  load_well(std::string(HEADER) + "2023-05-01,01:00,1\n");
  CRecorder recorder;
  ASSERT_EQ(recorder.open(db_), 0) << recorder.error();
  ASSERT_EQ(recorder.begin(), 0) << recorder.error();
  auto loading = std::async(std::launch::async,
                            [&] { return load(std::string(HEADER) + "2023-05-01,02:00,2\n"); });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  recorder.rollback();
  const ProcessResult result = loading.get();
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.err, "");
  recorder.close();
  EXPECT_EQ(dump(), std::string(HEADER) + "2023-05-01,01:00,1\n2023-05-01,02:00,2\n");
}

TEST_F(Trendload, LetsManyFirstLoadsRunAtOnce) {
  for (const bool is_there : {false, true}) {
    std::filesystem::remove(db_);
    if (is_there) write_file(db_, "");
    std::vector<std::future<ProcessResult>> loads;
    std::string expected = HEADER;
    for (int day = 1; day <= 9; ++day) {
      const std::string row = "2023-05-0" + std::to_string(day) + ",01:00,1\n";
      expected += row;
      loads.push_back(std::async(std::launch::async, [this, row] { return load(HEADER + row); }));
    }
    for (auto& running : loads) {
      const ProcessResult result = running.get();
      EXPECT_EQ(result.err, "");
      EXPECT_EQ(result.exit_status, 0);
    }
    EXPECT_EQ(dump(), expected);
    const std::filesystem::directory_iterator files(folder_.path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
  }
}

TEST_F(Trendload, IgnoresTheLocale) {
  const Environment german = {{"LC_ALL", "de_DE.UTF-8"}, {"LANG", "de_DE.UTF-8"}};
  const std::string csv = std::string(HEADER) + "2023-05-01,01:00,1.5\n";
  EXPECT_EQ(load(csv, {}, german).exit_status, 0);
  EXPECT_EQ(dump(), csv);
}

}  // namespace
