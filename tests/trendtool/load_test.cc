// trendtool load: what it does beyond trendload, which has its own tests.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/model.h"

namespace {

using testing::HasSubstr;

constexpr const char* CENTRAL_EUROPE = "CET-1CEST,M3.5.0,M10.5.0/3";

class TrendtoolLoad : public testing::Test {
 protected:
  ProcessResult run(const std::string& command, const std::string& db,
                    std::vector<std::string> more, const std::string& input = "") {
    std::vector<std::string> arguments = {command, "-x", db};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run_tool("trendtool", arguments, input, {{"TZ", CENTRAL_EUROPE}});
  }

  /// Runs a subcommand that must succeed without a message.
  std::string run_well(const std::string& command, const std::string& db,
                       std::vector<std::string> more, const std::string& input = "") {
    const ProcessResult result = run(command, db, std::move(more), input);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.err, "");
    return result.out;
  }

  /// Loads `csv`, which must fail with this message after the place of the error.
  void expect_refusal(const std::string& csv, const std::string& message,
                      std::vector<std::string> more = {"-d", "/d"}) {
    const ProcessResult result = run("load", db_, std::move(more), csv);
    EXPECT_EQ(result.exit_status, 1) << csv;
    EXPECT_EQ(result.err, "trendtool: -:" + message + "\n");
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
  std::string copy_ = folder_.file("copy.db");
};

TEST_F(TrendtoolLoad, ReadsBackEveryCsvOfExport) {
  const std::vector<std::string> formats[] = {{"-u"},
                                              {"--epoch", "-a"},
                                              {"--decimal", ","},
                                              {"--separator", "tab"},
                                              {"--separator", "|", "--decimal", ",", "-a"},
                                              {"--layout", "long"},
                                              {"--layout", "long", "--decimal", ",", "-a"}};
  Random random(11);
  for (int round = 0; round < random_rounds(28, std::size(formats)); ++round) {
    for (const std::string& path : {db_, copy_}) std::filesystem::remove(path);
    const ModelLog log = random_log(random, false);
    record(log, db_);
    std::vector<std::string> arguments =
        formats[static_cast<std::size_t>(round) % std::size(formats)];
    for (const char* word : {"-d", log.device.c_str(), "--exact", "--percent-valid"}) {
      arguments.emplace_back(word);
    }
    const std::string csv = run_well("export", db_, arguments);
    run_well("load", copy_, {"-d", log.device}, csv);
    if (csv.find('\n') + 1 == csv.size()) continue;  // a header alone names no interval
    ASSERT_EQ(run_well("export", copy_, arguments), csv) << round;
  }
}

TEST_F(TrendtoolLoad, ReadsBackRowsOfADeviceWithoutParameters) {
  record({.device = "/d",
          .params = {},
          .minutes = {5, 60},
          .rows = {{5, 300, 1, {}}, {5, 600, 0.5, {}}, {60, 7200, 0.25, {}}}},
         db_);
  for (const bool names_device : {false, true}) {
    if (names_device) {
      record({.device = "/two", .params = {{"w", AVG}}, .minutes = {5}, .rows = {{5, 300, 1, {7}}}},
             db_);
    }
    for (const std::string layout : {"wide", "long"}) {
      std::filesystem::remove(copy_);
      std::vector<std::string> arguments = {"--epoch", "-a", "--percent-valid", "--layout", layout};
      const std::vector<std::string> device = {"-d", "/d"};
      if (names_device) arguments.emplace_back("--all-devices");
      if (!names_device) arguments.insert(arguments.end(), device.begin(), device.end());
      const std::string csv = run_well("export", db_, arguments);
      run_well("load", copy_, names_device ? std::vector<std::string>() : device, csv);
      EXPECT_EQ(run_well("export", copy_, arguments), csv);
      const std::string list = run_well("list", db_, {});
      EXPECT_EQ(run_well("list", copy_, {}), list);
    }
  }
  EXPECT_EQ(run_well("export", db_, {"-d", "/d", "--epoch", "-a", "--layout", "long"}),
            "time,interval,parameter,statistic,value\n300,5,,,\n600,5,,,\n7200,60,,,\n");
}

TEST_F(TrendtoolLoad, ReadsBackAParameterWithoutAName) {
  const std::string csv =
      "time,interval,parameter,statistic,value\n300,5,,actual,1\n600,5,,actual,\n";
  run_well("load", db_, {"-d", "/d"}, csv);
  EXPECT_EQ(run_well("export", db_, {"-d", "/d", "--epoch", "-a", "--layout", "long"}), csv);
}

TEST_F(TrendtoolLoad, ReadsBackSeveralDevicesWithOddNames) {
  record({.device = "a,\"b\"\nc",
          .params = {{"x;y", MIN | MAX}, {"\"z\"", SUM}},
          .minutes = {5, 60},
          .rows = {{5, 300, 1, {1, 2, 3}}, {60, 7200, 0.5, {4, 5, 6}}}},
         db_);
  record({.device = "/two", .params = {{"w", AVG}}, .minutes = {5}, .rows = {{5, 300, 1, {7}}}},
         db_);
  for (const char* layout : {"wide", "long"}) {
    std::filesystem::remove(copy_);
    const std::vector<std::string> arguments = {"--all-devices", "--layout", layout,
                                                "--percent-valid"};
    const std::string csv = run_well("export", db_, arguments);
    run_well("load", copy_, {}, csv);
    EXPECT_EQ(run_well("export", copy_, arguments), csv);
    EXPECT_EQ(run_well("list", copy_, {"--names", "-d", "/two"}), "w\n") << layout;
  }
}

TEST_F(TrendtoolLoad, ReadsBackBothChangesOfDaylightSaving) {
  ModelLog log{.device = "/d", .params = {{"a", ACTUAL}}, .minutes = {30}, .rows = {}};
  for (int i = 0; i < 8; ++i) log.rows.push_back({30, 1288481400 + 1800 * i, 1, {1.0 * i}});
  for (int i = 0; i < 5; ++i) log.rows.push_back({30, 1269734400 + 1800 * i, 1, {1.0 * i}});
  record(log, db_);
  const std::string csv = run_well("export", db_, {"-d", "/d"});
  EXPECT_THAT(csv, HasSubstr("2010-10-31T02:30:00+01:00"));
  run_well("load", copy_, {"-d", "/d"}, csv);
  EXPECT_EQ(run_well("export", copy_, {"-d", "/d"}), csv);
}

TEST_F(TrendtoolLoad, ReadsWhatTrendcsvPrints) {
  run_well("load", db_, {"-d", "/d", "-i", "60", "-u"}, "Date,Time,a:Value\n2023-05-01,01:00,1\n");
  EXPECT_EQ(run_well("export", db_, {"-d", "/d", "-u"}),
            "time,interval,a:Value\n2023-05-01T01:00:00Z,60,1\n");
  const std::string file = folder_.file("rows.csv");
  write_file(file, "Date,Time,a:Value\n2023-05-01,02:00,2\n2023-05-01,nonsense,1\n");
  const ProcessResult result = run("load", db_, {"-d", "/d", "-i", "60", "-u", file});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err,
            "trendtool: " + file + ":3: '2023-05-01 nonsense' does not match the format '%F %R'\n");
  expect_refusal("Date,Time,a:Value\n", "1: -i, the interval in minutes, is missing");
  expect_refusal("Date,Time,a:Value\n", "1: -d, the device, is missing", {"-i", "5"});
  expect_refusal("", "1: the header is missing", {"-d", "/d", "-i", "5"});
}

TEST_F(TrendtoolLoad, ReadsTimesInUtcWithoutOffset) {
  run_well("load", db_, {"-d", "/d", "-i", "5", "-u"}, "time,a:Value\n2023-05-01 01:00,1\n");
  EXPECT_EQ(run_well("export", db_, {"-d", "/d", "-u"}),
            "time,interval,a:Value\n2023-05-01T01:00:00Z,5,1\n");
}

TEST_F(TrendtoolLoad, SaysWhereAFileIsWrong) {
  const std::string header = "time,interval,a:Value\n";
  expect_refusal(header + "@5,5,1\n", "2: '@5' is not a time");
  expect_refusal(header + "now,5,1\n", "2: 'now' is not a time");
  expect_refusal(header + "-5,5,1\n", "2: '-5' is not a time");
  expect_refusal(header + "0,5,1\n", "2: '0' is not after the epoch");
  expect_refusal(header + "2023-05-01T01:00,5,1\n",
                 "2: '2023-05-01T01:00' has no offset from UTC; use -u if it is in UTC");
  expect_refusal(header + "5,0,1\n", "2: '0' is not a number of minutes");
  expect_refusal(header + "5,5,x\n", "2: 'x' is not a number");
  expect_refusal(header + "5,5,1\n6,5\n", "3: 2 fields, but the header has 3");
  expect_refusal(header + "5,5,\"1\n\n", "2: a field in quotes has no end");
  expect_refusal(header + "5,5,\"1\"2\n", "2: there is text after the end of a field in quotes");
  expect_refusal(header + "5,5" + std::string(70'000, ',') + "\n",
                 "2: more than 65539 fields, but the header has 3");
  expect_refusal(header + "5,\"5\"" + std::string(70'000, ',') + "\n",
                 "2: the record has too many fields");
  expect_refusal(
      header + "5,5,\"" + std::string(9'000'000, 'x') + "\n" + std::string(9'000'000, 'x') + "\"\n",
      "2: the record is too long");
  expect_refusal(header + "5,5,\"\n" + std::string(17'000'000, 'x'),
                 "3: the line is longer than 16777216 bytes");
  expect_refusal("time,\"\n" + std::string(17'000'000, 'x'),
                 "2: the line is longer than 16777216 bytes");
  expect_refusal("time,interval" + std::string(70'000, ',') + "\n",
                 "1: the header has more than 65539 fields");
  expect_refusal("time,interval,b\n",
                 "1: column 'b' is not a parameter path with a colon and a statistic");
  expect_refusal("time,interval,parameter,statistic,value\n5,5,a,min,1\n5,5,,,\n",
                 "3: the series has a row with the timestamp 5 already");
  expect_refusal("time,interval,percent_valid,a:Value\n5,5,101,1\n",
                 "2: '101' is not a percentage from 0 to 100");
  expect_refusal("time,interval,parameter,statistic,value\n5,5,a,mean,1\n",
                 "2: 'mean' is not a statistic");
  expect_refusal("time,interval,parameter,statistic,value\n5,5,a,min,1\n5,5,a,min,1\n",
                 "3: the value of 'a:.ValueIntMin' appears twice in one row");
  const std::string long_header = "time,interval,parameter,statistic,value\n";
  expect_refusal(long_header + "5,5,a,min,x\n", "2: 'x' is not a number");
  expect_refusal(long_header + "5,5,,,1\n", "2: '' is not a statistic");
  expect_refusal(long_header + "5,5,a,min,1\n5,5,,,\n6,5,a,min,1\n",
                 "3: the series has a row with the timestamp 5 already");
  expect_refusal("time\n", "1: the header does not start with Date,Time", {"-d", "/d", "-i", "5"});
  expect_refusal("time,interval,parameter,statistic,values\n",
                 "1: column 'parameter' is not a parameter path with a colon and a statistic");
  expect_refusal("time,interval,\"a,b:Value\"\n5,5,y\n", "2: 'y' is not a number");
  expect_refusal("time,interval,device,a:Value\n5,5,,1\n", "2: the path of the device is empty",
                 {});
  expect_refusal("time,interval,a:Value\n", "1: -d, the device, is missing", {});
  expect_refusal("time,a:Value\n", "1: -i, the interval in minutes, is missing");
  expect_refusal(header, "1: the file has the interval of each row; leave out -i",
                 {"-d", "/d", "-i", "5"});
  expect_refusal("time,interval,device,a:Value\n",
                 "1: the file names the device of each row; leave out -d");
  // Nothing of any of them was recorded.
  EXPECT_EQ(run_well("list", db_, {"--names"}), "");
}

TEST_F(TrendtoolLoad, LoadsAsManyColumnsAsADeviceHasSlots) {
  constexpr int SLOTS = 65'535;
  std::string header = "Date,Time";
  std::string row = "2023-05-01,01:00";
  for (int i = 0; i < SLOTS; ++i) {
    header += ",p" + std::to_string(i) + ":Value";
    row += ',';
  }
  run_well("load", db_, {"-d", "/d", "-i", "5"}, header + "\n" + row + "7\n");
  EXPECT_EQ(run_well("export", db_, {"-d", "/d", "-p", "p65534", "-u"}),
            "time,interval,p65534:Value\n2023-04-30T23:00:00Z,5,7\n");
  const ProcessResult more = run("load", copy_, {"-d", "/d", "-i", "5"}, header + ",q:Value\n");
  EXPECT_EQ(more.err, "trendtool: " + copy_ +
                          ": parameter 'q' needs more than the 65535 slots that a device can "
                          "have\n");
}

TEST_F(TrendtoolLoad, LoadsDevicesThatShareNoParameters) {
  std::string rows = "time,interval,device,parameter,statistic,value\n";
  for (int device = 0; device < 300; ++device) {
    for (int param = 0; param < 10; ++param) {
      const std::string number = std::to_string(device);
      rows += "300,5,/d" + number + ",p" + number + "." + std::to_string(param) + ",actual,1\n";
    }
  }
  run_well("load", db_, {}, rows);
  EXPECT_EQ(run_well("list", db_, {"-d", "/d299", "--names"}),
            "p299.0\np299.1\np299.2\np299.3\np299.4\np299.5\np299.6\np299.7\np299.8\np299.9\n");
}

TEST_F(TrendtoolLoad, SkipsRowsThatAreRecordedWithTheSameValues) {
  record({.device = "/d",
          .params = {{"a", ACTUAL}, {"b", MIN}},
          .minutes = {5},
          .rows = {{5, 300, 0.25, {1.0 / 3, 1}}, {5, 600, 1, {2, 2}}}},
         db_);
  // As many digits as trendcsv prints, and one of the parameters.
  const std::string rows =
      "time,interval,percent_valid,a:Value\n300,5,25.00,0.333333\n600,5,100.00,2\n";
  const ProcessResult twice = run("load", db_, {"-d", "/d"}, rows);
  EXPECT_EQ(twice.exit_status, 1);
  EXPECT_THAT(twice.err, HasSubstr("trendtool: -:2: "));
  run_well("load", db_, {"-d", "/d", "--skip-existing"}, rows + "900,5,100.00,3\n");
  EXPECT_EQ(run_well("export", db_, {"-d", "/d", "-a", "--epoch"}),
            "time,interval,a:Value,b:.ValueIntMin\n300,5,0.333333,1\n600,5,2,2\n900,5,3,\n");
  EXPECT_EQ(run_well("load", db_, {"-d", "/d", "--skip-existing", "--dry-run"},
                     rows + "1200,5,100.00,4\n"),
            "1 rows can be recorded, 2 are recorded already\n");
}

TEST_F(TrendtoolLoad, RefusesRowsThatAreRecordedWithOtherValues) {
  record({.device = "/d",
          .params = {{"a", ACTUAL}},
          .minutes = {5},
          .rows = {{5, 300, 0.25, {1.0 / 3}}, {5, 600, 1, {2}}}},
         db_);
  const std::string header = "time,interval,percent_valid,a:Value\n";
  const std::string other = "a row with other values is recorded at this time";
  const std::vector<std::string> options = {"-d", "/d", "--skip-existing"};
  for (const char* row : {"300,5,25.00,0.33333", "300,5,25.00,0.3333333", "300,5,25.01,0.333333",
                          "300,5,25.00,", "600,5,100.00,3"}) {
    expect_refusal(header + "900,5,100.00,1\n" + row + "\n", "3: " + other, options);
  }
  EXPECT_EQ(run_well("export", db_, {"-d", "/d", "-a", "--epoch"}),
            "time,interval,a:Value\n300,5,0.333333\n600,5,2\n");
}

TEST_F(TrendtoolLoad, SkipsTheRowsOfALongLogInAnyOrder) {
  ModelLog log{.device = "/d", .params = {{"a", ACTUAL}}, .minutes = {5}, .rows = {}};
  for (int i = 1; i <= 3000; ++i) log.rows.push_back({5, 300LL * i, 1, {0.1 * i}});
  record(log, db_);
  for (const bool ascending : {false, true}) {
    std::vector<std::string> arguments = {"-d", "/d"};
    if (ascending) arguments.emplace_back("-a");
    const std::string csv = run_well("export", db_, arguments);
    EXPECT_EQ(run_well("load", db_, {"-d", "/d", "--skip-existing", "--dry-run"}, csv),
              "0 rows can be recorded, 3000 are recorded already\n");
  }
}

TEST_F(TrendtoolLoad, RecordsNothingInADryRun) {
  const std::string rows = "time,interval,a:Value\n300,5,1\n600,5,2\n";
  EXPECT_EQ(run_well("load", db_, {"-d", "/d", "--dry-run"}, rows),
            "2 rows can be recorded, 0 are recorded already\n");
  EXPECT_FALSE(std::filesystem::exists(db_));
  run_well("load", db_, {"-d", "/d"}, rows);
  const std::string before = read_file(db_);
  EXPECT_EQ(run_well("load", db_, {"-d", "/e", "--dry-run"}, rows),
            "2 rows can be recorded, 0 are recorded already\n");
  EXPECT_EQ(read_file(db_), before);
  EXPECT_EQ(run("load", db_, {"-d", "/d", "--dry-run"}, rows).exit_status, 1);
}

TEST_F(TrendtoolLoad, RefusesAStatisticThatIsNotRecorded) {
  record({.device = "/d", .params = {{"a", AVG}}, .minutes = {5}, .rows = {}}, db_);
  const std::string wrong = "parameter 'a' exists in the database without :.ValueIntMin";
  expect_refusal("time,interval,a:.ValueIntMin\n", "1: " + wrong);
  expect_refusal("time,interval,device,a:.ValueIntMin\n300,5,/d,\n600,5,/d,1\n", "3: " + wrong, {});
  const std::string long_rows = "time,interval,parameter,statistic,value\n300,5,a,min,";
  expect_refusal(long_rows + "1\n600,5,a,avg,2\n", "3: " + wrong);
  expect_refusal(long_rows + "1\n", "2: " + wrong);
  // A missing value needs no place.
  run_well("load", db_, {"-d", "/d"}, long_rows + "\n300,5,a,avg,7\n");
  EXPECT_EQ(run_well("export", db_, {"-d", "/d", "--epoch"}),
            "time,interval,a:.ValueIntAvg\n300,5,7\n");
}

TEST_F(TrendtoolLoad, ComparesMissingValues) {
  record({.device = "/d",
          .params = {{"a", ACTUAL}, {"b", ACTUAL}},
          .minutes = {5},
          .rows = {{5, 300, 1, {1, NAN}}}},
         db_);
  const std::string header = "time,interval,a:Value,b:Value\n";
  const std::vector<std::string> options = {"-d", "/d", "--skip-existing", "--dry-run"};
  EXPECT_EQ(run_well("load", db_, options, header + "300,5,1,\n"),
            "0 rows can be recorded, 1 are recorded already\n");
  for (const char* row : {"300,5,1,2\n", "300,5,,\n"}) {
    expect_refusal(header + row, "2: a row with other values is recorded at this time", options);
  }
  // A parameter that comes with a later row is compared, too.
  EXPECT_EQ(run_well("load", db_, options,
                     "time,interval,parameter,statistic,value\n300,5,a,actual,1\n"
                     "600,5,a,actual,2\n600,5,c,actual,3\n900,5,c,actual,3\n"),
            "2 rows can be recorded, 1 are recorded already\n");
}

TEST_F(TrendtoolLoad, SaysThatADryRunHasNoFolderForItsDatabase) {
  const std::string rows = "time,interval,a:Value\n300,5,1\n";
  const auto dry_run = [&](const std::string& folder) {
    return run_tool("trendtool", {"load", "-x", copy_, "-d", "/d", "--dry-run"}, rows,
                    {{"TMPDIR", folder}});
  };
  ProcessResult result = dry_run("/dev/null");
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err,
            "trendtool: " + copy_ + ": there is no folder for temporary files: Not a directory\n");
  result = dry_run("/proc");
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.err, HasSubstr(": '/proc/trendtool-"));
}

TEST_F(TrendtoolLoad, RefusesMoreValuesInARowThanAFileCanHave) {
  std::string rows = "time,interval,parameter,statistic,value\n";
  for (int i = 0; i < 65'540; ++i) rows += "300,5,p" + std::to_string(i) + ",actual,1\n";
  expect_refusal(rows, "65541: the row has more than 65539 values");
}

}  // namespace
