// The texts, messages and exit statuses of the real trendcsv.
#include <gtest/gtest.h>

#include <algorithm>

#include "libtrend/recorder.h"
#include "tests/support/model.h"
#include "tests/support/usage_text.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CRecorder;

namespace {

ProcessResult dump(const std::vector<std::string>& arguments) {
  return run_tool("trendcsv", arguments, "", {{"TZ", "UTC0"}});
}

/// Runs with a bad command line and expects `message` and the usage text.
void expect_rejected(const std::vector<std::string>& arguments, const std::string& message,
                     const std::string& chunk_size = "512") {
  const ProcessResult result = dump(arguments);
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, message);
  EXPECT_EQ(result.out, expected_usage(tool_command("trendcsv").back(), chunk_size));
}

TEST(ProgramUsage, IsPrintedForABadCommandLine) {
  expect_rejected({}, "Error: must supply a database name\n");
  expect_rejected({"-x", "a.db"}, "Error: must supply a device name\n");
  expect_rejected({"-d", "/plant"}, "Error: must supply a database name\n");
  expect_rejected({"--help"}, "");
  expect_rejected({"-x", "a.db", "-d", "/plant", "surplus"}, "");
  expect_rejected({"-x", "a.db", "-d", "/plant", "-m"}, "");
  expect_rejected({"-x", "", "-d", "/plant"}, "");
  expect_rejected({"-x=a.db"}, "");
  expect_rejected({"surplus", "-v"}, "");
}

TEST(ProgramUsage, NamesTheProgramAsTyped) {
  const TemporaryFolder folder;
  std::filesystem::copy_file(tool_command("trendcsv").back(), folder.file("another name"));
  std::vector<std::string> command = tool_command("trendcsv");
  command.back() = "./another name";
  const ProcessResult result =
      run_process(command, "", {}, [&] { std::filesystem::current_path(folder.path()); });
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, expected_usage("./another name", "512"));
}

TEST(ProgramUsage, ShowsTheChunkSizeThatWasTyped) {
  expect_rejected({"-c", "100", "-q"}, "", "100");
  expect_rejected({"-c", "0", "-q"}, "", "0");
  expect_rejected({"-q", "-c", "100"}, "");
}

TEST(ProgramUsage, AlwaysShowsTheDefaultFormats) {
  expect_rejected({"-t", "%s", "-w", "%D", "-y", "%T", "-q"}, "");
}

TEST(ProgramVersion, EndsInABlankLine) {
  const std::string program = tool_command("trendcsv").back();
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"-v"}, {"-a", "-v", "-x"}, {"-v", "--nonsense"}}) {
    const ProcessResult result = dump(arguments);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, expected_version(program));
  }
}

TEST(ProgramMessages, NameTheNumberThatIsRefused) {
  expect_rejected({"-i", "-5"}, "Error: invalid trend interval: -5\n");
  expect_rejected({"-m", "0"}, "Error: invalid maximum # of records: 0\n");
  expect_rejected({"-m", "abc"}, "Error: invalid maximum # of records: 0\n");
  expect_rejected({"-o", "0"}, "Error: invalid log file offset: 0\n");
  expect_rejected({"-c", "-1"}, "Error: invalid chunk size: -1\n");
  expect_rejected({"-sp", "0"}, "Error: invalid page size: 0\n");
  expect_rejected({"-sc", "-3x"}, "Error: invalid cache size: -3\n");
  expect_rejected({"-sl", "none"}, "Error: invalid heap limit: 0\n");
}

TEST(ProgramMessages, NameTheTimeThatIsRefused) {
  const auto with = [](std::vector<std::string> more) {
    more.insert(more.begin(), {"-x", "a.db", "-d", "/plant", "-u"});
    return more;
  };
  expect_rejected(with({"-s", "2023-05-01"}),
                  "Error: can't convert start time '2023-05-01' using input format '%F %R'\n");
  expect_rejected(
      with({"-s", "2023-05-01 01:00Z"}),
      "Error: can't convert start time '2023-05-01 01:00Z' using input format '%F %R'\n");
  expect_rejected(with({"-e", "noon", "-t", "%R"}),
                  "Error: can't convert end time 'noon' using input format '%R'\n");
  expect_rejected(with({"-s", "1969-12-31 23:59:59", "-t", "%F %T"}),
                  "Error: can't convert start time\n");
  expect_rejected(with({"-e", "1969-12-31 23:59:59", "-t", "%F %T"}),
                  "Error: can't convert end time\n");
}

/// A log of `count` rows, an hour apart.
ModelLog hourly_log(std::uint32_t count) {
  ModelLog log;
  log.params = {{"temperature", MIN | MAX}, {"pump/runs", ACTUAL}};
  log.minutes = {60};
  for (std::uint32_t i = 1; i <= count; ++i) {
    log.rows.push_back({60, utc(2023, 5, 1) + 3600 * std::int64_t{i}, 1, {1.0 * i, 2.0 * i, 0.5}});
  }
  return log;
}

class Program : public testing::Test {
 protected:
  explicit Program(std::uint32_t rows = 1024) : log_(hourly_log(rows)) { record(log_, db_); }

  ProcessResult dump_log(std::vector<std::string> more) const {
    more.insert(more.begin(), {"-x", db_, "-d", log_.device});
    return dump(more);
  }

  /// Expects a dump to fail with `message` before it prints anything.
  void expect_failure(const std::vector<std::string>& arguments, const std::string& message) const {
    const ProcessResult result = dump(arguments);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, message);
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
  ModelLog log_;
};

TEST_F(Program, NamesADatabaseThatItCannotOpen) {
  const std::string missing = folder_.file("none.db");
  expect_failure({"-x", missing, "-d", "/plant"}, "Error opening trend db: '" + missing + "'\n");
  EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST_F(Program, NamesWhatIsNotTrended) {
  expect_failure({"-x", db_, "-d", "/PLANT"}, "Error: device '/PLANT' is not trended\n");
  expect_failure({"-x", db_, "-d", "/plant/"}, "Error: device '/plant/' is not trended\n");
  expect_failure({"-x", db_, "-d", "/plant", "-p", "temperature", "-p", "pump"},
                 "Error: parameter 'pump' on device '/plant'  is not trended\n");
  expect_failure({"-x", db_, "-d", "/plant", "-i", "60", "-i", "15"},
                 "Error: interval 15 is not trended\n");
}

TEST_F(Program, SaysThatADeviceHasNoParameters) {
  CRecorder recorder;
  ASSERT_EQ(recorder.open(db_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  CDeviceProperties device;
  device.path = "/bare";
  ASSERT_EQ(recorder.add_device(device), 0);
  ASSERT_EQ(recorder.commit(), 0);
  expect_failure({"-x", db_, "-d", "/bare"},
                 "Device '/bare' exists in the log, but contains no trendable parameters.\n");
}

TEST_F(Program, PrintsOnlyAHeaderWithoutIntervals) {
  ModelLog log;
  log.params = {{"a", ACTUAL}};
  const std::string db = folder_.file("bare.db");
  record(log, db);
  for (const std::vector<std::string>& more :
       {std::vector<std::string>{}, {"-m", "1"}, {"-o", "1"}, {"-c", "0", "-m", "1"}}) {
    std::vector<std::string> arguments = {"-x", db, "-d", "/plant"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const ProcessResult result = dump(arguments);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.out, "Date,Time,a:Value\n");
    EXPECT_EQ(result.err, "");
  }
  expect_failure({"-x", db, "-d", "/plant", "-i", "0"}, "Error: interval 0 is not trended\n");
  expect_failure({"-x", db, "-d", "/plant", "-i", "60"}, "Error: interval 60 is not trended\n");
}

TEST_F(Program, PrintsNoColumnForAParameterWithoutStatistics) {
  ModelLog log;
  log.params = {{"a", 0}};
  log.minutes = {60};
  log.rows = {{60, utc(2023, 5, 1, 1), 0.5, {}}, {60, utc(2023, 5, 1, 2), 1, {}}};
  const std::string db = folder_.file("bare.db");
  record(log, db);
  const ProcessResult result = dump({"-x", db, "-d", "/plant", "-pv"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out,
            "Date,Time,Percent Valid\n2023-05-01,02:00,100.00\n2023-05-01,01:00,50.00\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(dump({"-x", db, "-d", "/plant", "-m", "1", "-p", "a"}).out,
            "Date,Time\n2023-05-01,02:00\n");
}

TEST_F(Program, FallsBackToPathsWithoutACds) {
  const ProcessResult plain = dump_log({"-m", "3"});
  const ProcessResult named = dump_log({"-m", "3", "-n"});
  EXPECT_EQ(named.err, "Error: can't connect to CDS\n");
  EXPECT_EQ(named.out, plain.out);
  EXPECT_EQ(named.exit_status, 0);
  EXPECT_EQ(dump_log({"-n", "-nh", "-m", "3"}).err, "");
}

TEST_F(Program, ExitsWithOneAtTheEndOfTheData) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                    {"-m", "1025"},
                                                    {"-m", "1000", "-o", "25"},
                                                    {"-c", "1"},
                                                    {"-c", "0"},
                                                    {"-c", "0", "-m", "2000"},
                                                    {"-o", "1024"},
                                                    {"-s", "2030-01-01 00:00"}}) {
    const ProcessResult result = dump_log(arguments);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(Program, ExitsWithZeroAtTheLimit) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"-m", "512"},
                                                    {"-m", "1024"},
                                                    {"-m", "1"},
                                                    {"-m", "999", "-o", "25"},
                                                    {"-m", "700", "-c", "7"},
                                                    {"-m", "700", "-c", "0"},
                                                    {"-m", "5", "-a", "-r"}}) {
    const ProcessResult result = dump_log(arguments);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.err, "");
    const auto lines = std::count(result.out.begin(), result.out.end(), '\n');
    EXPECT_EQ(std::to_string(lines - 1), arguments[1]);
  }
}

TEST_F(Program, PrintsEveryRowOfAWholeLog) {
  DumpRequest request;
  const auto [text, exit_status] = expected_dump(log_, request);
  const ProcessResult result = dump_log({});
  EXPECT_EQ(result.out, text);
  EXPECT_EQ(result.exit_status, exit_status);
  EXPECT_EQ(result.out.substr(0, result.out.find('\n', 100)),
            "Date,Time,temperature:.ValueIntMin,temperature:.ValueIntMax,pump/runs:Value\n"
            "2023-06-12,16:00,1024,2048,0.5");
}

TEST_F(Program, AcceptsUnusualSettingsOfSqlite) {
  const ProcessResult plain = dump_log({});
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"-sp", "1"},
        {"-sp", "2147483647"},
        {"-sp", "8192"},
        {"-sc", "1"},
        {"-sc", "2147483647"},
        {"-sl", "1"},
        {"-sl", "2147483647"},
        {"-J"},
        {"-sp", "4096", "-sc", "64", "-sl", "512", "-J"}}) {
    const ProcessResult result = dump_log(arguments);
    EXPECT_EQ(result.out, plain.out) << arguments[0];
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(Program, DumpsAParameterTwiceIfItIsTypedTwice) {
  const ProcessResult result =
      dump_log({"-m", "1", "-p", "temperature", "-p", "pump/runs", "-p", "temperature"});
  EXPECT_EQ(result.out,
            "Date,Time,pump/runs:Value,temperature:.ValueIntMin,temperature:.ValueIntMax,"
            "temperature:.ValueIntMin,temperature:.ValueIntMax\n"
            "2023-06-12,16:00,0.5,1024,2048,1024,2048\n");
}

}  // namespace
