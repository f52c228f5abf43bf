// trendtool list.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "libtrend/recorder.h"
#include "tests/support/model.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

using testing::HasSubstr;

/// Records a device with two parameters and three rows.
void record_plant(const std::string& path) {
  CRecorder recorder;
  CDeviceProperties plant{.path = "/plant", .aux_text = "Boiler, \"old\""};
  CDeviceProperties empty{.path = "/empty", .aux_text = ""};
  CParamProperties flow{.path = "water/flow", .has_avg = true, .has_sum = true};
  CParamProperties level{.path = "level", .has_actual = true};
  CSeries minutes;
  CSeries hours;
  const double values[] = {1, 2, 3};
  const bool is_recorded =
      recorder.open(path) == 0 && recorder.begin() == 0 && recorder.add_device(plant) == 0 &&
      recorder.add_device(empty) == 0 && recorder.add_param(plant, flow) == 0 &&
      recorder.add_param(plant, level) == 0 && recorder.add_series(plant, 60, hours) == 0 &&
      recorder.add_series(plant, 5, minutes) == 0 &&
      recorder.append(minutes, 1288614600, 1, values) == 0 &&
      recorder.append(minutes, 1288614910, 1, values) == 0 &&
      recorder.append(hours, 1288612800, 1, values) == 0 && recorder.commit() == 0;
  if (!is_recorded) throw std::runtime_error(recorder.error());
}

class TrendtoolList : public testing::Test {
 protected:
  TrendtoolList() { record_plant(db_); }

  ProcessResult list(std::vector<std::string> more) {
    std::vector<std::string> arguments = {"list", "-x", db_};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run_tool("trendtool", arguments, "", {{"TZ", "IST-5:30"}});
  }

  /// Lists, which must succeed without a message.
  std::string listed(std::vector<std::string> more) {
    const ProcessResult result = list(std::move(more));
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.err, "");
    return result.out;
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};

TEST_F(TrendtoolList, ShowsTheDevicesAsATable) {
  EXPECT_EQ(listed({}),
            "device  parameters  intervals  rows  first             last                  size  "
            "description\n"
            "/plant           2          2     3  2010-11-01 17:30  2010-11-01 18:05:10  120 B  "
            "Boiler, \"old\"\n"
            "/empty           0          0     0  -                 -                      0 B\n");
}

TEST_F(TrendtoolList, ShowsOneDeviceAsATable) {
  EXPECT_EQ(listed({"-d", "/plant", "-u"}),
            "parameter   statistics\n"
            "level       actual\n"
            "water/flow  avg sum\n"
            "\n"
            "interval  rows  first (UTC)       last (UTC)           size\n"
            "       5     2  2010-11-01 12:30  2010-11-01 12:35:10  80 B\n"
            "      60     1  2010-11-01 12:00  2010-11-01 12:00     40 B\n");
}

TEST_F(TrendtoolList, ShowsADeviceWithoutAnything) {
  EXPECT_EQ(listed({"-d", "/empty", "-u"}),
            "parameter  statistics\n"
            "\n"
            "interval  rows  first (UTC)  last (UTC)  size\n");
}

TEST_F(TrendtoolList, ShowsTheDevicesAsCsv) {
  EXPECT_EQ(listed({"--format", "csv"}),
            "device,description,parameters,intervals,rows,first_time,last_time,bytes\n"
            "/plant,\"Boiler, \"\"old\"\"\",2,2,3,2010-11-01T17:30:00+05:30,"
            "2010-11-01T18:05:10+05:30,120\n"
            "/empty,,0,0,0,,,0\n");
}

TEST_F(TrendtoolList, ShowsOneDeviceAsCsv) {
  EXPECT_EQ(listed({"--format", "csv", "-d", "/plant", "-u"}),
            "kind,name,display_name,statistics,rows,first_time,last_time,bytes\n"
            "parameter,level,,actual,,,,\n"
            "parameter,water/flow,,avg sum,,,,\n"
            "interval,5,,,2,2010-11-01T12:30:00Z,2010-11-01T12:35:10Z,80\n"
            "interval,60,,,1,2010-11-01T12:00:00Z,2010-11-01T12:00:00Z,40\n");
}

TEST_F(TrendtoolList, ShowsEverythingAsJson) {
  const std::string plant =
      "  {\"path\": \"/plant\", \"description\": \"Boiler, \\\"old\\\"\", \"parameters\": "
      "[{\"path\": \"level\", \"statistics\": [\"actual\"]}, "
      "{\"path\": \"water/flow\", \"statistics\": [\"avg\", \"sum\"]}], \"intervals\": "
      "[{\"minutes\": 5, \"rows\": 2, \"first_time\": \"2010-11-01T12:30:00Z\", "
      "\"last_time\": \"2010-11-01T12:35:10Z\", \"bytes\": 80}, "
      "{\"minutes\": 60, \"rows\": 1, \"first_time\": \"2010-11-01T12:00:00Z\", "
      "\"last_time\": \"2010-11-01T12:00:00Z\", \"bytes\": 40}]}";
  EXPECT_EQ(listed({"--format", "json", "-u"}),
            "{\"devices\": [\n" + plant +
                ", \n  {\"path\": \"/empty\", \"description\": \"\", \"parameters\": [], "
                "\"intervals\": []}]}\n");
  EXPECT_EQ(listed({"--format", "json", "-u", "-d", "/plant"}),
            "{\"devices\": [\n" + plant + "]}\n");
}

TEST_F(TrendtoolList, ShowsNamesAlone) {
  EXPECT_EQ(listed({"--names"}), "/plant\n/empty\n");
  EXPECT_EQ(listed({"--names", "-d", "/plant"}), "level\nwater/flow\n");
  EXPECT_EQ(listed({"--names", "-d", "/empty"}), "");
}

TEST_F(TrendtoolList, ShowsADatabaseWithoutDevices) {
  db_ = folder_.file("new.db");
  CRecorder recorder;
  ASSERT_EQ(recorder.open(db_), 0);
  recorder.close();
  EXPECT_EQ(listed({}), "device  parameters  intervals  rows  first  last  size  description\n");
  EXPECT_EQ(listed({"--format", "json"}), "{\"devices\": []}\n");
  EXPECT_EQ(listed({"--names"}), "");
}

TEST_F(TrendtoolList, WritesAFile) {
  const std::string file = folder_.file("names.txt");
  EXPECT_EQ(listed({"--names", "-f", file}), "");
  EXPECT_EQ(read_file(file), "/plant\n/empty\n");
}

TEST_F(TrendtoolList, SaysThatItCantWrite) {
  const ProcessResult database = list({"-f", db_});
  EXPECT_EQ(database.exit_status, 1);
  EXPECT_EQ(database.err, "trendtool: can't write '" + db_ +
                              "': it is a file of the database; choose another name\n");
  EXPECT_EQ(list({"-f", "/dev/full"}).err,
            "trendtool: can't write '/dev/full': No space left on device\n");
}

TEST_F(TrendtoolList, ShowsAnIntervalWithoutRows) {
  std::filesystem::remove(db_);
  record({.device = "/d", .params = {{"a", AVG}}, .minutes = {5, 60}, .rows = {{60, 3600, 1, {1}}}},
         db_);
  EXPECT_THAT(listed({"-d", "/d", "-u"}), HasSubstr("\n       5     0  -                 -  "));
  EXPECT_THAT(listed({"-u"}), HasSubstr("  1970-01-01 01:00  1970-01-01 01:00  "));
  EXPECT_THAT(listed({"-d", "/d", "--format", "json", "-u"}),
              HasSubstr("{\"minutes\": 5, \"rows\": 0, \"first_time\": null, \"last_time\": null"));
}

TEST_F(TrendtoolList, RefusesAnUnknownDevice) {
  const ProcessResult result = list({"-d", "/plan"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "trendtool: the database has no device '/plan'; 'trendtool list' shows its devices\n");
}

TEST_F(TrendtoolList, CountsTheRowsInBlocks) {
  ModelLog log;
  log.device = "/long";
  log.params = {{"a", AVG}};
  log.minutes = {5};
  for (int i = 1; i <= 5000; ++i) log.rows.push_back({5, 300LL * i, 1, {1.0 * i}});
  record(log, db_);
  EXPECT_THAT(listed({"-d", "/long", "-u", "--format", "csv"}),
              HasSubstr("interval,5,,,5000,1970-01-01T00:05:00Z,1970-01-18T08:40:00Z,"));
}

TEST_F(TrendtoolList, SaysOnceThatThereAreNoDisplayNames) {
  const ProcessResult result = list({"-n", "--format", "json"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  EXPECT_THAT(result.err, HasSubstr("display names; paths are shown instead\n"));
  EXPECT_THAT(result.out, HasSubstr("\"display_name\": \"water/flow\""));
}

}  // namespace
