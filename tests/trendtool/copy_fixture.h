// What the tests of trendtool copy share: two databases, and rows to record.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "libtrend/recorder.h"
#include "tests/support/process.h"

/// A row for `append_rows`.
struct NewRow {
  std::int64_t time = 0;
  double ratio = 1;
  std::vector<double> values;
};

/// Returns rows at equal steps of time, each with other values.
inline std::vector<NewRow> make_rows(std::int64_t first, std::int64_t step, int count) {
  std::vector<NewRow> rows;
  for (int i = 0; i < count; ++i) rows.push_back({first + step * i, 1, {0.5 * i, 2.0 * i}});
  return rows;
}

/// Records rows of a device with two parameters, 'a' and 'b', which have actual values.
inline void append_rows(const std::string& db, const std::string& path, std::uint32_t minutes,
                        const std::vector<NewRow>& rows) {
  toolkit::trend::CRecorder recorder;
  toolkit::trend::CDeviceProperties device{.path = path, .aux_text = ""};
  toolkit::trend::CParamProperties a{.path = "a", .has_actual = true};
  toolkit::trend::CParamProperties b{.path = "b", .has_actual = true};
  toolkit::trend::CSeries series;
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
