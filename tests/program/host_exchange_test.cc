// Databases that are copied between the target machine and the machine that builds.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "tests/support/model.h"
#include "tests/support/version_1.h"

namespace {

using Arguments = std::vector<std::string>;

/// Runs a program as built for this machine.
ProcessResult run_host(const std::string& name, const Arguments& arguments, const std::string& zone,
                       const std::string& input = "") {
  Arguments command = {std::string(TRENDCSV_HOST_PROGRAMS) + "/" + name};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return run_process(command, input, {{"TZ", zone}});
}

/// Runs a program as built for the target.
ProcessResult run_target(const std::string& name, const Arguments& arguments,
                         const std::string& zone, const std::string& input = "") {
  return run_tool(name, arguments, input, {{"TZ", zone}});
}

/// How to dump.
struct DumpCase {
  const char* zone;
  Arguments arguments;
};

// The examples are from 2010, so the bounds are too.
const std::vector<DumpCase> DUMP_CASES = {
    {"UTC0", {"-u"}},
    {"UTC0", {"-u", "-a", "-pv"}},
    {NEW_YORK.name, {"-pv"}},
    {NEW_YORK.name, {"-b", "-a", "-w", "%A %d %B %Y", "-y", "%T %Z %z"}},
    {KOLKATA.name, {"-b", "-pv", "-c", "100"}},
    {LORD_HOWE.name, {"-r", "-c", "7", "-y", "%s"}},
    {LORD_HOWE.name, {"-a", "-r", "-b", "-u"}},
    {"UTC0", {"-m", "20", "-o", "5"}},
    {NEW_YORK.name, {"-a", "-m", "20", "-o", "5", "-r", "-c", "3"}},
    {"UTC0", {"-c", "0", "-m", "50", "-r", "-nh"}},
    {"UTC0", {"-i", "0", "-c", "1"}},
    {NEW_YORK.name, {"-s", "2010-10-30 12:00", "-e", "2010-11-09 03:00"}},
};

std::string text_of(const DumpCase& how) {
  std::string text = how.zone;
  for (const std::string& argument : how.arguments) text += " " + argument;
  return text;
}

/// The rows of all tables of the database in `file` as text, with blobs in hexadecimal.
std::string content_of(const std::string& file) {
  sqlite3* handle = nullptr;
  const int status = sqlite3_open_v2(file.c_str(), &handle, SQLITE_OPEN_READONLY, nullptr);
  const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> db(handle, sqlite3_close);
  if (status != SQLITE_OK) throw std::runtime_error("can't open " + file);
  std::string text;
  const auto add_row = [](void* to, int columns, char** values, char**) {
    for (int i = 0; i < columns; ++i) {
      static_cast<std::string*>(to)->append(values[i]).append(i + 1 == columns ? "\n" : "|");
    }
    return 0;
  };
  for (const char* sql :
       {"SELECT id, path, description FROM device ORDER BY id",
        "SELECT id, device_id, path, statistics, first_slot FROM parameter ORDER BY id",
        "SELECT id, device_id, minutes FROM series ORDER BY id",
        "SELECT id, valid_ratio, hex(samples), checksum FROM loose ORDER BY id",
        "SELECT * FROM series_state ORDER BY series_id",
        "SELECT id, number, first_time, previous, rows, bytes, segment_size, change, hex(content), "
        "checksum FROM block ORDER BY id",
        "SELECT id, hex(data) FROM segment ORDER BY id",
        "SELECT next_block, catalogue FROM database"}) {
    if (sqlite3_exec(db.get(), sql, add_row, &text, nullptr) != SQLITE_OK) {
      throw std::runtime_error(sqlite3_errmsg(db.get()));
    }
  }
  return text;
}

/// Expects that the programs of both machines print the same bytes for both files.
void expect_same_dumps(const std::string& device, const std::string& first,
                       const std::string& second, const std::vector<DumpCase>& cases) {
  for (const DumpCase& how : cases) {
    SCOPED_TRACE(text_of(how));
    std::vector<ProcessResult> results;
    for (const std::string& db : {first, second}) {
      Arguments arguments = {"-x", db, "-d", device};
      arguments.insert(arguments.end(), how.arguments.begin(), how.arguments.end());
      results.push_back(run_host("trendcsv", arguments, how.zone));
      results.push_back(run_target("trendcsv", arguments, how.zone));
    }
    ASSERT_EQ(results[0].err, "");
    ASSERT_NE(results[0].out, "");
    for (const ProcessResult& result : results) {
      ASSERT_EQ(result.out, results[0].out);
      ASSERT_EQ(result.err, results[0].err);
      ASSERT_EQ(result.exit_status, results[0].exit_status);
    }
  }
}

class HostExchange : public testing::Test {
 protected:
  /// Loads `input` on both machines, each into its own database.
  void load(const std::string& device, std::uint32_t minutes, const std::string& zone,
            const Arguments& more, const std::string& input) const {
    Arguments arguments = {"-x", host_db_, "-d", device, "-i", std::to_string(minutes)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const ProcessResult host = run_host("trendload", arguments, zone, input);
    ASSERT_EQ(host.exit_status, 0) << host.err;
    arguments[1] = target_db_;
    const ProcessResult target = run_target("trendload", arguments, zone, input);
    ASSERT_EQ(target.exit_status, 0) << target.err;
  }

  TemporaryFolder folder_;
  std::string host_db_ = folder_.file("host.db");
  std::string target_db_ = folder_.file("target.db");
};

TEST_F(HostExchange, RunsProgramsOfTwoMachines) {
  constexpr std::size_t MACHINE = 18;  // in the header of an ELF file
  const std::string host = read_file(std::string(TRENDCSV_HOST_PROGRAMS) + "/trendcsv");
  const std::string target = read_file(tool_command("trendcsv").back());
  ASSERT_EQ(host.substr(0, 4), "\177ELF");
  ASSERT_EQ(target.substr(0, 4), "\177ELF");
  EXPECT_NE(host.substr(MACHINE, 2), target.substr(MACHINE, 2));
}

TEST_F(HostExchange, KeepsEveryByteOfTheExamples) {
  const std::pair<const char*, std::uint32_t> files[] = {{"normals-1440", 1440},
                                                         {"normals-60", 60}};
  for (const auto& [name, minutes] : files) {
    const std::string path = std::string(TRENDCSV_EXAMPLES) + "/seattle-" + name + ".csv";
    ASSERT_NO_FATAL_FAILURE(load("site", minutes, "UTC0", {"-u"}, read_file(path)));
  }
  EXPECT_EQ(content_of(host_db_), content_of(target_db_));
  expect_same_dumps("site", host_db_, target_db_, DUMP_CASES);
}

TEST_F(HostExchange, KeepsObservationsLoadedInLocalTime) {
  const std::string path = std::string(TRENDCSV_EXAMPLES) + "/seattle-observed-1440.csv";
  ASSERT_NO_FATAL_FAILURE(load("site", 1440, NEW_YORK.name, {}, read_file(path)));
  EXPECT_EQ(content_of(host_db_), content_of(target_db_));
  expect_same_dumps("site", host_db_, target_db_,
                    {{"UTC0", {"-u", "-pv"}}, {NEW_YORK.name, {"-a"}}, {KOLKATA.name, {"-b"}}});
}

/// The rows of `log` at one interval as CSV, with all digits of the values.
std::string csv_of(const ModelLog& log, std::uint32_t minutes) {
  constexpr std::array SUFFIXES = {":.ValueIntMin", ":.ValueIntMax", ":.ValueIntAvg", ":Value",
                                   ":.ValueIntSum"};
  std::string text = "Date,Time,Percent Valid";
  std::size_t slots = 0;
  for (const ModelParam& param : log.params) {
    for (std::size_t i = 0; i < SUFFIXES.size(); ++i) {
      if ((param.statistics >> i & 1) == 0) continue;
      text += "," + param.path + SUFFIXES[i];
      ++slots;
    }
  }
  text += "\n";
  std::array<char, 64> field;
  for (const ModelRow& row : log.rows) {
    if (row.minutes != minutes) continue;
    const auto time = static_cast<std::time_t>(row.time);
    std::tm fields = {};
    gmtime_r(&time, &fields);
    std::strftime(field.data(), field.size(), "%F,%T", &fields);
    text += field.data();
    std::snprintf(field.data(), field.size(), ",%.17g", row.ratio * 100);
    text += field.data();
    for (std::size_t i = 0; i < slots; ++i) {
      const bool has_value = i < row.values.size() && !std::isnan(row.values[i]);
      std::snprintf(field.data(), field.size(), ",%.17g", has_value ? row.values[i] : 0);
      text += has_value ? field.data() : ",";
    }
    text += "\n";
  }
  return text;
}

TEST_F(HostExchange, KeepsEveryByteOfRandomLogs) {
  Random random(7);
  std::size_t rows = 0;
  for (int i = 0; i < 5; ++i) {
    SCOPED_TRACE(i);
    ModelLog log = random_log(random, false);
    log.device = "device " + std::to_string(i);
    for (const std::uint32_t minutes : log.minutes) {
      ASSERT_NO_FATAL_FAILURE(
          load(log.device, minutes, "UTC0", {"-u", "-t", "%F %T"}, csv_of(log, minutes)));
    }
    rows += log.rows.size();
    std::vector<DumpCase> cases;
    for (std::size_t j = static_cast<std::size_t>(i) % 3; j < 9; j += 3) {
      cases.push_back(DUMP_CASES[j]);
    }
    ASSERT_NO_FATAL_FAILURE(expect_same_dumps(log.device, host_db_, target_db_, cases));
  }
  EXPECT_GT(rows, 150U);
  EXPECT_EQ(content_of(host_db_), content_of(target_db_));
}

TEST_F(HostExchange, AddsRowsToADatabaseOfTheOtherMachine) {
  const auto csv = [](const std::string& row) { return "Date,Time,a:Value\n" + row + "\n"; };
  Arguments arguments = {"-x", host_db_, "-d", "/plant", "-i", "5", "-u"};
  for (const bool begins_on_host : {true, false}) {
    arguments[1] = begins_on_host ? host_db_ : target_db_;
    const auto add = [&](bool on_host, const std::string& row) {
      const ProcessResult result = on_host ? run_host("trendload", arguments, "UTC0", csv(row))
                                           : run_target("trendload", arguments, "UTC0", csv(row));
      ASSERT_EQ(result.err, "");
      ASSERT_EQ(result.exit_status, 0);
    };
    add(begins_on_host, "2024-01-01,00:05,1.5");
    add(!begins_on_host, "2024-01-01,00:10,-2E+09");
    add(begins_on_host, "2024-01-01,00:15,3.25");
  }
  EXPECT_EQ(content_of(host_db_), content_of(target_db_));
  expect_same_dumps("/plant", host_db_, target_db_, {{"UTC0", {"-u"}}, {"UTC0", {"-u", "-a"}}});
  const Arguments dump = {"-x", host_db_, "-d", "/plant", "-u", "-nh", "-a"};
  EXPECT_EQ(run_target("trendcsv", dump, "UTC0").out,
            "2024-01-01,00:05,1.5\n2024-01-01,00:10,-2000000000\n2024-01-01,00:15,3.25\n");
}

TEST_F(HostExchange, ReadsAWriteAheadLogOfTheOtherMachine) {
  const std::string wal = folder_.file("copied.db-wal");
  // A writer that is still open keeps its write-ahead log. The log is copied without its index.
  ModelLog log;
  log.params = {{"a", ACTUAL}};
  log.minutes = {1};
  for (std::int64_t i = 1; i <= 100; ++i) log.rows.push_back({1, 60 * i, 1, {0.5}});
  record(log, target_db_);
  sqlite3* handle = nullptr;
  ASSERT_EQ(sqlite3_open(target_db_.c_str(), &handle), SQLITE_OK);
  const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> writer(handle, sqlite3_close);
  // Rows of version 1 have no checksum, so they can be changed.
  const std::string sql =
      std::string(TURN_INTO_VERSION_1) + "UPDATE snapshot SET valid_ratio = 0.25 WHERE id % 2 = 0";
  ASSERT_EQ(sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
  std::filesystem::copy_file(target_db_, folder_.file("copied.db"));
  std::filesystem::copy_file(target_db_ + "-wal", wal);
  ASSERT_GT(std::filesystem::file_size(wal), 0U);
  const Arguments arguments = {"-x", folder_.file("copied.db"), "-d", "/plant", "-u", "-pv"};
  const ProcessResult host = run_host("trendcsv", arguments, "UTC0");
  EXPECT_EQ(host.err, "");
  EXPECT_NE(host.out.find(",25.00,0.5\n"), std::string::npos);
  EXPECT_EQ(host.out, run_target("trendcsv", arguments, "UTC0").out);
}

TEST_F(HostExchange, WrapsLongIntervalsInTheSameWay) {
  for (const std::uint32_t minutes : {35791394U, 35791395U, 71582789U, 4294967295U}) {
    ASSERT_NO_FATAL_FAILURE(
        load("site", minutes, "UTC0", {"-u"},
             "Date,Time,a:Value\n2001-09-09,01:46,1\n2038-01-19,03:14,2\n1970-01-01,00:01,3\n"));
  }
  EXPECT_EQ(content_of(host_db_), content_of(target_db_));
  for (const char* minutes : {"0", "35791395", "71582789"}) {
    expect_same_dumps("site", host_db_, target_db_,
                      {{"UTC0", {"-u", "-i", minutes}},
                       {"UTC0", {"-u", "-i", minutes, "-b", "-y", "%T"}},
                       {NEW_YORK.name, {"-i", minutes, "-b", "-a"}}});
  }
  expect_same_dumps("site", host_db_, target_db_, {{"UTC0", {"-b"}}, {"UTC0", {"-a"}}});
}

TEST_F(HostExchange, KeepsRowsAfter2038ForTheMachineThatCanShowThem) {
  ASSERT_EQ(sizeof(std::time_t), 4U);
  const Arguments load = {"-x", host_db_, "-d", "/plant", "-i", "5", "-u"};
  const std::string early = "2038-01-19,03:10,1\n";
  const std::string late = "2038-01-19,03:15,2\n2100-01-01,00:00,3\n";
  const std::string header = "Date,Time,a:Value\n";
  ASSERT_EQ(run_host("trendload", load, "UTC0", header + early + late).exit_status, 0);
  const Arguments dump = {"-x", host_db_, "-d", "/plant", "-u", "-a"};
  EXPECT_EQ(run_host("trendcsv", dump, "UTC0").out, header + early + late);
  EXPECT_EQ(run_target("trendcsv", dump, "UTC0").out, header + early);
}

}  // namespace
