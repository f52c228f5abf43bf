// Removing rows, series and devices.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "tests/support/process.h"
#include "tests/support/recorded_rows.h"
#include "tests/support/version_1.h"

namespace toolkit::trend {
namespace {

using testing::IsEmpty;

constexpr std::int64_t ROWS = 3000;

class Removing : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(recorder_.open(path_), 0);
    ASSERT_EQ(recorder_.begin(), 0);
    for (CDeviceProperties* device : {&device_, &other_}) {
      CParamProperties param{.path = "a", .has_actual = true};
      ASSERT_EQ(recorder_.add_device(*device), 0);
      ASSERT_EQ(recorder_.add_param(*device, param), 0);
      for (const std::uint32_t minutes : {1U, 60U}) {
        CSeries& series = series_.emplace_back();
        ASSERT_EQ(recorder_.add_series(*device, minutes, series), 0);
        for (std::int64_t i = 1; i <= ROWS; ++i) {
          const auto value = static_cast<double>(i);
          ASSERT_EQ(recorder_.append(series, 60 * i, 1, {&value, 1}), 0);
        }
      }
    }
    ASSERT_EQ(recorder_.commit(), 0);
  }

  /// The times of a series in the database, which has to keep all rules.
  std::size_t count(const CSeries& series) {
    return read_recorded_rows(path_).series.at(series.id).size();
  }

  void begin() { ASSERT_EQ(recorder_.begin(), 0) << recorder_.error(); }
  void commit() {
    ASSERT_EQ(recorder_.commit(), 0) << recorder_.error();
    CLog log;
    std::vector<CDamage> damage;
    ASSERT_EQ(log.open(path_, {}), 0);
    ASSERT_EQ(log.check(damage), 0);
    EXPECT_THAT(damage, IsEmpty());
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.file("trend.db");
  CRecorder recorder_;
  CDeviceProperties device_{.path = "/plant", .aux_text = ""};
  CDeviceProperties other_{.path = "/other", .aux_text = ""};
  std::vector<CSeries> series_;  ///< two of each device
};

TEST_F(Removing, TakesOneRowOutOfABlock) {
  begin();
  ASSERT_EQ(recorder_.remove_row(series_[0], 60 * 1000), 0) << recorder_.error();
  commit();
  const RecordedDatabase stored = read_recorded_rows(path_);
  EXPECT_EQ(stored.series.at(series_[0].id).size(), static_cast<std::size_t>(ROWS - 1));
  EXPECT_FALSE(stored.series.at(series_[0].id).contains(60 * 1000));
  EXPECT_EQ(count(series_[1]), static_cast<std::size_t>(ROWS));
}

TEST_F(Removing, TakesOutEachRowOfASeriesInTurn) {
  begin();
  // From the start, from the end, and from the middle.
  for (const std::int64_t i : {1, 2, 512, 513, 1024}) {
    ASSERT_EQ(recorder_.remove_row(series_[0], 60 * i), 0) << recorder_.error();
  }
  for (std::int64_t i = ROWS; i > 1024; --i) {
    ASSERT_EQ(recorder_.remove_row(series_[0], 60 * i), 0) << recorder_.error();
  }
  commit();
  EXPECT_EQ(count(series_[0]), 1019U);
  begin();
  for (std::int64_t i = 3; i < 1024; ++i) {
    if (i == 512 || i == 513) continue;
    ASSERT_EQ(recorder_.remove_row(series_[0], 60 * i), 0) << recorder_.error();
  }
  commit();
  EXPECT_EQ(count(series_[0]), 0U);
}

TEST_F(Removing, LetsARowBeAddedAgain) {
  begin();
  const double value = 5;
  ASSERT_EQ(recorder_.remove_row(series_[0], 600), 0) << recorder_.error();
  ASSERT_EQ(recorder_.append(series_[0], 600, 1, {&value, 1}), 0) << recorder_.error();
  ASSERT_EQ(recorder_.remove_row(series_[0], 600), 0) << recorder_.error();
  ASSERT_EQ(recorder_.append(series_[0], 600, 1, {&value, 1}), 0) << recorder_.error();
  commit();
  EXPECT_EQ(read_recorded_rows(path_).series.at(series_[0].id).at(600).values, std::vector{5.0});
}

TEST_F(Removing, RefusesARowThatIsNotThere) {
  for (const std::int64_t time : {std::int64_t{59}, std::int64_t{601}, 60 * ROWS + 1}) {
    begin();
    EXPECT_EQ(recorder_.remove_row(series_[0], time), -1);
    EXPECT_EQ(recorder_.error(),
              "the series has no row with the timestamp " + std::to_string(time));
  }
  EXPECT_EQ(count(series_[0]), static_cast<std::size_t>(ROWS));
}

TEST_F(Removing, TakesOutASeries) {
  begin();
  ASSERT_EQ(recorder_.remove_series(series_[0]), 0) << recorder_.error();
  commit();
  const RecordedDatabase stored = read_recorded_rows(path_);
  EXPECT_EQ(stored.series.size(), 3U);
  EXPECT_FALSE(stored.series.contains(series_[0].id));
  begin();
  EXPECT_EQ(recorder_.append(series_[0], 60 * (ROWS + 1), 1, {}), -1);
  EXPECT_EQ(recorder_.error(), "the database has no such series");
}

TEST_F(Removing, TakesOutADevice) {
  begin();
  ASSERT_EQ(recorder_.remove_device(device_), 0) << recorder_.error();
  commit();
  EXPECT_EQ(read_recorded_rows(path_).series.size(), 2U);
  CLog log;
  std::vector<CDeviceProperties> devices;
  ASSERT_EQ(log.open(path_, {}), 0);
  ASSERT_EQ(log.get_devices(devices), 0);
  ASSERT_EQ(devices.size(), 1U);
  EXPECT_EQ(devices[0].path, "/other");
  begin();
  EXPECT_EQ(recorder_.remove_device(device_), -1);
  EXPECT_EQ(recorder_.error(), "the database has no such device");
}

TEST_F(Removing, LetsADeviceBeAddedAgain) {
  begin();
  ASSERT_EQ(recorder_.remove_device(device_), 0) << recorder_.error();
  CParamProperties param{.path = "new", .has_min = true};
  CSeries series;
  const double value = 5;
  ASSERT_EQ(recorder_.add_device(device_), 0) << recorder_.error();
  ASSERT_EQ(recorder_.add_param(device_, param), 0) << recorder_.error();
  EXPECT_EQ(param.aux_1, 0U);
  ASSERT_EQ(recorder_.add_series(device_, 1, series), 0) << recorder_.error();
  ASSERT_EQ(recorder_.append(series, 60, 1, {&value, 1}), 0) << recorder_.error();
  commit();
  EXPECT_EQ(count(series), 1U);
}

TEST_F(Removing, IsUndoneByARollback) {
  begin();
  ASSERT_EQ(recorder_.remove_row(series_[2], 60), 0) << recorder_.error();
  ASSERT_EQ(recorder_.remove_device(device_), 0) << recorder_.error();
  recorder_.rollback();
  for (const CSeries& series : series_) EXPECT_EQ(count(series), static_cast<std::size_t>(ROWS));
}

TEST_F(Removing, UpgradesAnOldDatabase) {
  recorder_.close();
  std::filesystem::remove(path_);
  make_version_1(path_, {{1, {{60, {1, {5}}}, {120, {1, {6}}}}}, {2, {{60, {1, {7}}}}}});
  ASSERT_EQ(recorder_.open(path_), 0);
  begin();
  ASSERT_EQ(recorder_.remove_row({.id = 1, .minutes = 1}, 120), 0) << recorder_.error();
  ASSERT_EQ(recorder_.remove_series({.id = 2, .minutes = 2}), 0) << recorder_.error();
  commit();
  const RecordedDatabase stored = read_recorded_rows(path_);
  ASSERT_EQ(stored.series.size(), 1U);
  EXPECT_EQ(stored.series.at(1).size(), 1U);
}

}  // namespace
}  // namespace toolkit::trend
