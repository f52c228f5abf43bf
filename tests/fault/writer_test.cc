// Dumps of a database that is being written.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <sstream>
#include <thread>

#include "libtrend/recorder.h"
#include "tests/support/model.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

constexpr int BATCH = 10;
constexpr double COARSE = -1;

/// Records rows in the background. Each transaction has ten one-minute rows, whose values are the
/// numbers of their minutes, and a row of a longer interval, which they hide.
class BusyRecorder {
 public:
  explicit BusyRecorder(const std::string& db) {
    EXPECT_EQ(recorder_.open(db), 0) << recorder_.error();
    EXPECT_EQ(recorder_.begin(), 0);
    CDeviceProperties device;
    device.path = "/plant";
    EXPECT_EQ(recorder_.add_device(device), 0);
    CParamProperties param;
    param.path = "a";
    param.has_actual = true;
    EXPECT_EQ(recorder_.add_param(device, param), 0);
    EXPECT_EQ(recorder_.add_series(device, 1, fine_), 0);
    EXPECT_EQ(recorder_.add_series(device, BATCH, coarse_), 0);
    EXPECT_EQ(recorder_.commit(), 0);
    thread_ = std::thread([this] {
      while (!is_to_stop_) {
        record_batch();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
  }
  ~BusyRecorder() {
    is_to_stop_ = true;
    thread_.join();
  }
  BusyRecorder(const BusyRecorder&) = delete;
  BusyRecorder& operator=(const BusyRecorder&) = delete;

  /// The number of minutes that are committed.
  int committed() const { return committed_; }

 private:
  void record_batch() {
    ASSERT_EQ(recorder_.begin(), 0) << recorder_.error();
    int minute = committed_;
    // Append the row that the others hide first.
    const std::int64_t end = 60 * std::int64_t{minute + BATCH};
    ASSERT_EQ(recorder_.append(coarse_, end, 1, std::vector<double>{COARSE}), 0);
    for (int i = 0; i < BATCH; ++i) {
      ++minute;
      const std::vector<double> value = {static_cast<double>(minute)};
      ASSERT_EQ(recorder_.append(fine_, 60 * std::int64_t{minute}, 1, value), 0);
    }
    ASSERT_EQ(recorder_.commit(), 0) << recorder_.error();
    committed_ = minute;
  }

  CRecorder recorder_;
  CSeries fine_;
  CSeries coarse_;
  std::atomic<int> committed_ = 0;
  std::atomic<bool> is_to_stop_ = false;
  std::thread thread_;
};

/// Dumps `db` and returns the values of the rows.
std::vector<int> dump_values(const std::string& db, std::vector<std::string> more) {
  more.insert(more.begin(), {"-x", db, "-d", "/plant", "-u", "-nh"});
  const ProcessResult result = run_tool("trendcsv", more);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.exit_status, 1);
  std::vector<int> values;
  std::istringstream lines(result.out);
  for (std::string line; std::getline(lines, line);) {
    values.push_back(std::stoi(line.substr(line.rfind(',') + 1)));
  }
  return values;
}

/// Waits until there are rows to dump.
void wait_for_rows(const BusyRecorder& recorder) {
  while (recorder.committed() < 5 * BATCH) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

TEST(WhileRecording, ADescendingDumpHasEveryRowUpToACommit) {
  const TemporaryFolder folder;
  const std::string db = folder.file("trend.db");
  const BusyRecorder recorder(db);
  wait_for_rows(recorder);
  for (int i = 0; i < 30; ++i) {
    const int before = recorder.committed();
    const std::vector<int> values = dump_values(db, {"-c", std::to_string(1 + 17 * i)});
    const int newest = static_cast<int>(values.size());
    ASSERT_GE(newest, before);
    ASSERT_EQ(newest % BATCH, 0);
    for (int j = 0; j < newest; ++j) ASSERT_EQ(values[static_cast<std::size_t>(j)], newest - j);
  }
}

TEST(WhileRecording, AnAscendingDumpHasEveryRowUpToACommit) {
  const TemporaryFolder folder;
  const std::string db = folder.file("trend.db");
  const BusyRecorder recorder(db);
  wait_for_rows(recorder);
  for (int i = 0; i < 30; ++i) {
    const int before = recorder.committed();
    const std::vector<int> values = dump_values(db, {"-a", "-c", std::to_string(40 + 17 * i)});
    ASSERT_GE(static_cast<int>(values.size()), before);
    ASSERT_EQ(values.size() % BATCH, 0U);
    for (std::size_t j = 0; j < values.size(); ++j) ASSERT_EQ(values[j], static_cast<int>(j) + 1);
  }
}

TEST(WhileRecording, LoadsAndRecordingTakeTurns) {
  const TemporaryFolder folder;
  const std::string db = folder.file("trend.db");
  const BusyRecorder recorder(db);
  wait_for_rows(recorder);
  for (int i = 0; i < 5; ++i) {
    const int before = recorder.committed();
    const ProcessResult result =
        run_tool("trendload", {"-x", db, "-d", "/other", "-i", "60", "-u"},
                 "Date,Time,b:Value\n2023-05-01,0" + std::to_string(i) + ":00,1\n");
    ASSERT_EQ(result.exit_status, 0) << result.err;
    while (recorder.committed() == before) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  const ProcessResult result = run_tool("trendcsv", {"-x", db, "-d", "/other", "-u", "-m", "5"});
  EXPECT_EQ(result.exit_status, 0);
}

}  // namespace
