// trendtool export: what it refuses, and what it does when something fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <sstream>
#include <utility>

#include "tests/support/database_file.h"
#include "tests/trendtool/export_fixture.h"

namespace {

using testing::MatchesRegex;

TEST_F(TrendtoolExport, RefusesOptionsThatDoNotGoTogether) {
  record_three();
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{}, "no device is given; name devices with -d, or take all with --all-devices"},
      {{"-d", "/one", "--all-devices"}, "-d and --all-devices do not go together; use one of them"},
      {{"-d", "/one", "--format", "jsonl", "--decimal", ","},
       "--separator, --decimal and --layout are for csv; leave them out, or use --format csv"},
      {{"-d", "/one", "--format", "jsonl", "--separator", ";"},
       "--separator, --decimal and --layout are for csv; leave them out, or use --format csv"},
      {{"-d", "/one", "--format", "jsonl", "--layout", "long"},
       "--separator, --decimal and --layout are for csv; leave them out, or use --format csv"},
      {{"-d", "/one", "--separator", ",", "--decimal", ","},
       "the separator and the decimal sign are the same; choose another --separator"},
      {{"-d", "/one", "--format", "influx", "--epoch"},
       "--epoch is for csv and jsonl; leave it out, or use another --format"},
      {{"-d", "/one", "--sheet-per-interval"},
       "--sheet-per-interval is for xlsx; leave it out, or use --format xlsx"},
      {{"-d", "/one", "-s", "@7", "-e", "@6"}, "the end '@6' is before the start '@7'"},
      {{"-d", "/one", "--separator", "x"},
       "--separator: 'x' is not one of ',', ';', '|', tab; see 'trendtool export --help'"}};
  for (const auto& [arguments, message] : cases) {
    const ProcessResult result = run_export(arguments);
    EXPECT_EQ(result.exit_status, 2) << message;
    EXPECT_EQ(result.out, "") << message;
    EXPECT_EQ(result.err, "trendtool: " + message + "\n");
  }
}

TEST_F(TrendtoolExport, LeavesNoFileIfItFails) {
  record_three();
  const std::string file = folder_.file("out.csv");
  EXPECT_EQ(run_export({"-d", "/three", "-f", file}).exit_status, 1);
  EXPECT_FALSE(std::filesystem::exists(file));
  const ProcessResult database = run_export({"-d", "/one", "-f", db_});
  EXPECT_EQ(database.exit_status, 1);
  EXPECT_EQ(database.err, "trendtool: can't write '" + db_ +
                              "': it is a file of the database; choose another name\n");
  EXPECT_EQ(exported({"-d", "/two", "-u", "-f", file}), "");
  EXPECT_EQ(read_file(file),
            "time,interval,b:.ValueIntMin,b:.ValueIntMax\n1970-01-01T00:15:00Z,5,5,6\n");
}

TEST_F(TrendtoolExport, FailsIfTheDiskIsFull) {
  ModelLog log{.device = "/long", .params = {{"a", AVG}}, .minutes = {5}, .rows = {}};
  for (int i = 1; i <= 5000; ++i) log.rows.push_back({5, 300LL * i, 1, {1.0 * i}});
  record(log, db_);
  for (const char* format : {"csv", "jsonl", "influx"}) {
    const ProcessResult result = run_export({"-d", "/long", "--format", format, "-f", "/dev/full"});
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.err, "trendtool: can't write '/dev/full': No space left on device\n");
  }
}

TEST_F(TrendtoolExport, BringsHomeWhatADamagedDatabaseStillHas) {
  ModelLog log{.device = "/long", .params = {{"a", AVG}}, .minutes = {5}, .rows = {}};
  for (int i = 1; i <= 3000; ++i) log.rows.push_back({5, 300LL * i, 1, {1.0 * i}});
  record(log, db_);
  for (const bool ascending : {true, false}) {
    std::vector<std::string> arguments = {"-d", "/long", "-u", "--epoch"};
    if (ascending) arguments.emplace_back("-a");
    const std::string whole = exported(arguments);
    const std::string damaged = folder_.file("damaged.db");
    std::filesystem::copy_file(db_, damaged, std::filesystem::copy_options::overwrite_existing);
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(damaged.c_str(), &db), SQLITE_OK);
    const char* damage =
        "UPDATE segment SET data = zeroblob(length(data)) WHERE id >> 16 ="
        "(SELECT number FROM block ORDER BY id LIMIT 1 OFFSET 2)";
    EXPECT_EQ(sqlite3_exec(db, damage, nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_EQ(sqlite3_changes(db), 1);
    sqlite3_close(db);
    const std::string sound = std::exchange(db_, damaged);

    const ProcessResult failed = run_export(arguments);
    EXPECT_EQ(failed.exit_status, 1);
    EXPECT_EQ(
        failed.err,
        "trendtool: can't read the rows of device '/long': the columns of a block are damaged\n");
    arguments.emplace_back("--skip-damaged");
    const ProcessResult result = run_export(arguments);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.err, MatchesRegex("trendtool: left out: device '/long', interval of 5 "
                                         "minutes, parameter 'a', from "
                                         "1970-01-0[0-9]T..:..:..Z to 1970-01-0[0-9]T..:..:..Z: "
                                         "the values of a parameter are damaged\n"));
    // The values of one block are missing, and those that are there are right.
    std::istringstream right(whole);
    std::istringstream found(result.out);
    std::string expected;
    std::string line;
    int missing = 0;
    while (std::getline(right, expected)) {
      ASSERT_TRUE(std::getline(found, line));
      if (line == expected) continue;
      ++missing;
      EXPECT_EQ(line, expected.substr(0, expected.rfind(',') + 1));
    }
    EXPECT_FALSE(std::getline(found, line));
    EXPECT_EQ(missing, 512);
    db_ = sound;
  }
}

TEST_F(TrendtoolExport, WritesNoSpreadsheetOfADamagedDatabase) {
  ModelLog log{.device = "/long", .params = {{"a", AVG}}, .minutes = {5}, .rows = {}};
  for (int i = 1; i <= 3000; ++i) log.rows.push_back({5, 300LL * i, 1, {1.0 * i}});
  record(log, db_);
  run_sql(db_, "UPDATE segment SET data = zeroblob(length(data)) WHERE id >> 16 = 1");
  const std::string file = folder_.file("out.xlsx");
  const ProcessResult result = run_export({"-d", "/long", "--format", "xlsx", "-f", file});
  EXPECT_NE(result.exit_status, 0);
  EXPECT_NE(result.err, "");
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(TrendtoolExport, FailsIfAHeaderCantBeWritten) {
  ModelLog log{.device = "/wide", .params = {}, .minutes = {}, .rows = {}};
  for (int i = 0; i < 3000; ++i) log.params.push_back({"parameter" + std::to_string(i), AVG});
  record(log, db_);
  const ProcessResult result = run_export({"-d", "/wide", "-f", "/dev/full"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendtool: can't write '/dev/full': No space left on device\n");
}

TEST_F(TrendtoolExport, TellsOfDamageAtTheWantedTimesAlone) {
  ModelLog log{.device = "/d", .params = {{"a", AVG}}, .minutes = {5}, .rows = {}};
  for (int i = 1; i <= 20; ++i) log.rows.push_back({5, 300LL * i, 1, {1.0 * i}});
  record(log, db_);
  run_sql(db_, "UPDATE loose SET valid_ratio = 0.5 WHERE id & 0xFFFFFFFFFF = 3000");
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"-s", "@3300", false}, {"-s", "@2700", true}, {"-e", "@2700", false}, {"-e", "@3300", true}};
  for (const auto& [option, time, is_told] : cases) {
    const ProcessResult result = run_export({"-d", "/d", "--skip-damaged", "-u", option, time});
    EXPECT_EQ(result.exit_status, is_told ? 1 : 0) << option << time;
    EXPECT_EQ(result.err.empty(), !is_told) << result.err;
  }
}

}  // namespace
