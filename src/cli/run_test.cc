#include "cli/run.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/scripted_cds.h"
#include "tests/support/scripted_trend_log.h"
#include "tests/support/streams.h"
#include "tests/support/time_zone.h"
#include "tests/support/usage_text.h"

namespace {

using Names = std::vector<std::string>;

const Names CATALOGUE_CALLS = {"open", "get_devices", "get_params", "get_periods"};

constexpr const char* HEADER = "Date,Time,a:.ValueIntMin,b:.ValueIntAvg\n";
constexpr const char* ROWS =
    "1970-01-01,00:03,3,30\n1970-01-01,00:02,2,20\n1970-01-01,00:01,1,10\n";

Names operator+(Names a, const Names& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

class Run : public testing::Test {
 protected:
  Run() : zone_(TimeZone::UTC), file_(folder_.file("out.csv")) {
    cds_script() = {};
    TrendLogScript& script = trend_log_script();
    script = {};
    script.devices = {make_device("dev")};
    script.params = {make_param("b", "v"), make_param("a", "n")};
    script.periods = {make_period(1)};
    for (int i = 1; i <= 3; ++i) {
      const double value = i;
      script.snapshots.push_back(
          make_snapshot(60 * i, {{value, 0, 0, 0, 0}, {0, 0, 10 * value, 0, 0}}));
    }
  }

  static int run(const Names& arguments) {
    std::vector<const char*> argv = {"bin/trendcsv"};
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    return run_program(static_cast<int>(argv.size()), argv.data());
  }

  /// Dumps to the file.
  ProcessResult dump(const Names& arguments = {}) {
    return capture([&] { return run(Names{"-x", "db", "-d", "dev", "-f", file_} + arguments); });
  }

  /// Checks that a dump to the file fails with `err` on standard error, with `output` in the file,
  /// and after these calls of the trend library.
  void expect_failure(const std::string& err, const std::string& output, const Names& calls,
                      const Names& arguments = {}) {
    write_file(file_, "old content");
    trend_log_script().calls.clear();
    const ProcessResult result = dump(arguments);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.err, err);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(read_file(file_), output);
    EXPECT_EQ(trend_log_script().calls, calls);
  }

  TimeZone zone_;
  TemporaryFolder folder_;
  std::string file_;
};

TEST_F(Run, EndsWithOneAtTheEndOfTheData) {
  expect_failure("", std::string(HEADER) + ROWS,
                 CATALOGUE_CALLS + Names{"get_trend_data", "release"});
}

TEST_F(Run, EndsWithZeroAtTheLimit) {
  const ProcessResult result = dump({"-m", "2"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.out + result.err, "");
  EXPECT_EQ(read_file(file_),
            std::string(HEADER) + "1970-01-01,00:03,3,30\n1970-01-01,00:02,2,20\n");
  const Names queries_and_end = {"get_trend_data", "get_trend_data", "close", "release"};
  EXPECT_EQ(trend_log_script().calls, CATALOGUE_CALLS + queries_and_end);
}

TEST_F(Run, EndsWithOneIfFewerRowsThanTheLimitExist) {
  expect_failure("", std::string(HEADER) + ROWS,
                 CATALOGUE_CALLS + Names{"get_trend_data", "get_trend_data", "release"},
                 {"-m", "4"});
}

TEST_F(Run, EndsWithZeroAfter512RowsOfALongerLog) {
  trend_log_script().snapshots.clear();
  for (int i = 1; i <= 600; ++i) trend_log_script().snapshots.push_back(make_snapshot(60 * i));
  const ProcessResult result = dump({"-m", "512", "-nh", "-w", "%s", "-y", "x"});
  EXPECT_EQ(result.exit_status, 0);
  std::string rows;
  for (int i = 600; i > 600 - 512; --i) rows += std::to_string(60 * i) + ",x\n";
  EXPECT_EQ(read_file(file_), rows);
}

TEST_F(Run, ClosesTheLogBeforeTheOutput) {
  DumpOptions options;
  options.db_path = "db";
  options.device = "dev";
  options.output_path = file_;
  options.max_records = 1;
  DumpContext context;
  bool was_output_open = false;
  trend_log_script().on_close = [&] { was_output_open = context.out != nullptr; };
  EXPECT_EQ(run_dump(context, options), 0);
  EXPECT_TRUE(was_output_open);
  EXPECT_EQ(context.out, nullptr);
  trend_log_script().on_close = nullptr;
}

TEST_F(Run, ClosesNothingAfterAFailure) {
  DumpOptions options;
  options.db_path = "db";
  options.device = "dev";
  options.output_path = file_;
  trend_log_script().query_statuses = {{1, -1}};
  std::string output_at_release = "never released";
  trend_log_script().on_release = [&] { output_at_release = read_file(file_); };
  {
    DumpContext context;
    const ProcessResult result = capture([&] { return run_dump(context, options); });
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_NE(context.out, nullptr);
    EXPECT_EQ(output_at_release, "never released");
  }
  // The output is closed first.
  EXPECT_EQ(output_at_release, "Date,Time,a:.ValueIntMin,b:.ValueIntAvg\n");
  trend_log_script().on_release = nullptr;
}

TEST_F(Run, OpensTheLogInTheSameWayWithAllOptions) {
  dump();
  dump({"-J", "-a", "-r", "-n"});
  const OpenCall call = {"db", true, false, 40, false, 0, 0, 0, false};
  EXPECT_EQ(trend_log_script().opens.size(), 2U);
  for (const OpenCall& open : trend_log_script().opens) EXPECT_EQ(open, call);
}

TEST_F(Run, OpensTheLogWithTheSizesInBytes) {
  dump({"-sp", "4096", "-sc", "64", "-sl", "8"});
  const OpenCall call = {"db", true, false, 40, false, 4096, 65536, 8192, false};
  EXPECT_EQ(trend_log_script().opens, std::vector<OpenCall>{call});
}

TEST_F(Run, PassesSizesThatOverflowAsUnsignedNumbers) {
  dump({"-sc", "2097152", "-sl", "2147483647"});
  const OpenCall call = {"db", true, false, 40, false, 0, 2147483648U, 4294966272U, false};
  EXPECT_EQ(trend_log_script().opens, std::vector<OpenCall>{call});
}

TEST_F(Run, OpensTheOutputBeforeTheLog) {
  const std::string path = folder_.file("no/such/folder.csv");
  const ProcessResult result = capture([&] { return run({"-x", "db", "-d", "dev", "-f", path}); });
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "Error: can't open '" + path + "' for writing\n");
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(trend_log_script().calls, Names());
}

TEST_F(Run, EmptiesTheFileBeforeTheLogFailsToOpen) {
  for (const int status : {-1, 1, 14}) {
    trend_log_script().open_statuses = {{1, status}};
    expect_failure("Error opening trend db: 'db'\n", "", {"open"});
  }
}

TEST_F(Run, StopsAtEveryFailedCatalogueCall) {
  trend_log_script().devices_statuses = {{1, -1}};
  expect_failure("Error: can't fetch device list\n", "", {"open", "get_devices", "release"});
  trend_log_script().devices_statuses.clear();
  trend_log_script().params_statuses = {{1, -1}};
  expect_failure("Error: can't fetch parameter list\n", "",
                 {"open", "get_devices", "get_params", "release"});
  trend_log_script().params_statuses.clear();
  trend_log_script().periods_statuses = {{1, -1}};
  expect_failure("Error: can't fetch period list\n", "", CATALOGUE_CALLS + Names{"release"});
}

TEST_F(Run, StopsAtNamesThatAreNotTrended) {
  expect_failure("Error: device 'fan' is not trended\n", "", {"open", "get_devices", "release"},
                 {"-d", "fan"});
  expect_failure("Error: parameter 'z' on device 'dev'  is not trended\n", "",
                 {"open", "get_devices", "get_params", "release"}, {"-p", "z"});
  expect_failure("Error: interval 7 is not trended\n", "", CATALOGUE_CALLS + Names{"release"},
                 {"-i", "7"});
  trend_log_script().params.clear();
  expect_failure("Device 'dev' exists in the log, but contains no trendable parameters.\n", "",
                 {"open", "get_devices", "get_params", "release"});
}

TEST_F(Run, KeepsTheHeaderIfTheFirstQueryFails) {
  trend_log_script().query_statuses = {{1, -1}};
  expect_failure("Error: couldn't fetch chunk\n", HEADER,
                 CATALOGUE_CALLS + Names{"get_trend_data", "release"});
}

TEST_F(Run, KeepsTheRowsBeforeAFailedQuery) {
  trend_log_script().query_statuses = {{2, -1}};
  expect_failure("Error: couldn't fetch chunk\n",
                 std::string(HEADER) + "1970-01-01,00:03,3,30\n1970-01-01,00:02,2,20\n",
                 CATALOGUE_CALLS + Names{"get_trend_data", "get_trend_data", "release"},
                 {"-c", "2"});
}

TEST_F(Run, EndsWithOneIfTheDataReturnsAPositiveNumber) {
  trend_log_script().query_statuses = {{1, 5}};
  expect_failure("", HEADER, CATALOGUE_CALLS + Names{"get_trend_data", "release"}, {"-m", "2"});
}

TEST_F(Run, UsesPathsIfDisplayNamesCannotBeRead) {
  cds_script().is_reachable = false;
  expect_failure("Error: can't connect to CDS\n", std::string(HEADER) + ROWS,
                 CATALOGUE_CALLS + Names{"get_trend_data", "release"}, {"-n"});
}

TEST_F(Run, UsesDisplayNames) {
  cds_script().name_node("dev/a", "Alpha");
  expect_failure("", std::string("Date,Time,Alpha,b\n") + ROWS,
                 CATALOGUE_CALLS + Names{"get_trend_data", "release"}, {"-n"});
}

TEST_F(Run, DoesNotAskTheCdsWithoutAHeader) {
  expect_failure("", ROWS, CATALOGUE_CALLS + Names{"get_trend_data", "release"}, {"-n", "-nh"});
  EXPECT_EQ(cds_script().calls, Names());
}

TEST_F(Run, PassesTheTimeRangeAndTheSkipOn) {
  EXPECT_EQ(dump({"-u", "-s", "1970-01-01 00:02", "-e", "1970-01-01 00:03", "-o", "1"}).exit_status,
            1);
  EXPECT_EQ(read_file(file_), std::string(HEADER) + "1970-01-01,00:02,2,20\n");
  ASSERT_EQ(trend_log_script().queries.size(), 2U);
  EXPECT_EQ(trend_log_script().queries[0], (Query{{120, 180}, 1, 1, false, true}));
  EXPECT_EQ(trend_log_script().queries[1], (Query{{120, 120}, 512, 0, false, true}));
}

TEST_F(Run, QueriesTheSelectedParametersAndIntervals) {
  dump({"-p", "b", "-p", "a", "-p", "b", "-i", "0", "-i", "1"});
  ASSERT_EQ(trend_log_script().selections.size(), 1U);
  const QueriedSelection& selection = trend_log_script().selections[0];
  EXPECT_TRUE(selection.device.device == make_device("dev"));
  EXPECT_TRUE(selection.device.params ==
              (std::vector{make_param("a", "n"), make_param("b", "v"), make_param("b", "v")}));
  EXPECT_TRUE(selection.periods == (std::vector{make_period(1), make_period(1)}));
}

TEST_F(Run, WritesPercentages) {
  for (auto& snapshot : trend_log_script().snapshots) snapshot.valid_ratio = 0.25;
  dump({"-pv", "-m", "1"});
  EXPECT_EQ(read_file(file_),
            "Date,Time,Percent Valid,a:.ValueIntMin,b:.ValueIntAvg\n"
            "1970-01-01,00:03,25.00,3,30\n");
}

TEST_F(Run, WritesToStandardOutputAndClosesIt) {
  const ProcessResult result = run_in_child([] {
    const int status = run({"-x", "db", "-d", "dev", "-m", "3"});
    // Standard output is closed by now, so nothing can be written to it.
    return write(1, "x", 1) < 0 ? status : 99;
  });
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.out, std::string(HEADER) + ROWS);
  EXPECT_EQ(result.err, "");
}

TEST_F(Run, WritesToStandardOutputUpToTheEndOfTheData) {
  const ProcessResult result = run_in_child([] { return run({"-x", "db", "-d", "dev"}); });
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, std::string(HEADER) + ROWS);
  EXPECT_EQ(result.err, "");
}

TEST_F(Run, PrintsTheUsageTextForABadCommandLine) {
  ProcessResult result = capture([] { return run({}); });
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "Error: must supply a database name\n");
  EXPECT_EQ(result.out, expected_usage("bin/trendcsv", "512"));

  result = capture([] { return run({"-x", "db", "-d", "dev", "-m"}); });
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, expected_usage("bin/trendcsv", "512"));

  result = capture([] { return run({"-m", "abc"}); });
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "Error: invalid maximum # of records: 0\n");
  EXPECT_EQ(result.out, expected_usage("bin/trendcsv", "512"));

  result = capture([] { return run({"-t", "%s", "-c", "0", "word"}); });
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, expected_usage("bin/trendcsv", "0"));
  EXPECT_EQ(trend_log_script().calls, Names());
}

TEST_F(Run, DoesNotOpenTheOutputForABadCommandLine) {
  write_file(file_, "old content");
  EXPECT_EQ(dump({"-s", "never"}).exit_status, 1);
  EXPECT_EQ(read_file(file_), "old content");
}

TEST_F(Run, PrintsTheVersionAndRunsNothing) {
  for (const Names& arguments :
       {Names{"-v"}, Names{"-v", "-x"}, Names{"-x", "db", "-d", "dev", "-v", "word"}}) {
    const ProcessResult result = capture([&] { return run(arguments); });
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out, expected_version("bin/trendcsv"));
    EXPECT_EQ(result.err, "");
  }
  EXPECT_EQ(trend_log_script().calls, Names());
}

TEST_F(Run, PrintsTheUsageTextIfABadOptionComesBeforeV) {
  const ProcessResult result = capture([] { return run({"word", "-v"}); });
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, expected_usage("bin/trendcsv", "512"));
}

TEST(DumpContextTest, StartsEmpty) {
  const DumpContext context;
  EXPECT_EQ(context.range_start, 0);
  EXPECT_EQ(context.range_end, 0);
  EXPECT_EQ(context.out, nullptr);
  EXPECT_TRUE(context.device_params.params.empty());
  EXPECT_EQ(context.device_params.device.aux_1, -1);
  EXPECT_TRUE(context.periods.empty());
}

TEST(CloseOutput, DoesNothingTheSecondTime) {
  DumpContext context;
  context.out = std::tmpfile();
  close_output(context);
  EXPECT_EQ(context.out, nullptr);
  close_output(context);
  EXPECT_EQ(context.out, nullptr);
}

}  // namespace
