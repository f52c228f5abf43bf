// The summaries of series.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "libtrend/statistics.h"
#include "tests/support/process.h"
#include "tests/support/stored_log.h"

namespace toolkit::trend {
namespace {

constexpr std::int64_t LAST_TIME = (std::int64_t{1} << 40) - 1;

StoredRow row(std::int64_t time) { return {time, 1, {1.5, 2.5}}; }

StoredDevice make_device(const std::string& path, std::vector<StoredSeries> series) {
  StoredDevice device{path, {{.path = "a"}}, std::move(series)};
  set_statistics(device.params[0], 3);
  return device;
}

class GetSeries : public testing::Test {
 protected:
  /// The summaries of the device at `place` in the database.
  std::vector<CSeriesSummary> summaries(std::size_t place = 0) {
    CLog log;
    std::vector<CDeviceProperties> devices;
    std::vector<CSeriesSummary> series;
    EXPECT_EQ(log.open(db_, {}), 0);
    EXPECT_EQ(log.get_devices(devices), 0);
    EXPECT_EQ(log.get_series(devices.at(place), series), 0) << log.error();
    return series;
  }

  /// Why the summaries of the first device can't be made.
  std::string failure() {
    CLog log;
    std::vector<CDeviceProperties> devices;
    std::vector<CSeriesSummary> series;
    EXPECT_EQ(log.open(db_, {}), 0);
    EXPECT_EQ(log.get_devices(devices), 0);
    EXPECT_EQ(log.get_series(devices.at(0), series), -1);
    return log.error();
  }

  void execute(const std::string& sql) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(db_.c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(db);
    sqlite3_close(db);
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};

TEST_F(GetSeries, CountsRowsInBlocksAndLooseOnes) {
  write_blocks(db_, {make_device("d", {{.minutes = 5,
                                        .blocks = {{row(300), row(600)}, {row(900)}},
                                        .loose = {row(1500), row(1200), row(450)}}})});
  const std::vector<CSeriesSummary> series = summaries();
  ASSERT_EQ(series.size(), 1U);
  EXPECT_EQ(series[0].minutes, 5U);
  EXPECT_EQ(series[0].rows, 6U);
  EXPECT_EQ(series[0].first_time, 300);
  EXPECT_EQ(series[0].last_time, 1500);
  EXPECT_GT(series[0].bytes, 3 * 32U);
}

TEST_F(GetSeries, SummarizesEachSeriesOfADevice) {
  write_blocks(
      db_, {make_device("one", {{.minutes = 60, .blocks = {}, .loose = {row(7200), row(3600)}},
                                {.minutes = 5, .blocks = {{row(300)}}, .loose = {}},
                                {.minutes = 1440, .blocks = {}, .loose = {}}}),
            make_device("two", {{.minutes = 5, .blocks = {}, .loose = {row(LAST_TIME), row(1)}}})});
  const std::vector<CSeriesSummary> one = summaries(0);
  ASSERT_EQ(one.size(), 3U);
  EXPECT_EQ(one[0].minutes, 5U);
  EXPECT_EQ(one[0].rows, 1U);
  EXPECT_EQ(one[0].first_time, 300);
  EXPECT_EQ(one[0].last_time, 300);
  EXPECT_EQ(one[1].minutes, 60U);
  EXPECT_EQ(one[1].rows, 2U);
  EXPECT_EQ(one[1].first_time, 3600);
  EXPECT_EQ(one[1].last_time, 7200);
  EXPECT_EQ(one[1].bytes, 2 * 32U);
  EXPECT_EQ(one[2].minutes, 1440U);
  EXPECT_EQ(one[2].rows, 0U);
  EXPECT_EQ(one[2].first_time, 0);
  EXPECT_EQ(one[2].last_time, 0);
  EXPECT_EQ(one[2].bytes, 0U);
  const std::vector<CSeriesSummary> two = summaries(1);
  ASSERT_EQ(two.size(), 1U);
  EXPECT_EQ(two[0].first_time, 1);
  EXPECT_EQ(two[0].last_time, LAST_TIME);
}

TEST_F(GetSeries, CountsRowsOfBothVersionsAlike) {
  const std::vector<StoredDevice> devices = {
      make_device("d", {{.minutes = 5, .blocks = {}, .loose = {row(300), row(600), row(900)}},
                        {.minutes = 60, .blocks = {}, .loose = {}}})};
  const auto expect_summaries = [&] {
    const std::vector<CSeriesSummary> series = summaries();
    ASSERT_EQ(series.size(), 2U);
    EXPECT_EQ(series[0].rows, 3U);
    EXPECT_EQ(series[0].first_time, 300);
    EXPECT_EQ(series[0].last_time, 900);
    EXPECT_EQ(series[0].bytes, 3 * 32U);
    EXPECT_EQ(series[1].rows, 0U);
  };
  write_rows_only(db_, devices);
  expect_summaries();
  // A transaction upgrades the database. Its rows stay without checksums.
  CRecorder recorder;
  CDeviceProperties device{.path = "e", .aux_text = ""};
  ASSERT_TRUE(recorder.open(db_) == 0 && recorder.begin() == 0 &&
              recorder.add_device(device) == 0 && recorder.commit() == 0)
      << recorder.error();
  recorder.close();
  expect_summaries();
}

TEST_F(GetSeries, FindsNothingForAnUnknownDevice) {
  write_blocks(db_, {make_device("d", {{.minutes = 5, .blocks = {}, .loose = {row(300)}}})});
  CLog log;
  ASSERT_EQ(log.open(db_, {}), 0);
  std::vector<CSeriesSummary> series(1);
  EXPECT_EQ(log.get_series({.path = "d", .aux_text = ""}, series), 0);
  EXPECT_EQ(series.size(), 1U);
}

TEST_F(GetSeries, FailsWithoutADatabase) {
  CLog log;
  std::vector<CSeriesSummary> series;
  EXPECT_EQ(log.get_series({}, series), -1);
  EXPECT_EQ(log.error(), "no database is open");
}

TEST_F(GetSeries, NoticesDamage) {
  const std::vector<StoredDevice> devices = {make_device(
      "d", {{.minutes = 5, .blocks = {{row(300)}, {row(600)}, {row(900)}}, .loose = {row(1200)}}})};
  const std::pair<const char*, const char*> cases[] = {
      {"DELETE FROM loose", "the table of rows is damaged"},
      {"UPDATE loose SET id = id - 1", "the table of rows is damaged"},
      {"UPDATE loose SET samples = x''", "the table of rows is damaged"},
      {"UPDATE block SET first_time = 299 WHERE first_time = 300",
       "the head of a block is damaged"},
      {"DELETE FROM block WHERE first_time = 300", "a block is missing"},
      {"DELETE FROM block WHERE first_time = 600", "a block is missing"},
      {"DELETE FROM block WHERE first_time = 900", "a block is missing"},
      {"UPDATE block SET rows = rows + 1 WHERE first_time = 600", "the head of a block is damaged"},
      {"UPDATE series_state SET sealed_rows = 4", "the state of a series is damaged"},
      {"DELETE FROM series_state", "the state of a series is missing"}};
  for (const auto& [sql, message] : cases) {
    std::filesystem::remove(db_);
    write_blocks(db_, devices);
    execute(sql);
    EXPECT_EQ(failure(), message) << sql;
  }
}

}  // namespace
}  // namespace toolkit::trend
