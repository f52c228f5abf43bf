// An archive with one device, for tests of what others may have written into it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "tests/support/archive_server.h"

namespace toolkit::trend {

/// An archive in which the device "/plant" has the parameter "a" and the interval of one minute.
class SmallArchive : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(recorder_.open(url_), 0) << recorder_.error();
    ASSERT_EQ(recorder_.begin(), 0);
    ASSERT_EQ(recorder_.add_device(device_), 0);
    ASSERT_EQ(recorder_.add_param(device_, param_), 0);
    ASSERT_EQ(recorder_.add_series(device_, 1, series_), 0);
    ASSERT_EQ(recorder_.commit(), 0);
    ASSERT_EQ(log_.open(url_, {}), 0) << log_.error();
  }

  /// Runs SQL in the schema of the archive.
  void change(const std::string& sql) const {
    server().sql("SET search_path = " + url_.substr(url_.rfind('=') + 1) + "; " + sql);
  }

  /// Adds the rows with the numbers from `first` to `last`. A row is at 60 times its number, and
  /// its value is its number.
  void add_rows(int first, int last) const {
    change(
        "INSERT INTO snapshot SELECT 1, to_timestamp(60.0 * i), 1, ARRAY[i::double precision] "
        "FROM generate_series(" +
        std::to_string(first) + ", " + std::to_string(last) + ") AS i");
  }

  [[nodiscard]] std::string params_error() {
    std::vector<CParamProperties> params;
    return log_.get_params(device_, params) == 0 ? "" : log_.error();
  }

  /// What a query asks for.
  struct Question {
    std::pair<long, long> range = {-1, -1};
    unsigned count = 0;
    unsigned offset = 0;
    bool ascending = true;
    std::vector<CPeriodProperties> periods = {{.interval = 1}};
  };
  /// Asks for rows of the parameter by `log_`. Returns why that fails.
  [[nodiscard]] std::string ask(CDeviceData& data, const Question& question) {
    const int status =
        log_.get_trend_data(data, {device_, {param_}}, question.periods, question.range,
                            question.count, question.offset, question.ascending, true);
    return status == 0 ? "" : log_.error();
  }

  /// Queries all rows of the parameter. Returns why that fails. A handle that was open before
  /// would not see what `change` has done: it keeps rows while the count of changes stays.
  [[nodiscard]] std::string rows_error(CDeviceData& data, bool ascending = true) {
    EXPECT_EQ(log_.open(url_, {}), 0) << log_.error();
    return ask(data, {.ascending = ascending});
  }
  [[nodiscard]] std::string rows_error(bool ascending = true) {
    CDeviceData data;
    return rows_error(data, ascending);
  }

  std::string url_ = server().make_archive();
  CRecorder recorder_;
  CLog log_;
  CDeviceProperties device_{.path = "/plant", .aux_text = ""};
  CParamProperties param_{.path = "a", .has_actual = true};
  CSeries series_;
};

}  // namespace toolkit::trend
