// trendtool check.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "libtrend/recorder.h"
#include "tests/support/database_file.h"
#include "tests/support/model.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

using testing::HasSubstr;
using testing::StartsWith;

/// Records 2000 rows of a device.
void record_rows(const std::string& path) {
  CRecorder recorder;
  CDeviceProperties plant{.path = "/plant", .aux_text = ""};
  CParamProperties level{.path = "level", .has_actual = true};
  CSeries series;
  bool is_recorded = recorder.open(path) == 0 && recorder.begin() == 0 &&
                     recorder.add_device(plant) == 0 && recorder.add_param(plant, level) == 0 &&
                     recorder.add_series(plant, 5, series) == 0;
  for (int i = 1; i <= 2000 && is_recorded; ++i) {
    const double value = i;
    is_recorded = recorder.append(series, 300 * i, 1, {&value, 1}) == 0;
  }
  if (!is_recorded || recorder.commit() != 0) throw std::runtime_error(recorder.error());
}

class TrendtoolCheck : public testing::Test {
 protected:
  TrendtoolCheck() { record_rows(db_); }

  ProcessResult check() { return run_tool("trendtool", {"check", "-x", db_, "-u"}); }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};

TEST_F(TrendtoolCheck, SaysNothingAboutAGoodDatabase) {
  const ProcessResult result = check();
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.out + result.err, "");
}

TEST_F(TrendtoolCheck, PrintsOneLineForEachDamage) {
  run_sql(db_, "UPDATE block SET rows = 3 WHERE number = 2");
  const ProcessResult result = check();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out,
            "segments of no block: there is one with the id 131072\n"
            "device '/plant', interval of 5 minutes, from 1970-01-02T18:40:01Z to "
            "1970-01-04T13:24:59Z: the head of a block is damaged\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(TrendtoolCheck, ChecksADatabaseThatOthersRefuseToOpen) {
  run_sql(db_, "UPDATE device SET path = '/plane'");
  EXPECT_EQ(run_tool("trendtool", {"list", "-x", db_}).exit_status, 1);
  const ProcessResult result = check();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, "the catalogue is damaged\n");
}

TEST_F(TrendtoolCheck, ChecksAFileThatWasCutOff) {
  std::filesystem::resize_file(db_, std::filesystem::file_size(db_) - 5000);
  const ProcessResult result = check();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.out, HasSubstr("it is not a complete trend database\n"));
}

TEST_F(TrendtoolCheck, NamesFilesThatADeadRecorderLeft) {
  // A database with its log as a recorder leaves it if it is killed.
  const std::string copy = folder_.file("copy.db");
  run_sql(db_, "UPDATE device SET description = description", [&] {
    // In use, the same files are nothing to talk about.
    EXPECT_EQ(check().exit_status, 0);
    std::filesystem::copy_file(db_, copy);
    std::filesystem::copy_file(db_ + "-wal", copy + "-wal");
  });
  db_ = copy;
  const ProcessResult result = check();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.out, HasSubstr("copy.db-wal' was left by a program that died\n"));
}

TEST_F(TrendtoolCheck, LetsAnExportTakeWhatIsLeft) {
  run_sql(db_, "UPDATE block SET rows = 3 WHERE number = 2");
  const std::vector<std::string> arguments = {"export", "-x", db_, "-d", "/plant", "-u", "-a"};
  EXPECT_EQ(run_tool("trendtool", arguments).exit_status, 1);
  std::vector<std::string> more = arguments;
  more.emplace_back("--skip-damaged");
  ProcessResult result = run_tool("trendtool", more);
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 1 + 2000 - 512);
  EXPECT_EQ(result.err,
            "trendtool: left out: device '/plant', interval of 5 minutes, from "
            "1970-01-02T18:40:01Z to 1970-01-04T13:24:59Z: the head of a block is damaged\n");
  more.insert(more.end(), {"-s", "1970-01-05"});
  result = run_tool("trendtool", more);
  EXPECT_EQ(result.exit_status, 0) << "what was asked for is whole";
  EXPECT_EQ(result.err, "");
}

TEST_F(TrendtoolCheck, SaysWhyAFileCannotBeChecked) {
  db_ = folder_.file("none.db");
  const ProcessResult result = check();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, StartsWith("trendtool: can't open the database "));
}

}  // namespace
