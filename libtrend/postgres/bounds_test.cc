// How much an archive may hold, whoever has made it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "libtrend/query/engine.h"
#include "tests/support/small_archive.h"

namespace toolkit::trend {
namespace {

constexpr const char* NOT_VALID = "the catalogue of the archive has an entry that is not valid";

using ArchiveBounds = SmallArchive;

TEST_F(ArchiveBounds, OfTheSlotsOfADevice) {
  change("UPDATE parameter SET first_slot = 65534");
  EXPECT_EQ(params_error(), "");
  CParamProperties more{.path = "b", .has_actual = true};
  ASSERT_EQ(recorder_.begin(), 0);
  EXPECT_NE(recorder_.add_param(device_, more), 0);
  EXPECT_EQ(recorder_.error(),
            "parameter 'b' needs more than the 65535 slots that a device can have");
  for (const char* slot : {"65535", "2147483646"}) {
    change(std::string("UPDATE parameter SET first_slot = ") + slot);
    EXPECT_EQ(params_error(), NOT_VALID) << slot;
  }
}

TEST_F(ArchiveBounds, OfTheParametersOfADevice) {
  const auto add = [&](std::size_t first, std::size_t last) {
    change(
        "INSERT INTO parameter (device_id, path, first_slot, has_min, has_max, has_avg, "
        "has_actual, "
        "has_sum) SELECT 1, 'p' || i, 1, false, false, false, false, false FROM generate_series(" +
        std::to_string(first) + ", " + std::to_string(last) + ") AS i");
  };
  add(2, MAX_DEVICE_SLOTS);
  EXPECT_EQ(params_error(), "");
  CParamProperties more{.path = "one more"};
  ASSERT_EQ(recorder_.begin(), 0);
  EXPECT_NE(recorder_.add_param(device_, more), 0);
  EXPECT_EQ(recorder_.error(), "a device has at most 65535 parameters");
  add(MAX_DEVICE_SLOTS + 1, MAX_DEVICE_SLOTS + 1);
  EXPECT_EQ(params_error(), NOT_VALID);
}

TEST_F(ArchiveBounds, OfTheSeriesOfADevice) {
  change("INSERT INTO series (device_id, minutes) SELECT 1, i FROM generate_series(2, " +
         std::to_string(MAX_DEVICE_SERIES) + ") AS i");
  EXPECT_EQ(rows_error(), "");
  CSeries series;
  ASSERT_EQ(recorder_.begin(), 0);
  EXPECT_EQ(recorder_.add_series(device_, 100, series), 0);
  EXPECT_NE(recorder_.add_series(device_, 1000, series), 0);
  EXPECT_EQ(recorder_.error(), "a device has at most 100 intervals");
  change("INSERT INTO series (device_id, minutes) VALUES (1, 1000)");
  EXPECT_EQ(rows_error(), NOT_VALID);
}

TEST_F(ArchiveBounds, OfAnInterval) {
  change("ALTER TABLE series DROP CONSTRAINT series_minutes_check");
  for (const char* minutes : {"4294967296", "0", "-1"}) {
    change(std::string("UPDATE series SET minutes = ") + minutes);
    std::vector<CPeriodProperties> periods;
    EXPECT_NE(log_.get_periods(periods), 0) << minutes;
    EXPECT_EQ(log_.error(), NOT_VALID);
    EXPECT_EQ(rows_error(), NOT_VALID) << minutes;
  }
}

TEST_F(ArchiveBounds, OfTheSlotsOfARow) {
  std::vector<double> row(MAX_DEVICE_SLOTS, 1.5);
  ASSERT_EQ(recorder_.begin(), 0);
  ASSERT_EQ(recorder_.append(series_, 60, 1, row), 0) << recorder_.error();
  ASSERT_EQ(recorder_.commit(), 0) << recorder_.error();
  row.push_back(1.5);
  ASSERT_EQ(recorder_.begin(), 0);
  EXPECT_NE(recorder_.append(series_, 120, 1, row), 0);
  EXPECT_EQ(recorder_.error(), "a row has more than the 65535 slots that a device can have");

  // Of a row that somebody made longer, the wanted values are read alone.
  change("UPDATE snapshot SET samples = array_fill(2.5::float8, ARRAY[1000000])");
  CDeviceData data;
  ASSERT_EQ(rows_error(data), "");
  ASSERT_EQ(data.snapshots.size(), 1U);
  EXPECT_EQ(data.snapshots[0].samples.at(0).actual, 2.5);
  // An array of another shape is not a row.
  change("UPDATE snapshot SET samples = array_fill(2.5::float8, ARRAY[2, 2])");
  EXPECT_EQ(rows_error(), "the archive has a row that is not one of a trend");
}

TEST_F(ArchiveBounds, OfTheTimeOfARow) {
  const std::vector<double> row = {1};
  ASSERT_EQ(recorder_.begin(), 0);
  ASSERT_EQ(recorder_.append(series_, 60, 1, row), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  change("UPDATE snapshot SET time = '1970-01-01 00:01:00.5+00'");
  EXPECT_EQ(rows_error(), "the archive has a row that is not one of a trend");
  // Those that no query asks for are not there.
  for (const char* time : {"infinity", "-infinity", "1970-01-01 00:00:00+00"}) {
    change(std::string("UPDATE snapshot SET time = '") + time + "'");
    CDeviceData data;
    EXPECT_EQ(rows_error(data), "") << time;
    EXPECT_TRUE(data.snapshots.empty()) << time;
  }
}

}  // namespace
}  // namespace toolkit::trend
