#include "libtrend/log.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "libtrend/recorder.h"
#include "tests/support/process.h"
#include "tests/support/version_1.h"

namespace toolkit::trend {
namespace {

constexpr std::pair<long, long> ALL_TIMES = {-1, -1};

class Log : public testing::Test {
 protected:
  /// A database with two devices, one of them with two parameters and two intervals.
  void record() {
    CRecorder recorder;
    ASSERT_EQ(recorder.open(path_), 0) << recorder.error();
    ASSERT_EQ(recorder.begin(), 0);
    CDeviceProperties boiler{.path = "boiler", .aux_text = "In the cellar"};
    CDeviceProperties empty{.path = "empty", .aux_text = ""};
    ASSERT_EQ(recorder.add_device(boiler), 0);
    ASSERT_EQ(recorder.add_device(empty), 0);
    CParamProperties temperature{
        .path = "flow/temperature", .has_min = true, .has_max = true, .has_sum = true};
    CParamProperties level{.path = "level", .has_avg = true, .has_actual = true};
    ASSERT_EQ(recorder.add_param(boiler, temperature), 0);
    ASSERT_EQ(recorder.add_param(boiler, level), 0);
    CSeries hours;
    CSeries minutes;
    ASSERT_EQ(recorder.add_series(boiler, 60, hours), 0);
    ASSERT_EQ(recorder.add_series(boiler, 5, minutes), 0);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    ASSERT_EQ(recorder.append(minutes, 7200, 0.5, std::vector<double>{1, 2, 3, nan, 5}), 0);
    ASSERT_EQ(recorder.append(minutes, 7500, 1, std::vector<double>{-1, -2, -3}), 0);
    ASSERT_EQ(recorder.commit(), 0) << recorder.error();
  }

  void record_version_1() {
    record();
    execute(TURN_INTO_VERSION_1);
  }

  int open_for_reading() { return log_.open(path_, {}); }

  /// Runs SQL on the database, as another program would.
  void execute(const std::string& sql) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(db);
    sqlite3_close(db);
  }

  std::string ask(const std::string& sql) {
    sqlite3* db = nullptr;
    std::string answer;
    EXPECT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
    const auto keep = [](void* text, int, char** values, char**) {
      *static_cast<std::string*>(text) = values[0];
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(db, sql.c_str(), keep, &answer, nullptr), SQLITE_OK)
        << sqlite3_errmsg(db);
    sqlite3_close(db);
    return answer;
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.file("trend.db");
  CLog log_;
};

TEST_F(Log, ReturnsTheCatalogue) {
  record();
  ASSERT_EQ(open_for_reading(), 0);
  std::vector<CDeviceProperties> devices;
  ASSERT_EQ(log_.get_devices(devices), 0);
  ASSERT_EQ(devices.size(), 2U);
  EXPECT_EQ(devices[0].path, "boiler");
  EXPECT_EQ(devices[0].aux_text, "In the cellar");
  EXPECT_EQ(devices[1].path, "empty");

  std::vector<CParamProperties> params;
  ASSERT_EQ(log_.get_params(devices[0], params), 0);
  ASSERT_EQ(params.size(), 2U);
  if (params[0].path == "level") std::swap(params[0], params[1]);
  EXPECT_EQ(params[0].path, "flow/temperature");
  EXPECT_TRUE(params[0].has_min && params[0].has_max && params[0].has_sum);
  EXPECT_FALSE(params[0].has_avg || params[0].has_actual);
  EXPECT_TRUE(params[1].has_avg && params[1].has_actual);
  EXPECT_FALSE(params[1].has_min || params[1].has_max || params[1].has_sum);

  std::vector<CPeriodProperties> periods;
  ASSERT_EQ(log_.get_periods(periods), 0);
  ASSERT_EQ(periods.size(), 2U);
  EXPECT_EQ(periods[0].interval, 5U);
  EXPECT_EQ(periods[1].interval, 60U);

  params.clear();
  EXPECT_EQ(log_.get_params(devices[1], params), 0);
  EXPECT_TRUE(params.empty());
  EXPECT_EQ(log_.get_params(CDeviceProperties(), params), 0);
  EXPECT_TRUE(params.empty());
}

TEST_F(Log, SucceedsWithoutIntervals) {
  CRecorder recorder;
  ASSERT_EQ(recorder.open(path_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  ASSERT_EQ(recorder.commit(), 0);
  ASSERT_EQ(open_for_reading(), 0);
  std::vector<CPeriodProperties> periods;
  EXPECT_EQ(log_.get_periods(periods), 0);
  EXPECT_TRUE(periods.empty());
}

TEST_F(Log, ReturnsNaNForMissingValues) {
  record();
  ASSERT_EQ(open_for_reading(), 0);
  CDeviceParams device;
  std::vector<CDeviceProperties> devices;
  ASSERT_EQ(log_.get_devices(devices), 0);
  device.device = devices[0];
  ASSERT_EQ(log_.get_params(device.device, device.params), 0);
  if (device.params[0].path == "level") std::swap(device.params[0], device.params[1]);
  CDeviceData data;
  ASSERT_EQ(log_.get_trend_data(data, device, {{.interval = 5}}, ALL_TIMES, 0, 0, true, true), 0);
  ASSERT_EQ(data.snapshots.size(), 2U);
  EXPECT_EQ(data.snapshots[0].timestamp, 7200);
  EXPECT_EQ(data.snapshots[0].interval_minutes, 5U);
  EXPECT_EQ(data.snapshots[0].valid_ratio, 0.5);
  const std::vector<CSample>& samples = data.snapshots[0].samples;
  ASSERT_EQ(samples.size(), 2U);
  EXPECT_EQ(samples[0].min, 1);
  EXPECT_EQ(samples[0].max, 2);
  EXPECT_EQ(samples[0].sum, 3);
  EXPECT_TRUE(std::isnan(samples[1].avg));
  EXPECT_EQ(samples[1].actual, 5);
  // The later row ends before the slots of the second parameter.
  EXPECT_EQ(data.snapshots[1].samples[0].sum, -3);
  EXPECT_TRUE(std::isnan(data.snapshots[1].samples[1].avg));
  EXPECT_TRUE(std::isnan(data.snapshots[1].samples[1].actual));
}

TEST_F(Log, ReturnsNaNForSlotsBeyondTheRow) {
  record_version_1();
  execute("INSERT INTO parameter VALUES (10, 1, 'far', 31, 9223372036854775807)");
  execute("INSERT INTO parameter VALUES (11, 1, 'edge', 31, 4294967295)");
  ASSERT_EQ(open_for_reading(), 0);
  CDeviceParams device;
  device.device.aux_1 = 1;
  ASSERT_EQ(log_.get_params(device.device, device.params), 0);
  ASSERT_EQ(device.params.size(), 4U);
  CDeviceData data;
  ASSERT_EQ(log_.get_trend_data(data, device, {{.interval = 5}}, ALL_TIMES, 0, 0, true, true), 0);
  for (std::size_t i = 0; i < device.params.size(); ++i) {
    if (device.params[i].path != "far" && device.params[i].path != "edge") continue;
    EXPECT_TRUE(std::isnan(data.snapshots.at(0).samples.at(i).min));
    EXPECT_TRUE(std::isnan(data.snapshots.at(0).samples.at(i).sum));
  }
}

TEST_F(Log, FailsOnEveryCallWithoutAnOpenDatabase) {
  std::vector<CDeviceProperties> devices;
  std::vector<CParamProperties> params;
  std::vector<CPeriodProperties> periods;
  std::vector<CSeriesSummary> series;
  std::vector<CDamage> damage;
  CSeriesChanges changes;
  std::string uuid;
  CDeviceData data;
  const auto expect_failure = [&](CLog& log) {
    EXPECT_NE(log.get_devices(devices), 0);
    EXPECT_NE(log.get_params({}, params), 0);
    EXPECT_NE(log.get_periods(periods), 0);
    EXPECT_LT(log.get_trend_data(data, {}, {}, ALL_TIMES, 0, 0, true, true), 0);
    EXPECT_NE(log.get_series({}, series), 0);
    EXPECT_NE(log.get_uuid(uuid), 0);
    EXPECT_NE(log.get_changes({}, 5, 0, changes), 0);
    EXPECT_NE(log.get_damage(damage), 0);
    EXPECT_NE(log.check(damage), 0);
    EXPECT_NE(log.backup(folder_.file("copy.db")), 0);
    EXPECT_EQ(log.error(), "no database is open");
    log.close();
  };
  expect_failure(log_);
  record();
  ASSERT_EQ(open_for_reading(), 0);
  log_.close();
  expect_failure(log_);
  ASSERT_EQ(open_for_reading(), 0);
  EXPECT_NE(log_.open(folder_.file("missing.db"), {}), 0);
  expect_failure(log_);
}

TEST_F(Log, ClosesAllCopiesAtOnce) {
  record();
  ASSERT_EQ(open_for_reading(), 0);
  CLog copy = log_;
  std::vector<CDeviceProperties> devices;
  EXPECT_EQ(copy.get_devices(devices), 0);
  log_.close();
  EXPECT_NE(copy.get_devices(devices), 0);
  CDeviceData data;
  EXPECT_LT(copy.get_trend_data(data, {}, {}, ALL_TIMES, 0, 0, true, true), 0);
  copy.close();
}

TEST_F(Log, KeepsTheConnectionUntilTheLastCopyIsDestroyed) {
  record();
  CLog copy;
  {
    CLog log;
    ASSERT_EQ(log.open(path_, {}), 0);
    copy = log;
  }
  std::vector<CDeviceProperties> devices;
  EXPECT_EQ(copy.get_devices(devices), 0);
  EXPECT_EQ(devices.size(), 2U);
}

TEST_F(Log, AcceptsAnySizes) {
  record();
  constexpr unsigned MOST = std::numeric_limits<unsigned>::max();
  for (const unsigned size : {0U, 1U, 511U, 512U, 4096U, 65537U, 2147483647U, 2147483648U, MOST}) {
    ASSERT_EQ(log_.open(path_, {.page_size = size, .cache_size = size, .heap_limit = size}), 0)
        << size;
    std::vector<CDeviceProperties> devices;
    EXPECT_EQ(log_.get_devices(devices), 0) << size;
    EXPECT_EQ(devices.size(), 2U);
    CDeviceParams device{.device = devices[0], .params = {}};
    CDeviceData data;
    EXPECT_EQ(log_.get_trend_data(data, device, {{.interval = 5}}, ALL_TIMES, 0, 0, true, true), 0);
    EXPECT_EQ(data.snapshots.size(), 2U);
  }
  sqlite3_soft_heap_limit64(0);
}

TEST_F(Log, SetsTheHeapLimit) {
  record();
  ASSERT_EQ(log_.open(path_, {.heap_limit = 1234567}), 0);
  EXPECT_EQ(sqlite3_soft_heap_limit64(0), 1234567);
}

TEST_F(Log, WaitsForALockUntilTheTimeout) {
  record();
  execute("PRAGMA journal_mode = DELETE");
  sqlite3* writer = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &writer), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(writer, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  EXPECT_NE(log_.open(path_, {.busy_timeout = 0}), 0);
  std::thread end_of_writing([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    sqlite3_exec(writer, "COMMIT", nullptr, nullptr, nullptr);
  });
  // More seconds than SQLite can count in milliseconds are accepted too.
  EXPECT_EQ(log_.open(path_, {.busy_timeout = std::numeric_limits<unsigned>::max()}), 0);
  end_of_writing.join();
  sqlite3_close(writer);
}

TEST_F(Log, CreatesADatabaseOnlyForAWriter) {
  EXPECT_NE(log_.open(path_, {.create = true, .busy_timeout = 1}), 0);
  EXPECT_NE(log_.open(path_, {.read_only = false, .busy_timeout = 1}), 0);
  EXPECT_FALSE(std::filesystem::exists(path_));
  ASSERT_EQ(
      log_.open(path_, {.read_only = false, .create = true, .busy_timeout = 1, .page_size = 8192}),
      0);
  std::vector<CDeviceProperties> devices;
  EXPECT_EQ(log_.get_devices(devices), 0);
  EXPECT_TRUE(devices.empty());
  log_.close();
  EXPECT_EQ(ask("PRAGMA application_id"), std::to_string(0x54524E44));
  EXPECT_EQ(ask("PRAGMA user_version"), "2");
  EXPECT_EQ(ask("PRAGMA page_size"), "8192");
  EXPECT_EQ(ask("PRAGMA journal_mode"), "wal");
}

TEST_F(Log, SwitchesTheJournalOnlyForAWriter) {
  record();
  ASSERT_EQ(log_.open(path_, {.busy_timeout = 1, .traditional_journal = true}), 0);
  log_.close();
  EXPECT_EQ(ask("PRAGMA journal_mode"), "wal");
  ASSERT_EQ(log_.open(path_, {.read_only = false, .busy_timeout = 1, .traditional_journal = true}),
            0);
  log_.close();
  EXPECT_EQ(ask("PRAGMA journal_mode"), "delete");
  ASSERT_EQ(open_for_reading(), 0);
  log_.close();
  EXPECT_EQ(ask("PRAGMA journal_mode"), "delete");
  ASSERT_EQ(log_.open(path_, {.read_only = false, .busy_timeout = 1}), 0);
  log_.close();
  EXPECT_EQ(ask("PRAGMA journal_mode"), "wal");
}

TEST_F(Log, LocksOthersOutOnRequest) {
  record();
  ASSERT_EQ(log_.open(path_, {.read_only = false, .busy_timeout = 0, .exclusive = true}), 0);
  CLog other;
  EXPECT_NE(other.open(path_, {.busy_timeout = 0}), 0);
  std::vector<CDeviceProperties> devices;
  EXPECT_EQ(log_.get_devices(devices), 0);
  log_.close();
  EXPECT_EQ(other.open(path_, {.busy_timeout = 0}), 0);
}

TEST_F(Log, CannotLockOutAReaderThatIsReading) {
  record();
  execute("PRAGMA journal_mode = DELETE");
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, "BEGIN; SELECT 1 FROM device", nullptr, nullptr, nullptr), SQLITE_OK);
  const OpenOptions options{
      .read_only = false, .busy_timeout = 0, .exclusive = true, .traditional_journal = true};
  EXPECT_NE(log_.open(path_, options), 0);
  EXPECT_EQ(log_.error(), "database is locked");
  sqlite3_close(db);
  EXPECT_EQ(log_.open(path_, options), 0) << log_.error();
}

TEST_F(Log, LocksWritersOutForAReaderInRollbackMode) {
  record();
  execute("PRAGMA journal_mode = DELETE");
  ASSERT_EQ(log_.open(path_, {.busy_timeout = 0, .exclusive = true}), 0);
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(db, "DELETE FROM loose", nullptr, nullptr, nullptr), SQLITE_BUSY);
  log_.close();
  EXPECT_EQ(sqlite3_exec(db, "DELETE FROM loose", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(db);
}

TEST_F(Log, RefusesAnExclusiveReaderInWalMode) {
  record();
  EXPECT_NE(log_.open(path_, {.busy_timeout = 0, .exclusive = true}), 0);
  EXPECT_EQ(open_for_reading(), 0);
}

TEST_F(Log, RefusesOtherApplicationsAndVersions) {
  record();
  for (const char* change : {"PRAGMA application_id = 1", "PRAGMA user_version = 3",
                             "PRAGMA user_version = 0", "PRAGMA user_version = -1"}) {
    execute("PRAGMA application_id = 0x54524E44; PRAGMA user_version = 2");
    ASSERT_EQ(open_for_reading(), 0);
    log_.close();
    execute(change);
    EXPECT_NE(open_for_reading(), 0) << change;
    EXPECT_NE(log_.open(path_, {.read_only = false, .create = true, .busy_timeout = 1}), 0)
        << change;
  }
}

TEST_F(Log, RefusesAVersionThatComesBetweenTwoQueries) {
  record();
  execute("PRAGMA journal_mode = DELETE");
  ASSERT_EQ(open_for_reading(), 0);
  std::vector<CDeviceProperties> devices;
  ASSERT_EQ(log_.get_devices(devices), 0);
  execute("PRAGMA user_version = 3");
  EXPECT_NE(log_.get_devices(devices), 0);
  EXPECT_EQ(log_.error(), "its format version is 3, not 1 or 2");
}

TEST_F(Log, AcceptsWhatOthersAddToItsTables) {
  record();
  execute(
      "CREATE TABLE others (\"$as\", as$, \"caf\u00E9\u00E9as\", \"as\u00E9\", alias, _as);"
      "CREATE UNIQUE INDEX other_index ON others (alias);"
      "CREATE INDEX another_index ON others (_as);"
      "CREATE VIEW other_view AS SELECT * FROM others;"
      "CREATE TRIGGER other_trigger AFTER INSERT ON others BEGIN DELETE FROM others; END");
  EXPECT_EQ(open_for_reading(), 0) << log_.error();
  execute("CREATE TABLE generated (a, b AS (a + 1))");
  EXPECT_NE(open_for_reading(), 0);
}

TEST_F(Log, IsNotAPathThroughAFile) {
  record();
  EXPECT_NE(log_.open(path_ + "/trend.db", {}), 0);
  EXPECT_EQ(log_.error(), "Not a directory");
}

TEST_F(Log, RefusesAMissingTableAndAViewInItsPlace) {
  for (const char* table :
       {"device", "parameter", "series", "loose", "series_state", "block", "segment", "database"}) {
    std::filesystem::remove(path_);
    record();
    execute("ALTER TABLE " + std::string(table) + " RENAME TO hidden");
    EXPECT_NE(open_for_reading(), 0) << table;
    execute("CREATE VIEW " + std::string(table) + " AS SELECT * FROM hidden");
    EXPECT_NE(open_for_reading(), 0) << table;
  }
}

TEST_F(Log, LeavesOutIntervalsBeyond32Bits) {
  record_version_1();
  execute("INSERT INTO series VALUES (10, 1, 4294967295), (11, 1, 4294967296)");
  ASSERT_EQ(open_for_reading(), 0);
  std::vector<CPeriodProperties> periods;
  EXPECT_EQ(log_.get_periods(periods), 0);
  ASSERT_EQ(periods.size(), 3U);
  EXPECT_EQ(periods[2].interval, 4294967295U);
  CDeviceData data;
  EXPECT_EQ(
      log_.get_trend_data(data, {.device = {.path = "", .aux_text = "", .aux_1 = 1}, .params = {}},
                          periods, ALL_TIMES, 0, 0, true, true),
      0);
}

TEST_F(Log, NeedsNoMoreMemoryForALongLog) {
  CRecorder recorder;
  CDeviceParams device{.device = {.path = "long", .aux_text = ""}, .params = {}};
  CParamProperties param{.path = "p", .has_actual = true};
  CSeries series;
  ASSERT_EQ(recorder.open(path_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  ASSERT_EQ(recorder.add_device(device.device), 0);
  ASSERT_EQ(recorder.add_param(device.device, param), 0);
  ASSERT_EQ(recorder.add_series(device.device, 5, series), 0);
  const std::vector<double> values(20, 1.5);
  for (int i = 1; i <= 20000; ++i) ASSERT_EQ(recorder.append(series, 300 * i, 1, values), 0);
  ASSERT_EQ(recorder.commit(), 0);
  recorder.close();

  const sqlite3_int64 before = sqlite3_memory_used();
  ASSERT_EQ(open_for_reading(), 0);
  long end = -1;
  for (int chunk = 0; chunk < 40; ++chunk) {
    CDeviceData data;
    ASSERT_EQ(log_.get_trend_data(data, device, {{.interval = 5}}, {-1, end}, 500, 0, false, true),
              0);
    ASSERT_EQ(data.snapshots.size(), 500U);
    end = static_cast<long>(data.snapshots.back().timestamp) - 1;
    // All rows together take 3.5 MB.
    EXPECT_LT(sqlite3_memory_used() - before, 600'000) << chunk;
  }
}

TEST_F(Log, FailsOnDamagedRows) {
  record_version_1();
  const CDeviceParams device{.device = {.path = "", .aux_text = "", .aux_1 = 1}, .params = {}};
  const auto query = [&] {
    CDeviceData data;
    CLog log;
    EXPECT_EQ(log.open(path_, {}), 0);
    return log.get_trend_data(data, device, {{.interval = 5}}, ALL_TIMES, 0, 0, true, true);
  };
  EXPECT_EQ(query(), 0);
  execute("UPDATE snapshot SET samples = zeroblob(9) WHERE id & 0xFFFF = 7500");
  EXPECT_LT(query(), 0);
  execute("UPDATE snapshot SET samples = zeroblob(0)");
  EXPECT_EQ(query(), 0);
  // A table that another program made without checks on its types.
  execute(
      "CREATE TABLE other (id INTEGER PRIMARY KEY, valid_ratio, samples);"
      "INSERT INTO other SELECT * FROM snapshot; DROP TABLE snapshot;"
      "ALTER TABLE other RENAME TO snapshot");
  EXPECT_EQ(query(), 0);
  for (const char* change : {"samples = 'text'", "samples = NULL", "samples = 1",
                             "valid_ratio = NULL", "valid_ratio = 'x'", "valid_ratio = x'00'"}) {
    execute("UPDATE snapshot SET valid_ratio = 1.0, samples = zeroblob(8)");
    EXPECT_EQ(query(), 0);
    execute("UPDATE snapshot SET " + std::string(change));
    EXPECT_LT(query(), 0) << change;
  }
}

TEST_F(Log, FailsOnADamagedCatalogue) {
  record_version_1();
  execute(
      "CREATE TABLE p (id, device_id, path, statistics, first_slot);"
      "INSERT INTO p SELECT * FROM parameter; DROP TABLE parameter; ALTER TABLE p RENAME TO "
      "parameter;"
      "CREATE TABLE s (id, device_id, minutes); INSERT INTO s SELECT * FROM series;"
      "DROP TABLE series; ALTER TABLE s RENAME TO series;"
      "CREATE TABLE d (id, path, description); INSERT INTO d SELECT * FROM device;"
      "DROP TABLE device; ALTER TABLE d RENAME TO device");
  const auto read = [&] {
    CLog log;
    EXPECT_EQ(log.open(path_, {}), 0);
    std::vector<CDeviceProperties> devices;
    std::vector<CParamProperties> params;
    std::vector<CPeriodProperties> periods;
    CDeviceData data;
    const CDeviceParams device{.device = {.path = "", .aux_text = "", .aux_1 = 1}, .params = {}};
    return std::vector<bool>{
        log.get_devices(devices) == 0, log.get_params(device.device, params) == 0,
        log.get_periods(periods) == 0,
        log.get_trend_data(data, device, {{.interval = 5}}, ALL_TIMES, 0, 0, true, true) == 0};
  };
  EXPECT_EQ(read(), (std::vector<bool>{true, true, true, true}));
  execute("UPDATE device SET path = 5");
  EXPECT_EQ(read(), (std::vector<bool>{false, true, true, true}));
  execute("UPDATE device SET path = 'boiler', id = 'x'");
  EXPECT_EQ(read(), (std::vector<bool>{false, true, true, true}));
  execute("UPDATE parameter SET statistics = 32");
  EXPECT_EQ(read(), (std::vector<bool>{false, false, true, true}));
  execute("UPDATE parameter SET statistics = 1, first_slot = -1");
  EXPECT_EQ(read(), (std::vector<bool>{false, false, true, true}));
  execute("UPDATE parameter SET first_slot = 0; UPDATE series SET minutes = 0 WHERE minutes = 5");
  EXPECT_EQ(read(), (std::vector<bool>{false, true, false, false}));
  execute("UPDATE series SET minutes = 5, id = 8388608 WHERE minutes = 0");
  EXPECT_EQ(read(), (std::vector<bool>{false, true, true, false}));
  execute("UPDATE series SET id = 'x' WHERE minutes = 5");
  EXPECT_EQ(read(), (std::vector<bool>{false, true, true, false}));
  CLog log;
  std::vector<CDamage> damage;
  ASSERT_EQ(log.open(path_, {}), 0);
  ASSERT_EQ(log.check(damage), 0);
  EXPECT_TRUE(std::any_of(damage.begin(), damage.end(),
                          [](const CDamage& part) { return part.text == "a series is damaged"; }));
}

}  // namespace
}  // namespace toolkit::trend
