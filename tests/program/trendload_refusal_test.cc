// What trendload refuses. It then leaves everything unchanged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "tests/support/model.h"

namespace {

const std::string GOOD = "Date,Time,a:.ValueIntMin,a:Value\n2023-05-01,01:00,1,2\n";

struct BadInput {
  const char* name;
  std::string start;
  std::string message;     ///< after the name of the input
  std::size_t digits = 0;  ///< so many follow; written out, each test would make all of them

  [[nodiscard]] std::string csv() const { return start + std::string(digits, '1'); }
};

constexpr std::size_t LONGEST_LINE = std::size_t{16} << 20;

void PrintTo(const BadInput& input, std::ostream* out) { *out << input.name; }

std::string row(const std::string& line) { return GOOD + line + "\n"; }

const BadInput BAD_INPUTS[] = {
    {"Nothing", "", ":1: the header is missing"},
    {"AnEmptyLine", "\n", ":1: the header does not start with Date,Time"},
    {"NoHeader", "2023-05-01,01:00,1\n", ":1: the header does not start with Date,Time"},
    {"NoColumns", "Date,Time\n", ":1: the header has no parameter column"},
    {"DisplayNames", "Date,Time,Boiler (min)\n",
     ":1: column 'Boiler (min)' is not a parameter path with a colon and a statistic"},
    {"AColumnTwice", "Date,Time,a:Value,a:Value\n", ":1: column 'a:Value' appears twice"},
    {"AMissingStatistic", "Date,Time,a:Value,a:.ValueIntMax\n2023-05-01,05:00,1,2\n",
     ":1: parameter 'a' exists in the database without :.ValueIntMax"},
    {"TooFewFields", row("2023-05-01,02:00,1"), ":3: 3 fields, but the header has 4"},
    {"TooManyFields", row("2023-05-01,02:00,1,2,3"), ":3: 5 fields, but the header has 4"},
    {"FarTooManyFields", row(std::string(70'000, ',')),
     ":3: more than 65539 fields, but the header has 4"},
    {"FarTooManyColumns", "Date,Time" + std::string(70'000, ',') + "\n",
     ":1: the header has more than 65539 fields"},
    {"ALineThatIsTooLong", GOOD + "2023-05-01,02:00,1,",
     ":3: the line is longer than 16777216 bytes", LONGEST_LINE},
    {"AHeaderThatIsTooLong", "", ":1: the line is longer than 16777216 bytes", LONGEST_LINE + 1},
    {"AnEmptyRow", row(""), ":3: 1 fields, but the header has 4"},
    {"AHalfTime", row("2023-05-01,02,1,2"),
     ":3: '2023-05-01 02' does not match the format '%F %R'"},
    {"ALongTime", row("2023-05-01,02:00:00,1,2"),
     ":3: '2023-05-01 02:00:00' does not match the format '%F %R'"},
    {"NoDate", row(",02:00,1,2"), ":3: ' 02:00' does not match the format '%F %R'"},
    {"NoSuchDay", row("2023-02-30,02:00,1,2"),
     ":3: '2023-02-30 02:00' is a time that does not exist"},
    {"TheEpoch", row("1970-01-01,00:00,1,2"), ":3: '1970-01-01 00:00' is not after the epoch"},
    {"BeforeTheEpoch", row("1969-05-01,02:00,1,2"),
     ":3: '1969-05-01 02:00' is not after the epoch"},
    {"AWord", row("2023-05-01,02:00,1,two"), ":3: 'two' is not a number"},
    {"NaN", row("2023-05-01,02:00,nan,2"), ":3: 'nan' is not a number"},
    {"Hexadecimal", row("2023-05-01,02:00,0x10,2"), ":3: '0x10' is not a number"},
    {"ABlank", row("2023-05-01,02:00, 1,2"), ":3: ' 1' is not a number"},
    {"ATooLargeNumber", row("2023-05-01,02:00,1e999,2"), ":3: '1e999' is not a number"},
    {"AQuote", row("2023-05-01,02:00,\"1\",2"), ":3: '\"1\"' is not a number"},
    {"ANegativePercentage", "Date,Time,Percent Valid,a:Value\n2023-05-01,02:00,-1,2\n",
     ":2: '-1' is not a percentage from 0 to 100"},
    {"ATooLargePercentage", "Date,Time,Percent Valid,a:Value\n2023-05-01,02:00,100.5,2\n",
     ":2: '100.5' is not a percentage from 0 to 100"},
    {"NoPercentage", "Date,Time,Percent Valid,a:Value\n2023-05-01,02:00,,2\n",
     ":2: '' is not a percentage from 0 to 100"},
    {"ATimeTwice", row("2023-05-01,02:00,1,2\n2023-05-01,03:00,1,2\n2023-05-01,02:00,1,2"),
     ":5: the series has a row with the timestamp 1682906400 already"},
};

class TrendloadRefusal : public testing::TestWithParam<BadInput> {
 protected:
  std::vector<std::string> options(const std::string& input = "") const {
    std::vector<std::string> result = {"-x", db_, "-d", "/plant", "-i", "60", "-u"};
    if (!input.empty()) result.push_back(input);
    return result;
  }

  /// The names of all files in the folder.
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  /// Expects an empty trend database or, if the header was bad, no file or an empty one.
  void expect_no_rows() const {
    if (GetParam().message.starts_with(":1:")) {
      EXPECT_TRUE(!std::filesystem::exists(db_) || std::filesystem::is_empty(db_));
      return;
    }
    EXPECT_EQ(files(), std::vector<std::string>{"trend.db"});
    EXPECT_EQ(run_tool("trendcsv", {"-x", db_, "-d", "/plant"}).err,
              "Error: device '/plant' is not trended\n");
  }

  /// The content of the database.
  std::string dump() const { return run_tool("trendcsv", {"-x", db_, "-d", "/plant", "-u"}).out; }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};

/// A database that has the parameter of the bad inputs, but none of their rows.
const std::string EXISTING = "Date,Time,a:.ValueIntMin,a:Value\n2023-04-01,01:00,7,8\n";

TEST_P(TrendloadRefusal, LeavesTheDatabaseUnchanged) {
  ASSERT_EQ(run_tool("trendload", options(), EXISTING).exit_status, 0);
  const std::string bytes = read_file(db_);
  const std::string rows = dump();
  ASSERT_NE(rows, "");
  const std::string file = folder_.file("bad.csv");
  write_file(file, GetParam().csv());
  const ProcessResult result = run_tool("trendload", options(file));
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "trendload: " + file + GetParam().message + "\n");
  EXPECT_EQ(read_file(db_), bytes);
  EXPECT_EQ(files(), (std::vector<std::string>{"bad.csv", "trend.db"}));
  EXPECT_EQ(dump(), rows);
}

TEST_P(TrendloadRefusal, LeavesNoRowsInANewDatabase) {
  // A parameter that does not exist yet has no missing statistic.
  if (std::string(GetParam().name) == "AMissingStatistic") {
    EXPECT_EQ(run_tool("trendload", options(), GetParam().csv()).exit_status, 0);
    return;
  }
  const ProcessResult result = run_tool("trendload", options(), GetParam().csv());
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendload: -" + GetParam().message + "\n");
  expect_no_rows();
}

TEST_P(TrendloadRefusal, LeavesNoRowsInAnEmptyFile) {
  if (std::string(GetParam().name) == "AMissingStatistic") return;
  write_file(db_, "");
  EXPECT_EQ(run_tool("trendload", options("-"), GetParam().csv()).exit_status, 1);
  expect_no_rows();
}

INSTANTIATE_TEST_SUITE_P(Of, TrendloadRefusal, testing::ValuesIn(BAD_INPUTS),
                         [](const auto& input) { return input.param.name; });

class TrendloadTrouble : public TrendloadRefusal {};

TEST_F(TrendloadTrouble, RefusesARowThatExists) {
  ASSERT_EQ(run_tool("trendload", options(), GOOD).exit_status, 0);
  const std::string rows = dump();
  const ProcessResult result =
      run_tool("trendload", options(),
               "Date,Time,b:Value\n2023-05-01,00:00,1\n2023-05-01,01:00,1\n2023-05-01,02:00,1\n");
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err,
            "trendload: -:3: the series has a row with the timestamp 1682902800 already\n");
  EXPECT_EQ(dump(), rows);
}

TEST_F(TrendloadTrouble, RefusesABadRowAfterManyGoodOnes) {
  std::string csv = "Date,Time,a:Value\n";
  for (int i = 0; i < 20'000; ++i) csv += std::to_string(1'700'000'000 + 60 * i) + ",,1\n";
  csv += "never,,1\n";
  std::vector<std::string> arguments = options();
  arguments.insert(arguments.end(), {"-t", "%s "});
  const ProcessResult result = run_tool("trendload", arguments, csv, {{"TZ", "UTC0"}});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendload: -:20002: 'never ' does not match the format '%s '\n");
  EXPECT_EQ(files(), std::vector<std::string>{"trend.db"});
  EXPECT_EQ(dump(), "");
}

TEST_F(TrendloadTrouble, NamesAnInputThatDoesNotExist) {
  const std::string file = folder_.file("none.csv");
  const ProcessResult result = run_tool("trendload", options(file));
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendload: " + file + ": No such file or directory\n");
  EXPECT_EQ(files(), std::vector<std::string>{});
}

TEST_F(TrendloadTrouble, RefusesAFolderForInput) {
  const ProcessResult result = run_tool("trendload", options(folder_.path()));
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendload: " + folder_.path().string() + ": Is a directory\n");
  EXPECT_EQ(files(), std::vector<std::string>{});
}

TEST_F(TrendloadTrouble, RefusesAFileThatIsNotADatabase) {
  const std::string text =
      "This is a text of more than a hundred bytes, as many as the header of an "
      "SQLite database has. It is not a database, but an ordinary text.\n";
  write_file(db_, text);
  const ProcessResult result = run_tool("trendload", options(), GOOD);
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendload: " + db_ + ": file is not a database\n");
  EXPECT_EQ(read_file(db_), text);
  EXPECT_EQ(files(), std::vector<std::string>{"trend.db"});
}

TEST_F(TrendloadTrouble, RefusesAFolderForADatabase) {
  std::filesystem::create_directory(db_);
  const ProcessResult result = run_tool("trendload", options(), GOOD);
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendload: " + db_ + ": it is not a regular file\n");
  EXPECT_TRUE(std::filesystem::is_directory(db_));
}

TEST_F(TrendloadTrouble, RefusesADatabaseInAFolderThatDoesNotExist) {
  db_ = folder_.file("none/trend.db");
  const ProcessResult result = run_tool("trendload", options(), GOOD);
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.err, testing::StartsWith("trendload: " + db_ + ": "));
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
  EXPECT_EQ(files(), std::vector<std::string>{});
}

TEST_F(TrendloadTrouble, LeavesNoFileIfANewDatabaseCannotBeWritten) {
  const ProcessResult result = run_tool("trendload", options(), GOOD, {}, [] {
    const rlimit limit = {5000, 5000};
    // Ignored, so that a write beyond the limit fails as on a full disk.
    if (signal(SIGXFSZ, SIG_IGN) == SIG_ERR || setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(98);
    note_no_coverage();
  });
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendload: " + db_ + ": File too large\n");
  EXPECT_EQ(files(), std::vector<std::string>{});
}

TEST_F(TrendloadTrouble, RefusesEveryBadCommandLine) {
  const std::string help = "; 'trendload -h' explains the options\n";
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{}, "-x, the database, is missing"},
      {{"-d", "/plant", "-i", "60"}, "-x, the database, is missing"},
      {{"-x", "", "-d", "/plant", "-i", "60"}, "-x, the database, is missing"},
      {{"-x", db_, "-i", "60"}, "-d, the device, is missing"},
      {{"-x", db_, "-d", "", "-i", "60"}, "-d, the device, is missing"},
      {{"-x", db_, "-d", "/plant"}, "-i, the interval in minutes, is missing"},
      {{"-x", db_, "-d", "/plant", "-i", "0"},
       "-i must be a number of minutes from 1 to 4294967295"},
      {{"-x", db_, "-d", "/plant", "-i", "-5"},
       "-i must be a number of minutes from 1 to 4294967295"},
      {{"-x", db_, "-d", "/plant", "-i", "+5"},
       "-i must be a number of minutes from 1 to 4294967295"},
      {{"-x", db_, "-d", "/plant", "-i", "60x"},
       "-i must be a number of minutes from 1 to 4294967295"},
      {{"-x", db_, "-d", "/plant", "-i", "1.5"},
       "-i must be a number of minutes from 1 to 4294967295"},
      {{"-x", db_, "-d", "/plant", "-i", ""},
       "-i must be a number of minutes from 1 to 4294967295"},
      {{"-x", db_, "-d", "/plant", "-i", "4294967296"},
       "-i must be a number of minutes from 1 to 4294967295"},
      {{"-x", db_, "-d", "/plant", "-i", "60", "a.csv", "b.csv"}, "only one file is allowed"},
  };
  for (const auto& [arguments, message] : cases) {
    const ProcessResult result = run_tool("trendload", arguments, GOOD);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "trendload: " + message + help);
  }
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"-x", db_, "-d", "/plant", "-i", "60", "-q"},
        std::vector<std::string>{"-x", db_, "-d", "/plant", "-i"},
        std::vector<std::string>{"-x"}}) {
    const ProcessResult result = run_tool("trendload", arguments, GOOD);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, testing::EndsWith("trendload: the command line is wrong" + help));
  }
  EXPECT_EQ(files(), std::vector<std::string>{});
}

TEST_F(TrendloadTrouble, AcceptsTheLongestInterval) {
  std::vector<std::string> arguments = options();
  arguments[5] = "4294967295";
  EXPECT_EQ(run_tool("trendload", arguments, GOOD).exit_status, 0);
  EXPECT_EQ(run_tool("trendcsv", {"-x", db_, "-d", "/plant", "-u", "-a"}).out, GOOD);
}

TEST_F(TrendloadTrouble, ExplainsItsOptions) {
  const ProcessResult result = run_tool("trendload", {"-h"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, testing::StartsWith("Usage: trendload -x <db> -d <device> -i <minutes> "
                                              "[-t <input_time_fmt>] [-u] [<file>]\n"));
  for (const char* option :
       {"\t-x: ", "\t-d: ", "\t-i: ", "\t-t: ", "\t-u: ", "\t-h: ", "Default: \"%F %R\".\n"}) {
    EXPECT_THAT(result.out, testing::HasSubstr(option));
  }
}

}  // namespace
