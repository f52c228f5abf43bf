// How much a database may hold, whoever has made it.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <string>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/query/engine.h"
#include "libtrend/recorder.h"
#include "libtrend/sqlite/block.h"
#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/database_row.h"
#include "tests/support/database_file.h"
#include "tests/support/process.h"
#include "tests/support/stored_log.h"

namespace toolkit::trend {
namespace {

class Bounds : public testing::Test {
 protected:
  /// Makes a database in which the device "/plant" has the parameter "a" and the interval of one
  /// minute.
  void make() {
    CRecorder recorder;
    CDeviceProperties device{.path = "/plant", .aux_text = ""};
    CParamProperties param{.path = "a", .has_actual = true};
    CSeries series;
    ASSERT_EQ(recorder.open(path_), 0);
    ASSERT_EQ(recorder.begin(), 0);
    ASSERT_EQ(recorder.add_device(device), 0);
    ASSERT_EQ(recorder.add_param(device, param), 0);
    ASSERT_EQ(recorder.add_series(device, 1, series), 0);
    ASSERT_EQ(recorder.commit(), 0);
  }

  /// Changes the catalogue, and makes its checksum right again.
  void change(const std::string& sql) {
    Database db;
    std::string error;
    ASSERT_TRUE(connect(path_, SQLITE_OPEN_READWRITE, nullptr, db, error)) << error;
    ASSERT_TRUE(execute(db.get(), sql, error)) << error;
    ASSERT_TRUE(DatabaseRow::create(db.get(), error)) << error;
  }

  /// The start of a statement for a table `n` of the numbers `i` from 2 to `count`.
  static std::string count_to(std::size_t count) {
    return "WITH RECURSIVE n(i) AS (SELECT 2 UNION ALL SELECT i + 1 FROM n WHERE i < " +
           std::to_string(count) + ") ";
  }

  /// Makes the device have as many parameters and series.
  void fill(std::size_t params, std::size_t series) {
    if (params > 1) {
      change("INSERT INTO parameter " + count_to(params) + "SELECT i, 1, 'p' || i, 0, 1 FROM n");
    }
    if (series > 1) change("INSERT INTO series " + count_to(series) + "SELECT i, 1, i FROM n");
  }

  void open() { ASSERT_EQ(log_.open(path_, {}), 0) << log_.error(); }

  [[nodiscard]] std::string params_error() {
    std::vector<CParamProperties> params;
    return log_.get_params(device_, params) == 0 ? "" : log_.error();
  }

  [[nodiscard]] std::string rows_error() {
    CDeviceData data;
    const int status =
        log_.get_trend_data(data, {device_, {}}, {{.interval = 1}}, {-1, -1}, 0, 0, true, true);
    return status == 0 ? "" : log_.error();
  }

  /// Whether a check finds the damage `text` of the device.
  [[nodiscard]] bool is_found(const std::string& text) {
    std::vector<CDamage> damage;
    EXPECT_EQ(log_.check(damage), 0) << log_.error();
    return std::any_of(damage.begin(), damage.end(), [&](const CDamage& part) {
      return part.device == "/plant" && part.text == text;
    });
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.file("trend.db");
  CLog log_;
  CDeviceProperties device_{.path = "/plant", .aux_text = "", .aux_1 = 1};
};

TEST_F(Bounds, OfTheSlotsOfADevice) {
  make();
  change("UPDATE parameter SET first_slot = 65534");
  open();
  EXPECT_EQ(params_error(), "");
  change("UPDATE parameter SET first_slot = 65535");
  EXPECT_EQ(params_error(), "the catalogue is damaged");
}

TEST_F(Bounds, OfTheSlotThatARecorderUses) {
  make();
  change("UPDATE parameter SET first_slot = 124999990");
  CRecorder recorder;
  CDeviceProperties device{.path = "/plant", .aux_text = ""};
  CParamProperties param{.path = "a", .has_actual = true};
  ASSERT_EQ(recorder.open(path_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  ASSERT_EQ(recorder.add_device(device), 0);
  EXPECT_NE(recorder.add_param(device, param), 0);
  EXPECT_EQ(recorder.error(), "parameter 'a' has a slot beyond what a row can hold");
}

TEST_F(Bounds, OfTheParametersOfADevice) {
  make();
  fill(MAX_DEVICE_SLOTS, 1);
  open();
  EXPECT_EQ(params_error(), "");
  CRecorder recorder;
  CParamProperties param{.path = "one more"};
  ASSERT_EQ(recorder.open(path_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  EXPECT_NE(recorder.add_param(device_, param), 0);
  EXPECT_EQ(recorder.error(), "a device has at most 65535 parameters");
  EXPECT_FALSE(is_found("it has more parameters than a device can have"));
  change("INSERT INTO parameter VALUES (70000, 1, 'one more', 0, 1)");
  EXPECT_EQ(params_error(), "the catalogue is damaged");
  EXPECT_TRUE(is_found("it has more parameters than a device can have"));
}

TEST_F(Bounds, OfTheSeriesOfADevice) {
  make();
  fill(1, MAX_DEVICE_SERIES);
  open();
  EXPECT_EQ(rows_error(), "");
  CRecorder recorder;
  CSeries series;
  ASSERT_EQ(recorder.open(path_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  EXPECT_EQ(recorder.add_series(device_, 1, series), 0);
  EXPECT_NE(recorder.add_series(device_, 1000, series), 0);
  EXPECT_EQ(recorder.error(), "a device has at most 100 intervals");
  EXPECT_FALSE(is_found("it has more intervals than a device can have"));
  change("INSERT INTO series VALUES (1000, 1, 1000)");
  EXPECT_EQ(rows_error(), "the catalogue is damaged");
  EXPECT_TRUE(is_found("it has more intervals than a device can have"));
}

TEST_F(Bounds, AreWiderForTheSeriesOfADeviceInVersion1) {
  write_rows_only(path_, {{"/plant",
                           {{.path = "a", .has_actual = true}},
                           {{.minutes = 1, .blocks = {}, .loose = {}}}}});
  run_sql(path_, "INSERT INTO series " + count_to(65535) + "SELECT i, 1, i FROM n");
  open();
  EXPECT_EQ(rows_error(), "");
  run_sql(path_, "INSERT INTO series VALUES (70000, 1, 70000)");
  EXPECT_EQ(rows_error(), "the catalogue is damaged");
}

TEST_F(Bounds, LetAQueryReadMoreSeriesThanItKeepsStatementsFor) {
  constexpr std::uint32_t SERIES = MAX_DEVICE_SERIES + 50;
  constexpr std::int64_t DISTANCE = 100'000;
  // The rows of a coarser series are older than those of a finer one, so that none are hidden.
  const auto time_of = [](std::uint32_t minutes, int row) {
    return 1'000'000'000 - DISTANCE * minutes + 60 * row;
  };
  StoredDevice device{"/plant", {{.path = "a", .has_actual = true}}, {}};
  CDeviceParams selection{device_, {{.path = "a", .has_actual = true}}};
  std::vector<CPeriodProperties> periods;
  for (std::uint32_t minutes = 1; minutes <= SERIES; ++minutes) {
    StoredSeries series{.minutes = minutes, .blocks = {}, .loose = {}};
    for (const int row : {1, 2}) {
      series.loose.push_back({time_of(minutes, row), 1, {minutes + row / 10.0}});
    }
    device.series.push_back(series);
    periods.push_back({.interval = minutes});
  }
  write_rows_only(path_, {device});
  open();
  for (const bool ascending : {false, true}) {
    CDeviceData data;
    ASSERT_EQ(log_.get_trend_data(data, selection, periods, {-1, -1}, 0, 3, ascending, true), 0)
        << log_.error();
    ASSERT_EQ(data.snapshots.size(), 2 * SERIES - 3);
    for (std::size_t i = 0; i < data.snapshots.size(); ++i) {
      const std::size_t place = ascending ? i + 3 : 2 * SERIES - 1 - (i + 3);  // from the oldest on
      const auto minutes = static_cast<std::uint32_t>(SERIES - place / 2);
      const int row = place % 2 == 0 ? 1 : 2;
      EXPECT_EQ(data.snapshots[i].interval_minutes, minutes);
      EXPECT_EQ(data.snapshots[i].timestamp, time_of(minutes, row));
      EXPECT_EQ(data.snapshots[i].samples.at(0).actual, minutes + row / 10.0);
    }
  }
  run_sql(path_, "UPDATE snapshot SET samples = x'00' WHERE id >> 40 = " + std::to_string(SERIES));
  CDeviceData data;
  EXPECT_NE(log_.get_trend_data(data, selection, periods, {-1, -1}, 0, 0, true, true), 0);
  EXPECT_EQ(log_.error(), "the table of rows is damaged");
}

TEST_F(Bounds, AreCheckedBeforeADatabaseOfVersion1IsUpgraded) {
  write_rows_only(path_, {{"/plant",
                           {{.path = "a", .has_actual = true}},
                           {{.minutes = 1, .blocks = {}, .loose = {}}}}});
  run_sql(path_, "INSERT INTO series " + count_to(MAX_DEVICE_SERIES + 1) + "SELECT i, 1, i FROM n");
  CRecorder recorder;
  ASSERT_EQ(recorder.open(path_), 0);
  EXPECT_NE(recorder.begin(), 0);
  EXPECT_EQ(recorder.error(), "a device has more than 100 intervals");
  open();
  EXPECT_EQ(rows_error(), "");
  run_sql(path_, "DELETE FROM series WHERE minutes > 100");
  ASSERT_EQ(recorder.begin(), 0) << recorder.error();
  EXPECT_EQ(recorder.commit(), 0) << recorder.error();
  EXPECT_EQ(rows_error(), "");
}

TEST_F(Bounds, OfTheValuesOfABlock) {
  const auto is_accepted = [](std::size_t rows, std::size_t slots) {
    BlockRows block;
    for (std::size_t i = 1; i <= rows; ++i) block.times.push_back(static_cast<std::int64_t>(i));
    block.valid_ratios.assign(rows, 1);
    block.slots = slots;
    block.values.assign(rows * slots, 7);
    BlockHead head;
    head.segment_size = 4056;
    std::vector<unsigned char> columns;
    encode_block(block, head, columns);
    BlockLayout layout;
    return decode_layout(head, layout);
  };
  EXPECT_TRUE(is_accepted(512, 1024));
  EXPECT_FALSE(is_accepted(512, 1025));
  EXPECT_TRUE(is_accepted(8, 65535));
  EXPECT_FALSE(is_accepted(9, 65535));
  EXPECT_TRUE(is_accepted(1, 65535));
  EXPECT_FALSE(is_accepted(1, 65536));
}

TEST_F(Bounds, ManyDevicesAreReadLikeOne) {
  CRecorder recorder;
  constexpr std::size_t DEVICES = 8;
  ASSERT_EQ(recorder.open(path_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  std::vector<CDeviceProperties> devices(DEVICES);
  for (CDeviceProperties& device : devices) {
    device.path = std::to_string(&device - devices.data());
    ASSERT_EQ(recorder.add_device(device), 0);
  }
  // The parameters and intervals of a device are not beside one another.
  for (const char* name : {"c", "a", "b"}) {
    for (const CDeviceProperties& device : devices) {
      CParamProperties param{.path = name + device.path, .has_sum = true};
      CSeries series;
      ASSERT_EQ(recorder.add_param(device, param), 0);
      ASSERT_EQ(recorder.add_series(device, static_cast<std::uint32_t>(name[0]), series), 0);
    }
  }
  ASSERT_EQ(recorder.commit(), 0);
  ASSERT_EQ(log_.open(path_, {}), 0);
  for (int round = 0; round < 2; ++round) {
    for (const CDeviceProperties& device : devices) {
      std::vector<CParamProperties> params;
      std::vector<CSeriesSummary> series;
      ASSERT_EQ(log_.get_params(device, params), 0);
      ASSERT_EQ(log_.get_series(device, series), 0);
      ASSERT_EQ(params.size(), 3U);
      ASSERT_EQ(series.size(), 3U);
      for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(params[i].path, std::string(1, static_cast<char>('a' + i)) + device.path);
        EXPECT_EQ(series[i].minutes, 'a' + i);
      }
    }
  }
  // What is remembered is forgotten when the database changes.
  ASSERT_EQ(recorder.begin(), 0);
  CParamProperties late{.path = "late"};
  ASSERT_EQ(recorder.add_param(devices.back(), late), 0);
  ASSERT_EQ(recorder.commit(), 0);
  std::vector<CParamProperties> params;
  ASSERT_EQ(log_.get_params(devices.back(), params), 0);
  EXPECT_EQ(params.size(), 4U);
}

}  // namespace
}  // namespace toolkit::trend
