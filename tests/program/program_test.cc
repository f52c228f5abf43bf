// The texts, messages and exit statuses of the real trendcsv.
#include <gtest/gtest.h>

#include <algorithm>

#include "libtrend/recorder.h"
#include "tests/support/model.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CRecorder;

namespace {

std::string usage(const std::string& program, const std::string& chunk_size = "512") {
  return "Usage: " + program +
         R"( -x <db> -d <device> [-p <param> [-p <param> [...]]] [-i <interval> [-i <interval> [...]]] [-s <start_time>] [-e <end_time>] [-m <max_size>] [-o <offset>] [-c <size>] [-f <file>] [-a] [-n] [-nh] [-t <input_time_fmt>] [-w <output_date_fmt>] [-y <output_time_fmt>] [-u] [-b] [-pv] [-sp <page_size>] [-sc <cache_size>] [-sl <heap_limit] [-J] [-v]
	-x: Use <db> as the trend database.  REQUIRED.
	-d: Use <device> as the device path to dump data for.  REQUIRED.
	-p: Dump trend data for the parameter named <param>.  Any number of
	    parameters can be specified on the command-line.  If no parameters
	    are specified, ALL parameters are included in the dump.
	-i: Dump trend data for the specified trend <interval>.  Any number of
	    intervals can be specified on the command-line.  If no intervals
	    are specified, data will be gathered from ALL intervals.  Note that
	    more-granular interval data takes precedence over less-granular
	    interval data, so e.g. 5-minute samples will be output instead of
	    1-hour samples when both are available (where 5-minute data is no
	    longer available, 1-hour data is output instead).  The special
	    <interval> value '0' can be used to indicate the smallest available
	    interval.
	-s: Don't dump any trend records that occur prior to <start_time>
	    (see '-t' for format).
	-e: Don't dump any trend records that occur after <end_time>
	    (see '-t' for format).
	-m: Dump at most <max_size> records from the trend log.
	-o: Skip <offset> records in the return set.
	-c: Fetch & display trend entries in chunks of <size> (default = )" +
         chunk_size + R"().
	-f: Write results to <file>.  By default, results are output to stdout.
	-a: Ascending order: -m and -o options are applied when the data is
	    ordered from oldest to newest.
	-r: Reverse order: this reverses the order that the result set is
	    printed in.  Unlike -a, this does NOT affect the set of data
	    items returned, only their order.
	-n: Print the DisplayName of each parameter (by default, the parameter's
	    relative CDS path is printed).
	-nh: Don't print the header row (by default, the header is printed).
	-t: Use <input_time_fmt> as the format for all date/time options given
	    on the command-line.  <input_time_fmt> is a strptime()-compatible
	    string.  If not provided, it defaults to "%F %R".
	-w: Use <output_date_fmt> as the format for all date strings output
	    in the CSV file.  <output_date_fmt> is a strftime()-compatible
	    string.  If not provided, it defaults to "%F".
	-y: Use <output_time_fmt> as the format for all time strings output in
	    the CSV file.  <output_time_fmt> is a strftime()-compatible string.
	    If not provided, it defaults to "%R".
	-u: Use UTC for all date/time strings (default is to use the local
	    timezone).
	-b: Show timestamps aligned to the beginning of each interval (default
	    is to use end-of-interval timestamps).
	-pv: Display the percent valid column after the timestamp.
	-sp: Use the given SQLite page size (in bytes)
	-sc: Use the given SQLite cache size (in kB)
	-sl: Use the given size (in kB) as a heap usage soft-limit for SQLite
	-J: Disable write-ahead log & use traditional journaling
	-v: Print version information to stdout and exit.

)";
}

ProcessResult dump(const std::vector<std::string>& arguments) {
  return run_tool("trendcsv", arguments, "", {{"TZ", "UTC0"}});
}

/// Runs with a bad command line and expects `message` and the usage text.
void expect_rejected(const std::vector<std::string>& arguments, const std::string& message,
                     const std::string& chunk_size = "512") {
  const ProcessResult result = dump(arguments);
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, message);
  EXPECT_EQ(result.out, usage(tool_command("trendcsv").back(), chunk_size));
}

TEST(ProgramUsage, ComesAsAWholeForARejectedCommandLine) {
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

TEST(ProgramUsage, NamesTheProgramAsInvoked) {
  const TemporaryFolder folder;
  std::filesystem::copy_file(tool_command("trendcsv").back(), folder.file("another name"));
  std::vector<std::string> command = tool_command("trendcsv");
  command.back() = "./another name";
  const ProcessResult result =
      run_process(command, "", {}, [&] { std::filesystem::current_path(folder.path()); });
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, usage("./another name"));
}

TEST(ProgramUsage, ShowsTheChunkSizeInForce) {
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
    EXPECT_EQ(result.out, program +
                              ": version 2.0.0\n"
                              "Build date: Jun 23 2014 15:34:36\n"
                              "$Revision: 15184 $\n"
                              "\n");
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

TEST_F(Program, FallsBackToPathsWithoutACds) {
  const ProcessResult plain = dump_log({"-m", "3"});
  const ProcessResult named = dump_log({"-m", "3", "-n"});
  EXPECT_EQ(named.err, "Error: can't connect to CDS\n");
  EXPECT_EQ(named.out, plain.out);
  EXPECT_EQ(named.exit_status, 0);
  EXPECT_EQ(dump_log({"-n", "-nh", "-m", "3"}).err, "");
}

TEST_F(Program, ExitsWithOneWhereTheDataRanOut) {
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

TEST_F(Program, ExitsWithZeroWhereTheLimitWasMet) {
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

TEST_F(Program, TakesOddSettingsOfSqlite) {
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

TEST_F(Program, SelectsAParameterTypedTwiceTwice) {
  const ProcessResult result =
      dump_log({"-m", "1", "-p", "temperature", "-p", "pump/runs", "-p", "temperature"});
  EXPECT_EQ(result.out,
            "Date,Time,pump/runs:Value,temperature:.ValueIntMin,temperature:.ValueIntMax,"
            "temperature:.ValueIntMin,temperature:.ValueIntMax\n"
            "2023-06-12,16:00,0.5,1024,2048,1024,2048\n");
}

}  // namespace
