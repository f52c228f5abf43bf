// trendtool copy, between files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <thread>

#include "libtrend/recorder.h"
#include "tests/support/database_file.h"
#include "tests/support/log_content.h"
#include "tests/support/model.h"
#include "tests/support/version_1.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr double MISSING = std::numeric_limits<double>::quiet_NaN();

/// Sends a signal to this process after so many microseconds, also after `exec`, if it still runs.
std::function<void()> alarm_with(int number, unsigned microseconds) {
  return [=] {
    const pid_t program = getpid();
    if (fork() != 0) return;
    usleep(microseconds);
    if (getppid() == program) kill(program, number);
    _exit(0);
  };
}

/// A row for `Plant::append`.
struct NewRow {
  std::int64_t time = 0;
  double ratio = 1;
  std::vector<double> values;
};

std::vector<NewRow> make_rows(std::int64_t first, std::int64_t step, int count) {
  std::vector<NewRow> rows;
  for (int i = 0; i < count; ++i) rows.push_back({first + step * i, 1, {0.5 * i, 2.0 * i}});
  return rows;
}

/// Records rows of a device with two parameters, 'a' and 'b', which have actual values.
void append(const std::string& db, const std::string& path, std::uint32_t minutes,
            const std::vector<NewRow>& rows) {
  CRecorder recorder;
  CDeviceProperties device{.path = path, .aux_text = ""};
  CParamProperties a{.path = "a", .has_actual = true};
  CParamProperties b{.path = "b", .has_actual = true};
  CSeries series;
  bool is_done = recorder.open(db) == 0 && recorder.begin() == 0 &&
                 recorder.add_device(device) == 0 && recorder.add_param(device, a) == 0 &&
                 recorder.add_param(device, b) == 0 &&
                 recorder.add_series(device, minutes, series) == 0;
  for (const NewRow& row : rows) {
    is_done = is_done && recorder.append(series, row.time, row.ratio, row.values) == 0;
  }
  if (!is_done || recorder.commit() != 0) throw std::runtime_error(recorder.error());
}

class TrendtoolCopy : public testing::Test {
 protected:
  ProcessResult copy(std::vector<std::string> more = {},
                     const std::function<void()>& before_start = {}) {
    more.insert(more.begin(), {"copy", "-u", from_, to_});
    return run_tool("trendtool", more, "", {}, before_start);
  }

  /// Copies, which must succeed. Returns what was printed.
  std::string copy_surely(const std::vector<std::string>& more = {}) {
    const ProcessResult result = copy(more);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.err, "");
    const ProcessResult check = run_tool("trendtool", {"check", "-x", to_});
    EXPECT_EQ(check.exit_status, 0) << check.out;
    return result.out;
  }

  static std::string summary(int devices, int series, int copied, int before, int conflicts = 0) {
    return "devices: " + std::to_string(devices) + ", series: " + std::to_string(series) +
           ", rows copied: " + std::to_string(copied) +
           ", rows there before: " + std::to_string(before) +
           ", conflicts: " + std::to_string(conflicts) + "\n";
  }

  TemporaryFolder folder_;
  std::string from_ = folder_.file("from.db");
  std::string to_ = folder_.file("to.db");
};

TEST_F(TrendtoolCopy, CopiesEveryBit) {
  Random random(1);
  for (int round = random_rounds(12); round > 0; --round) {
    std::filesystem::remove(from_);
    std::filesystem::remove(to_);
    std::vector<ModelLog> logs;
    for (const char* device : {"/plant", "site/pump", "x"}) {
      logs.push_back(random_log(random, false));
      logs.back().device = device;
      record(logs.back(), from_);
    }
    copy_surely();
    EXPECT_EQ(read_content(to_), read_content(from_));
    for (const ModelLog& log : logs) {
      for (const std::vector<std::string>& command :
           {std::vector<std::string>{"trendcsv", "-d", log.device, "-u", "-pv"},
            {"trendtool", "export", "-d", log.device, "--exact", "--percent-valid"}}) {
        std::vector<std::string> arguments(command.begin() + 1, command.end());
        arguments.insert(arguments.end(), {"-x", from_});
        const ProcessResult expected = run_tool(command[0], arguments);
        arguments.back() = to_;
        const ProcessResult found = run_tool(command[0], arguments);
        EXPECT_EQ(found.out, expected.out);
        EXPECT_EQ(found.exit_status, expected.exit_status);
      }
    }
  }
}

TEST_F(TrendtoolCopy, CopiesTheWholeCatalogue) {
  CRecorder recorder;
  CDeviceProperties bare{.path = "bare", .aux_text = "On the roof"};
  CDeviceProperties idle{.path = "idle", .aux_text = ""};
  CParamProperties level{.path = "level", .has_min = true, .has_sum = true};
  CSeries series;
  ASSERT_EQ(recorder.open(from_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  ASSERT_EQ(recorder.add_device(bare), 0);
  ASSERT_EQ(recorder.add_device(idle), 0);
  ASSERT_EQ(recorder.add_param(idle, level), 0);
  ASSERT_EQ(recorder.add_series(idle, 15, series), 0);
  ASSERT_EQ(recorder.commit(), 0);
  EXPECT_EQ(copy_surely(), summary(2, 1, 0, 0));
  EXPECT_EQ(read_content(to_), read_content(from_));
  EXPECT_EQ(read_content(to_).devices.at("idle").series.count(15), 1U);
}

TEST_F(TrendtoolCopy, LeavesNoFilesBesideTheDatabases) {
  append(from_, "/plant", 1, make_rows(60, 60, 2000));
  copy_surely();
  EXPECT_THAT(list_folder(folder_.path()), testing::ElementsAre("from.db", "to.db"));
}

TEST_F(TrendtoolCopy, ReadsOnlyWhatIsNew) {
  append(from_, "/plant", 1, make_rows(60, 60, 60'000));
  EXPECT_EQ(copy_surely(), summary(1, 1, 60'000, 0));
  EXPECT_EQ(copy_surely(), summary(1, 1, 0, 0));
  append(from_, "/plant", 1, {{60 * 60'001, 1, {1, 2}}, {60 * 7000 + 5, 1, {3, 4}}});
  const std::string out = copy_surely();
  EXPECT_THAT(out, StartsWith("devices: 1, series: 1, rows copied: 2, rows there before: "));
  const std::string before = out.substr(out.find("before: ") + 8);
  EXPECT_LT(std::stoi(before), 3 * 512);
  EXPECT_EQ(read_content(to_), read_content(from_));
  EXPECT_EQ(copy_surely({"--all"}), summary(1, 1, 0, 60'002));
}

TEST_F(TrendtoolCopy, FollowsADatabaseThatGrows) {
  Random random(2);
  std::set<std::int64_t> recorded;
  std::uint64_t round = 0;
  for (int rounds = random_rounds(20); rounds > 0; --rounds, ++round) {
    std::vector<NewRow> rows;
    const std::int64_t first = 1 + pick(random, 500'000);
    const std::int64_t step = 1 + pick(random, 100);
    for (std::uint32_t i = pick(random, 1200); i > 0; --i) {
      const std::int64_t time = first + step * i;
      if (recorded.insert(time).second) {
        rows.push_back({time, 1, {random_value(random), random_value(random)}});
      }
    }
    append(from_, "/plant", 5, rows);
    if (round == 7) {
      CRecorder recorder;
      CDeviceProperties plant{.path = "/plant", .aux_text = ""};
      CParamProperties later{.path = "A", .has_min = true, .has_max = true};
      CSeries series;
      ASSERT_EQ(recorder.open(from_), 0);
      ASSERT_EQ(recorder.begin(), 0);
      ASSERT_EQ(recorder.add_device(plant), 0);
      ASSERT_EQ(recorder.add_param(plant, later), 0);
      ASSERT_EQ(recorder.add_series(plant, 60, series), 0);
      const double values[] = {1, 2, 3, 4};
      ASSERT_EQ(recorder.append(series, 3600, 0.5, values), 0);
      ASSERT_EQ(recorder.commit(), 0);
    }
    if (pick(random, 3) == 0) continue;
    copy_surely();
    ASSERT_EQ(read_content(to_), read_content(from_));
  }
}

TEST_F(TrendtoolCopy, KeepsTheSitesOfOneArchiveApart) {
  const std::string other = folder_.file("other.db");
  append(from_, "pump", 1, make_rows(60, 60, 700));
  append(other, "pump", 1, make_rows(60, 120, 900));
  for (int i = 0; i < 2; ++i) {
    copy_surely({"--prefix", "oslo/"});
    const ProcessResult result =
        run_tool("trendtool", {"copy", "-x", other, "--prefix", "bergen/", to_});
    EXPECT_EQ(result.exit_status, 0) << result.err;
    EXPECT_EQ(result.out, i == 0 ? summary(1, 1, 900, 0) : summary(1, 1, 0, 0));
  }
  const LogContent found = read_content(to_);
  ASSERT_EQ(found.devices.size(), 2U);
  EXPECT_EQ(found.devices.at("oslo/pump"), read_content(from_).devices.at("pump"));
  EXPECT_EQ(found.devices.at("bergen/pump"), read_content(other).devices.at("pump"));
}

TEST_F(TrendtoolCopy, AddsRowsOfTwoSourcesToOneSeries) {
  append(to_, "pump", 1, make_rows(60, 120, 900));
  append(from_, "pump", 1, make_rows(120, 120, 900));
  EXPECT_EQ(copy_surely(), summary(1, 1, 900, 0));
  EXPECT_EQ(read_content(to_).devices.at("pump").series.at(1).rows.size(), 1800U);
}

TEST_F(TrendtoolCopy, NamesConflictsAndOverwritesNothing) {
  append(from_, "pump", 5,
         {{300, 1, {1, 2}},
          {600, 1, {1, 2}},
          {900, 0.25, {1, 2}},
          {1200, 1, {1, 2}},
          {1500, 1, {1, -0.0}},
          {1800, 1, {7.1, MISSING}},
          {2100, 1, {7.1, MISSING}}});
  append(to_, "pump", 5,
         {{300, 1, {1, 2}},
          {600, 1, {1.5, 2}},
          {900, 1, {1, 2}},
          {1200, 1, {1}},
          {1500, 1, {1, 0.0}},
          {1800, 1, {7.1, MISSING}}});
  const LogContent before = read_content(to_);
  for (const int copied : {1, 0}) {
    const ProcessResult result = copy();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.out, summary(1, 1, copied, 3 - copied, 4));
    const std::string start =
        "trendtool: conflict: device 'pump' at the interval of 5 minutes, 1970-01-01T00:";
    EXPECT_EQ(result.err,
              start + "10:00Z: actual of parameter 'a' is 1, but 1.5 is recorded\n" + start +
                  "15:00Z: the share of valid data is 0.25, but 1 is recorded\n" + start +
                  "20:00Z: actual of parameter 'b' is 2, but missing is recorded\n" + start +
                  "25:00Z: actual of parameter 'b' is -0, but 0 is recorded\n");
  }
  LogContent found = read_content(to_);
  EXPECT_EQ(found.devices.at("pump").series.at(5).rows.erase(2100), 1U);
  EXPECT_EQ(found, before);
}

TEST_F(TrendtoolCopy, CountsConflictsAfterTheFirstTwenty) {
  append(from_, "pump", 5, make_rows(300, 300, 700));
  append(to_, "pump", 5, {{300 * 1000, 1, {}}});
  copy_surely();
  std::vector<NewRow> others = make_rows(60, 60, 700);
  append(from_, "pump", 1, others);
  for (NewRow& row : others) row.ratio = 0.5;
  append(to_, "pump", 1, others);
  const ProcessResult result = copy();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 21);
  EXPECT_THAT(result.err, EndsWith("trendtool: conflict: device 'pump' at the interval of 1 "
                                   "minutes: 680 more rows differ\n"));
  EXPECT_EQ(result.out, summary(1, 2, 0, 0, 700));
}

TEST_F(TrendtoolCopy, LeavesOutAParameterWithOtherStatistics) {
  append(from_, "pump", 5, make_rows(300, 300, 10));
  CRecorder recorder;
  CDeviceProperties pump{.path = "pump", .aux_text = "Deep"};
  CParamProperties a{.path = "a", .has_min = true, .has_max = true};
  ASSERT_EQ(recorder.open(to_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  ASSERT_EQ(recorder.add_device(pump), 0);
  ASSERT_EQ(recorder.add_param(pump, a), 0);
  ASSERT_EQ(recorder.commit(), 0);
  const std::string messages =
      "trendtool: conflict: parameter 'a' of device 'pump' has the statistics actual, but is "
      "recorded with min max; its values are not copied\n"
      "trendtool: device 'pump' keeps its description, which is another one\n";
  ProcessResult result = copy();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, messages);
  EXPECT_EQ(result.out, summary(1, 1, 10, 0, 1));
  result = run_tool("trendcsv", {"-x", to_, "-d", "pump", "-u", "-m", "1"});
  EXPECT_EQ(result.out, "Date,Time,a:.ValueIntMin,a:.ValueIntMax,b:Value\n1970-01-01,00:50,,,18\n");
  // Nothing is noted as copied, so the rows are compared again.
  EXPECT_EQ(copy().out, summary(1, 1, 0, 10, 1));
}

TEST_F(TrendtoolCopy, NarrowsByDeviceIntervalAndTime) {
  append(from_, "pump", 5, make_rows(300, 300, 20));
  append(from_, "pump", 60, make_rows(3600, 3600, 20));
  append(from_, "well", 5, make_rows(300, 300, 20));
  EXPECT_EQ(copy_surely({"-d", "pump", "-i", "0", "-s", "@3000"}), summary(1, 1, 11, 0));
  const LogContent found = read_content(to_);
  EXPECT_EQ(found.devices.size(), 1U);
  EXPECT_EQ(found.devices.at("pump").series.size(), 1U);
  EXPECT_EQ(found.devices.at("pump").series.at(5).rows.begin()->first, 3000);
  EXPECT_EQ(copy_surely({"-d", "pump", "-i", "60"}), summary(1, 1, 20, 0));
  // What was left out by time is not taken for copied.
  EXPECT_EQ(copy_surely(), summary(2, 3, 29, 11));
  EXPECT_EQ(read_content(to_), read_content(from_));
}

TEST_F(TrendtoolCopy, ReadsVersion1) {
  std::map<std::int64_t, RecordedSeries> rows;
  for (int i = 1; i <= 1500; ++i) {
    rows[1][60 * i] = {1, {1.0 * i, MISSING, 0.1 * i}};
    rows[10][600 * i] = {0.5, {2.0 * i}};
  }
  make_version_1(from_, rows);
  EXPECT_EQ(copy_surely(), summary(1, 2, 3000, 0));
  EXPECT_EQ(read_content(to_), read_content(from_));
  EXPECT_EQ(copy_surely(), summary(1, 2, 0, 3000));
}

TEST_F(TrendtoolCopy, NamesARowThatCantBeRecorded) {
  make_version_1(from_, {{1, {{60, {1.5, {1}}}, {120, {1, {2}}}}}});
  const ProcessResult result = copy();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err,
            "trendtool: conflict: device '/plant' at the interval of 1 minutes, "
            "1970-01-01T00:01:00Z: the share of valid data is not from 0 to 1\n");
  EXPECT_EQ(result.out, summary(1, 1, 1, 0, 1));
}

TEST_F(TrendtoolCopy, ComparesAllIfTheSourceWasSetBack) {
  append(from_, "pump", 1, make_rows(60, 60, 100));
  const std::string backup = folder_.file("backup.db");
  ASSERT_EQ(run_tool("trendtool", {"backup", "-x", from_, backup}).exit_status, 0);
  append(from_, "pump", 1, make_rows(60'000, 60, 100));
  append(from_, "pump", 1, make_rows(120'000, 60, 100));
  EXPECT_EQ(copy_surely(), summary(1, 1, 300, 0));
  std::filesystem::rename(backup, from_);
  append(from_, "pump", 1, make_rows(600'000, 60, 10));
  EXPECT_EQ(copy_surely(), summary(1, 1, 10, 100));
  EXPECT_EQ(copy_surely(), summary(1, 1, 0, 0));
}

TEST_F(TrendtoolCopy, BringsASeriesBackThatWasRemoved) {
  append(from_, "pump", 1, make_rows(60, 60, 100));
  copy_surely();
  ASSERT_EQ(run_tool("trendtool", {"remove", "-x", to_, "-d", "pump", "-y"}).exit_status, 0);
  EXPECT_EQ(copy_surely(), summary(1, 1, 100, 0));
}

TEST_F(TrendtoolCopy, DoesNotBringBackWhatWasPurged) {
  append(from_, "pump", 1, make_rows(60, 60, 2000));
  copy_surely();
  ASSERT_EQ(
      run_tool("trendtool", {"purge", "-x", to_, "-d", "pump", "-i", "1", "--before", "@6000"})
          .exit_status,
      0);
  append(from_, "pump", 1, make_rows(300'000, 60, 10));
  EXPECT_THAT(copy_surely(), StartsWith("devices: 1, series: 1, rows copied: 10,"));
}

TEST_F(TrendtoolCopy, CopiesIntoACopyOfTheFile) {
  append(from_, "pump", 1, make_rows(60, 60, 100));
  ASSERT_EQ(run_tool("trendtool", {"backup", "-x", from_, to_}).exit_status, 0);
  append(from_, "pump", 1, make_rows(60'000, 60, 100));
  EXPECT_EQ(copy_surely(), summary(1, 1, 100, 100));
  EXPECT_EQ(read_content(to_), read_content(from_));
}

TEST_F(TrendtoolCopy, GoesOnAfterADamagedSeries) {
  append(from_, "pump", 1, make_rows(60, 60, 2000));
  append(from_, "well", 1, make_rows(60, 60, 2000));
  const LogContent before = read_content(from_);
  run_sql(from_, "UPDATE segment SET data = zeroblob(length(data)) WHERE id = (1 << 16)");
  const ProcessResult result = copy();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.err, StartsWith("trendtool: can't read the rows of device 'pump' at the "
                                     "interval of 1 minutes: "));
  EXPECT_EQ(result.out, summary(2, 1, 2000, 0));
  EXPECT_EQ(read_content(to_).devices.at("well"), before.devices.at("well"));
}

TEST_F(TrendtoolCopy, RefusesAWrongCommandLine) {
  append(from_, "pump", 1, make_rows(60, 60, 10));
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"copy"}, "name two databases, the one to copy from and the one to copy into"},
      {{"copy", from_}, "name two databases, the one to copy from and the one to copy into"},
      {{"copy", "-x", from_, from_, to_}, "with -x, name one more database, the one to copy into"},
      {{"copy", from_, to_, "-s", "soon"}, "--start: 'soon' is not a time; "}};
  for (const auto& [arguments, message] : cases) {
    const ProcessResult result = run_tool("trendtool", arguments);
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_THAT(result.err, StartsWith("trendtool: " + message));
  }
  EXPECT_FALSE(std::filesystem::exists(to_));
}

TEST_F(TrendtoolCopy, SaysWhatCantBeOpened) {
  EXPECT_EQ(copy().err,
            "trendtool: can't open the database '" + from_ + "': No such file or directory\n");
  EXPECT_FALSE(std::filesystem::exists(to_));
  append(from_, "pump", 1, make_rows(60, 60, 10));
  std::filesystem::create_symlink(from_, to_);
  ProcessResult result = copy();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendtool: '" + from_ + "' and '" + to_ + "' are the same database\n");
  std::filesystem::remove(to_);
  write_file(to_, "This is not a database.");
  result = copy();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.err, StartsWith("trendtool: can't open the database '" + to_ + "': "));
  EXPECT_EQ(read_file(to_), "This is not a database.");
}

/// A database with enough rows that copying takes a while, and several transactions.
class LongCopy : public TrendtoolCopy {
 protected:
  LongCopy() {
    for (const char* device : {"a", "b", "c", "d", "e"}) {
      append(from_, device, 1, make_rows(60, 60, 8000));
    }
    append(from_, "f", 1, make_rows(60, 60, 120'000));
  }
};

TEST_F(LongCopy, CanBeKilledAtAnyTime) {
  Random random(3);
  int killed = 0;
  for (int round = random_rounds(12); round > 0; --round) {
    const ProcessResult result = copy({}, alarm_with(SIGKILL, 1000 * pick(random, 500)));
    if (result.exit_status == 0) std::filesystem::remove(to_);
    killed += result.exit_status == 128 + SIGKILL ? 1 : 0;
    if (!std::filesystem::exists(to_)) continue;
    const ProcessResult check = run_tool("trendtool", {"check", "-x", to_});
    EXPECT_THAT(check.out, testing::Not(HasSubstr("damaged")));
    // Each series has the first of its rows, or all.
    const LogContent whole = read_content(from_);
    for (const auto& [path, device] : read_content(to_).devices) {
      for (const auto& [minutes, series] : device.series) {
        const auto& rows = whole.devices.at(path).series.at(minutes).rows;
        EXPECT_TRUE(std::equal(series.rows.begin(), series.rows.end(), rows.begin()));
      }
    }
  }
  EXPECT_GT(killed, 0);
  copy_surely();
  EXPECT_EQ(read_content(to_), read_content(from_));
}

TEST_F(LongCopy, EndsBetweenTwoTransactionsWhenItIsInterrupted) {
  Random random(4);
  int interrupted = 0;
  for (int round = random_rounds(8); round > 0; --round) {
    const int number = pick(random, 2) == 0 ? SIGINT : SIGTERM;
    const ProcessResult result = copy({}, alarm_with(number, 1000 * (50 + pick(random, 400))));
    if (result.exit_status == 128 + number && !result.out.empty()) {
      ++interrupted;
      EXPECT_THAT(result.out, StartsWith("devices: 6, series: "));
      EXPECT_EQ(result.err, "trendtool: interrupted; the next copy goes on from here\n");
      EXPECT_EQ(run_tool("trendtool", {"check", "-x", to_}).out, "");
    } else {
      std::filesystem::remove(to_);
    }
  }
  EXPECT_GT(interrupted, 0);
  copy_surely();
  EXPECT_EQ(read_content(to_), read_content(from_));
}

TEST_F(LongCopy, WorksTwiceAtTheSameTime) {
  ProcessResult other;
  std::thread thread([&] { other = copy(); });
  const ProcessResult result = copy();
  thread.join();
  EXPECT_EQ(result.exit_status, 0) << result.err;
  EXPECT_EQ(other.exit_status, 0) << other.err;
  EXPECT_EQ(run_tool("trendtool", {"check", "-x", to_}).exit_status, 0);
  EXPECT_EQ(read_content(to_), read_content(from_));
}

}  // namespace
