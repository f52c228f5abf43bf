#include "trendtool/load/existing_rows.h"

#include <gtest/gtest.h>

#include <limits>

#include "libtrend/recorder.h"
#include "tests/support/process.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

using Result = ExistingRows::Result;

/// A database with a row every five minutes, whose value is its number, from 1 to 9.
class TestExistingRows : public testing::Test {
 protected:
  TestExistingRows() {
    CRecorder recorder;
    bool is_recorded = recorder.open(db_) == 0 && recorder.begin() == 0 &&
                       recorder.add_device(device_) == 0 &&
                       recorder.add_param(device_, params_[0]) == 0 &&
                       recorder.add_series(device_, 5, series_) == 0;
    for (int row = 1; row <= 9; ++row) {
      const double value = row;
      is_recorded = is_recorded && recorder.append(series_, 300 * row, 1, {&value, 1}) == 0;
    }
    EXPECT_TRUE(is_recorded && recorder.commit() == 0) << recorder.error();
  }

  /// Compares the row `row` as if it had this value.
  Result compare(ExistingRows& rows, int row, double value) {
    const std::vector<ValuePlace> places = {{0, 3, 0}};
    return rows.compare({device_, series_, params_, places, {&value, 1}, 300 * row});
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
  CDeviceProperties device_{.path = "/d", .aux_text = ""};
  std::vector<CParamProperties> params_ = {{.path = "a", .has_actual = true}};
  CSeries series_;
};

TEST_F(TestExistingRows, AreTheSameHoweverFewAreKept) {
  for (const std::size_t most_samples : {std::size_t{0}, std::size_t{1}, std::size_t{1000}}) {
    ExistingRows rows(most_samples);
    ASSERT_EQ(rows.open(db_), "");
    for (int row = 1; row <= 9; ++row) {
      EXPECT_EQ(compare(rows, row, row), Result::SAME);
      EXPECT_EQ(compare(rows, row, row + 0.5), Result::OTHER);
    }
    EXPECT_EQ(compare(rows, 10, 10), Result::MISSING);
  }
}

TEST_F(TestExistingRows, AreLookedForAtTheEndOfAllTimes) {
  ExistingRows rows;
  ASSERT_EQ(rows.open(db_), "");
  const double value = 1;
  const std::vector<ValuePlace> places = {{0, 3, 0}};
  constexpr std::time_t LAST = std::numeric_limits<std::time_t>::max();
  EXPECT_EQ(rows.compare({device_, series_, params_, places, {&value, 1}, LAST}), Result::MISSING);
}

}  // namespace
