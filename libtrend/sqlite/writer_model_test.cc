// Recording at random, compared with a plain model after every commit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>

#include "libtrend/recorder.h"
#include "tests/support/model.h"
#include "tests/support/process.h"
#include "tests/support/recorded_rows.h"
#include "tests/support/version_1.h"

namespace toolkit::trend {
namespace {

constexpr std::int64_t STEP = 60;
constexpr std::int64_t START = 100'000 * STEP;

class RecordingAtRandom {
 public:
  explicit RecordingAtRandom(std::uint32_t seed) : random_(seed) {}

  /// Starts with a new database.
  void start() {
    open();
    begin();
    add_series();
    commit();
  }

  /// Starts with a database of version 1 that has some rows.
  void start_with_version_1() {
    for (const std::int64_t id : {1, 2, 3}) {
      auto& rows = recorded_[id];
      const std::uint32_t count = id == 2 ? 0 : up_to(2500);
      for (std::uint32_t i = 0; i < count; ++i) {
        if (up_to(10) != 0) rows[START + STEP * i] = trimmed({1, {value(), value(), value()}});
      }
    }
    make_version_1(path_, recorded_);
    slots_ = 3;
    for (const std::int64_t id : {1, 2, 3}) series_.push_back({id, static_cast<unsigned>(id)});
    device_.aux_1 = 1;
    open();
  }

  void run(int transactions) {
    for (int i = 0; i < transactions && !testing::Test::HasFailure(); ++i) {
      begin();
      const std::uint32_t steps = 1 + up_to(3);
      for (std::uint32_t step = 0; step < steps; ++step) change();
      end();
      if (up_to(6) == 0) open();
    }
  }

  /// Commits of a single row each, which is how a log grows.
  void run_single_rows(int transactions) {
    rows_ = recorded_;
    for (int i = 0; i < transactions; ++i) {
      ASSERT_EQ(recorder_->begin(), 0) << recorder_->error();
      for (const CSeries& series : series_) append(series, last_time(series) + STEP);
      ASSERT_EQ(recorder_->commit(), 0) << recorder_->error();
    }
    recorded_ = rows_;
    check();
  }

 private:
  std::uint32_t up_to(std::uint32_t limit) { return pick(random_, limit); }

  double value() {
    return up_to(4) == 0 ? random_value(random_) : static_cast<double>(up_to(1000)) / 10;
  }

  static RecordedRow trimmed(RecordedRow row) {
    while (!row.values.empty() && std::isnan(row.values.back())) row.values.pop_back();
    return row;
  }

  void open() {
    recorder_ = std::make_unique<CRecorder>();
    ASSERT_EQ(recorder_->open(path_), 0) << recorder_->error();
  }

  void begin() {
    rows_ = recorded_;
    recorded_series_ = series_;
    ASSERT_EQ(recorder_->begin(), 0) << recorder_->error();
  }

  void commit() {
    ASSERT_EQ(recorder_->commit(), 0) << recorder_->error();
    recorded_ = rows_;
    check();
  }

  void end() {
    const std::uint32_t choice = up_to(10);
    if (choice == 0) {
      recorder_->rollback();
      series_ = recorded_series_;
    } else if (choice == 1) {
      append_again();
    } else {
      commit();
    }
  }

  void check() {
    const RecordedDatabase stored = read_recorded_rows(path_);
    ASSERT_EQ(stored.series.size(), recorded_.size());
    for (const auto& [id, rows] : recorded_) ASSERT_TRUE(stored.series.at(id) == rows) << id;
  }

  void change() {
    if (series_.empty()) return add_series();
    const CSeries series = series_[up_to(static_cast<std::uint32_t>(series_.size()))];
    switch (up_to(12)) {
      case 0:
        return add_series();
      case 1:
        return add_param();
      case 2:
        return purge(series);
      case 3:
        return append_many(series, last_time(series) + STEP * (1 + up_to(2000)), STEP, 1500);
      case 4:
        return append_many(series, first_time(series) - STEP, -STEP, 1500);
      case 5:
        return append_shuffled(series);
      case 6:
        return append_late(series);
      case 7:
      case 8:
        return remove_rows(series);
      case 9:
        return up_to(4) == 0 ? remove_series(series) : remove_rows(series);
      default:
        return append_many(series, last_time(series) + STEP, STEP, 40);
    }
  }

  void add_series() {
    if (series_.size() == 5) return;
    if (device_.aux_1 < 0) {
      ASSERT_EQ(recorder_->add_device(device_), 0);
      add_param();
    }
    CSeries series;
    unsigned minutes = 1;
    while (std::any_of(series_.begin(), series_.end(),
                       [&](const CSeries& other) { return other.minutes == minutes; })) {
      ++minutes;
    }
    ASSERT_EQ(recorder_->add_series(device_, minutes, series), 0) << recorder_->error();
    series_.push_back(series);
    rows_[series.id];
  }

  void add_param() {
    CParamProperties param{.path = std::to_string(up_to(1000)), .has_min = true, .has_avg = true};
    ASSERT_EQ(recorder_->add_param(device_, param), 0) << recorder_->error();
    slots_ = std::max<std::uint32_t>(slots_, param.aux_1 + 2);
  }

  std::int64_t first_time(const CSeries& series) {
    return rows_[series.id].empty() ? START : rows_[series.id].begin()->first;
  }
  std::int64_t last_time(const CSeries& series) {
    return rows_[series.id].empty() ? START : rows_[series.id].rbegin()->first;
  }

  void append(const CSeries& series, std::int64_t time) {
    if (time <= 0 || rows_[series.id].contains(time)) return;
    RecordedRow row{static_cast<double>(up_to(11)) / 10, {}};
    const std::uint32_t count = up_to(8) == 0 ? up_to(slots_ + 1) : slots_;
    for (std::uint32_t i = 0; i < count; ++i) row.values.push_back(value());
    ASSERT_EQ(recorder_->append(series, time, row.valid_ratio, row.values), 0)
        << recorder_->error();
    rows_[series.id][time] = trimmed(row);
  }

  void append_many(const CSeries& series, std::int64_t time, std::int64_t step,
                   std::uint32_t most) {
    const std::uint32_t count = 1 + up_to(most);
    for (std::uint32_t i = 0; i < count; ++i, time += step) append(series, time);
  }

  void append_shuffled(const CSeries& series) {
    std::vector<std::int64_t> times(up_to(1200));
    std::int64_t time = up_to(2) == 0 ? last_time(series) : first_time(series) - STEP * 2000;
    for (std::int64_t& t : times) t = time += STEP;
    std::shuffle(times.begin(), times.end(), random_);
    for (const std::int64_t t : times) append(series, t);
  }

  void append_late(const CSeries& series) {
    const std::int64_t first = first_time(series);
    const auto span = static_cast<std::uint32_t>(last_time(series) - first + 1);
    const std::uint32_t count = up_to(300);
    const std::int64_t start = first + up_to(span);
    const bool is_spread = up_to(2) == 0;
    for (std::uint32_t i = 0; i < count; ++i) {
      append(series, is_spread ? first + up_to(span) : start + up_to(20'000));
    }
  }

  void purge(const CSeries& series) {
    const std::int64_t first = first_time(series);
    const auto span = static_cast<std::uint32_t>(last_time(series) - first + 1);
    const std::int64_t before = first + (up_to(4) == 0 ? span + 1 : up_to(1 + span / 2));
    ASSERT_EQ(recorder_->purge(series, before), 0) << recorder_->error();
    auto& rows = rows_[series.id];
    rows.erase(rows.begin(), rows.lower_bound(before));
  }

  /// Removes some rows, or as many as a block has.
  void remove_rows(const CSeries& series) {
    auto& rows = rows_[series.id];
    if (rows.empty()) return;
    auto row = rows.begin();
    std::advance(row, up_to(static_cast<std::uint32_t>(rows.size())));
    const std::uint32_t count = up_to(20) == 0 ? 600 : 1 + up_to(5);
    for (std::uint32_t i = 0; i < count && row != rows.end(); ++i) {
      ASSERT_EQ(recorder_->remove_row(series, row->first), 0) << recorder_->error();
      row = rows.erase(row);
    }
  }

  void remove_series(const CSeries& series) {
    ASSERT_EQ(recorder_->remove_series(series), 0) << recorder_->error();
    rows_.erase(series.id);
    std::erase_if(series_, [&](const CSeries& other) { return other.id == series.id; });
  }

  /// Appends a row at a time that has one. That is refused, and undoes the transaction.
  void append_again() {
    if (series_.empty()) return commit();
    const CSeries& series = series_[up_to(static_cast<std::uint32_t>(series_.size()))];
    const auto& rows = rows_[series.id];
    if (rows.empty()) return commit();
    auto row = rows.begin();
    std::advance(row, up_to(static_cast<std::uint32_t>(rows.size())));
    EXPECT_NE(recorder_->append(series, row->first, 1, {}), 0);
    EXPECT_EQ(recorder_->error(),
              "the series has a row with the timestamp " + std::to_string(row->first) + " already");
    series_ = recorded_series_;
  }

  std::mt19937 random_;
  TemporaryFolder folder_;
  std::string path_ = folder_.file("trend.db");
  std::unique_ptr<CRecorder> recorder_;
  CDeviceProperties device_{.path = "/plant", .aux_text = ""};
  std::uint32_t slots_ = 0;
  std::vector<CSeries> series_;
  std::vector<CSeries> recorded_series_;             ///< when the open transaction began
  std::map<std::int64_t, RecordedSeries> rows_;      ///< with those of the open transaction
  std::map<std::int64_t, RecordedSeries> recorded_;  ///< what is committed
};

TEST(RecordingAtRandom, StoresWhatTheModelHas) {
  for (int seed = 0; seed < (is_long_run() ? 12 : random_rounds(6)) && !testing::Test::HasFailure();
       ++seed) {
    SCOPED_TRACE(seed);
    RecordingAtRandom recording(static_cast<std::uint32_t>(seed));
    recording.start();
    recording.run(40);
  }
}

TEST(RecordingAtRandom, StoresWhatTheModelHasAfterAnUpgrade) {
  for (int seed = 0; seed < (is_long_run() ? 12 : random_rounds(6)) && !testing::Test::HasFailure();
       ++seed) {
    SCOPED_TRACE(seed);
    RecordingAtRandom recording(static_cast<std::uint32_t>(seed));
    recording.start_with_version_1();
    recording.run(40);
  }
}

TEST(RecordingAtRandom, StoresWhatTheModelHasInSingleRows) {
  RecordingAtRandom recording(1);
  recording.start();
  recording.run(3);
  recording.run_single_rows(random_rounds(1300, 600));
  recording.run(10);
  recording.run_single_rows(random_rounds(700, 300));
}

}  // namespace
}  // namespace toolkit::trend
