// The two engines, an archive and a file, must give the same results for the same calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <set>

#include "libtrend/archive.h"
#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "libtrend/statistics.h"
#include "tests/support/archive_server.h"
#include "tests/support/model.h"
#include "tests/support/print_rows.h"

namespace toolkit::trend {
namespace {

constexpr double MISSING = std::numeric_limits<double>::quiet_NaN();

/// One kind of database: what was recorded there has ids of its own.
struct Side {
  explicit Side(std::string where) : path(std::move(where)) {}
  std::string path;
  CRecorder recorder;
  CLog log;
  std::vector<CDeviceProperties> devices;
  std::vector<CSeries> series;
  std::vector<std::size_t> owners;  ///< of each series, an index of `devices`
};

class Engines : public testing::Test {
 protected:
  /// Makes the same call on both recorders, and expects the same status.
  template <typename Call>
  int both(const Call& call) {
    const int status = call(file_);
    EXPECT_EQ(call(archive_), status)
        << "file: " << file_.recorder.error() << ", archive: " << archive_.recorder.error();
    return status;
  }

  void open() {
    for (Side* side : {&file_, &archive_}) {
      ASSERT_EQ(side->recorder.open(side->path), 0) << side->recorder.error();
      ASSERT_EQ(side->recorder.begin(), 0) << side->recorder.error();
      ASSERT_EQ(side->recorder.commit(), 0) << side->recorder.error();
      ASSERT_EQ(side->log.open(side->path, OpenOptions{}), 0) << side->log.error();
    }
  }

  void add_device(const std::string& path) {
    both([&](Side& side) {
      CDeviceProperties device{.path = path, .aux_text = "About " + path};
      const int status = side.recorder.add_device(device);
      side.devices.push_back(device);
      return status;
    });
  }

  void add_param(std::size_t device, const std::string& path, std::uint32_t statistics) {
    both([&](Side& side) {
      CParamProperties param{.path = path};
      set_statistics(param, statistics);
      return side.recorder.add_param(side.devices[device], param);
    });
  }

  void add_series(std::size_t device, std::uint32_t minutes) {
    both([&](Side& side) {
      CSeries series;
      const int status = side.recorder.add_series(side.devices[device], minutes, series);
      side.series.push_back(series);
      side.owners.push_back(device);
      return status;
    });
  }

  int append(std::size_t series, std::int64_t time, const std::vector<double>& slots) {
    return both([&](Side& side) {
      return side.recorder.append(side.series[series], time, 0.25 * static_cast<double>(time % 5),
                                  slots);
    });
  }

  int begin() {
    return both([](Side& side) { return side.recorder.begin(); });
  }
  int commit() {
    return both([](Side& side) { return side.recorder.commit(); });
  }

  void expect_same_catalogue() {
    std::vector<std::string> texts[2];
    for (const int i : {0, 1}) {
      Side& side = i == 0 ? file_ : archive_;
      std::vector<CDeviceProperties> devices;
      std::vector<CPeriodProperties> periods;
      ASSERT_EQ(side.log.get_devices(devices), 0) << side.log.error();
      ASSERT_EQ(side.log.get_periods(periods), 0) << side.log.error();
      for (const CPeriodProperties& period : periods) {
        texts[i].push_back(std::to_string(period.interval));
      }
      for (const CDeviceProperties& device : devices) {
        texts[i].push_back(device.path + ": " + device.aux_text);
        std::vector<CParamProperties> params;
        std::vector<CSeriesSummary> series;
        ASSERT_EQ(side.log.get_params(device, params), 0) << side.log.error();
        ASSERT_EQ(side.log.get_series(device, series), 0) << side.log.error();
        std::sort(params.begin(), params.end(),
                  [](const auto& a, const auto& b) { return a.aux_1 < b.aux_1; });
        for (const CParamProperties& param : params) {
          texts[i].push_back(param.path + " " + std::to_string(param.aux_1) + " " +
                             std::to_string(get_statistics(param)));
        }
        for (const CSeriesSummary& one : series) {
          EXPECT_EQ(one.rows == 0, one.bytes == 0);
          texts[i].push_back(std::to_string(one.minutes) + " " + std::to_string(one.rows) + " " +
                             std::to_string(one.first_time) + " " + std::to_string(one.last_time));
        }
      }
    }
    EXPECT_EQ(texts[0], texts[1]);
  }

  /// Asks both sides the same about the device with the index `device`. Returns the rows found, and
  /// sets `last_time_` to the time of the last one.
  std::size_t expect_same_rows(std::size_t device, const std::vector<std::size_t>& wanted,
                               const std::vector<CPeriodProperties>& periods,
                               const std::pair<long, long>& range, unsigned count, unsigned offset,
                               bool ascending) {
    CDeviceData results[2];
    for (const int i : {0, 1}) {
      Side& side = i == 0 ? file_ : archive_;
      CDeviceParams selection{.device = side.devices[device], .params = {}};
      std::vector<CParamProperties> params;
      EXPECT_EQ(side.log.get_params(side.devices[device], params), 0);
      std::sort(params.begin(), params.end(),
                [](const auto& a, const auto& b) { return a.aux_1 < b.aux_1; });
      for (const std::size_t index : wanted) {
        if (index < params.size()) selection.params.push_back(params[index]);
      }
      EXPECT_EQ(side.log.get_trend_data(results[i], selection, periods, range, count, offset,
                                        ascending, true),
                0)
          << side.log.error();
    }
    EXPECT_EQ(print_rows(results[0]), print_rows(results[1]));
    if (!results[0].snapshots.empty()) last_time_ = results[0].snapshots.back().timestamp;
    return results[0].snapshots.size();
  }

  TemporaryFolder folder_;
  Side file_{folder_.file("trend.db")};
  Side archive_{server().make_archive()};
  std::time_t last_time_ = 0;
};

TEST_F(Engines, GiveTheSameResultsForRandomLogsAndQueries) {
  Random random(11);
  open();
  ASSERT_EQ(begin(), 0);
  for (int d = 0; d < 3; ++d) {
    add_device("/plant/" + std::to_string(d));
    for (std::uint32_t p = pick(random, 4); p > 0; --p) {
      add_param(static_cast<std::size_t>(d), "p" + std::to_string(p), pick(random, 32));
    }
    for (const std::uint32_t minutes : {5U, 15U, 60U}) {
      if (pick(random, 5) > 0) add_series(static_cast<std::size_t>(d), minutes);
    }
  }
  ASSERT_EQ(commit(), 0);
  std::size_t rows_seen = 0;
  int refused = 0;
  for (int round = 0; round < 40; ++round) {
    ASSERT_EQ(begin(), 0);
    bool is_open = true;
    if (pick(random, 4) == 0) {
      const std::size_t device = pick(random, 3);
      add_param(device, "late " + std::to_string(round), 1 + pick(random, 31));
    }
    const std::size_t series = pick(random, static_cast<std::uint32_t>(file_.series.size()));
    const std::int64_t length = 60 * std::int64_t{file_.series[series].minutes};
    std::int64_t time = length * (1 + pick(random, 400));
    const bool is_backwards = pick(random, 4) == 0;
    for (std::uint32_t i = pick(random, 120); i > 0 && is_open; --i) {
      std::vector<double> slots;
      for (std::uint32_t s = pick(random, 40); s > 0; --s) slots.push_back(random_value(random));
      is_open = append(series, time, slots) == 0;
      time += (is_backwards ? -length : length) * (pick(random, 10) == 0 ? 3 : 1);
      if (time <= 0) break;
    }
    if (!is_open) ++refused;
    if (is_open && pick(random, 8) == 0) {
      EXPECT_EQ(
          both([&](Side& side) { return side.recorder.purge(side.series[series], length * 50); }),
          0);
    }
    if (is_open && pick(random, 8) == 0) {
      is_open = both([&](Side& side) {
                  return side.recorder.remove_row(side.series[series], length * 100);
                }) == 0;
    }
    if (is_open) {
      ASSERT_EQ(commit(), 0);
    }
    if (round % 4 == 3) expect_same_catalogue();
    for (int query = 0; query < 12; ++query) {
      std::vector<std::size_t> params;
      for (std::uint32_t i = pick(random, 5); i > 0; --i) params.push_back(pick(random, 8));
      std::vector<CPeriodProperties> periods;
      for (const std::uint32_t minutes : {5U, 15U, 60U}) {
        if (pick(random, 3) > 0) periods.push_back({.interval = minutes});
      }
      const long first = pick(random, 3) == 0 ? -1 : static_cast<long>(pick(random, 400'000));
      const long last = pick(random, 3) == 0 ? -1 : static_cast<long>(pick(random, 800'000));
      rows_seen +=
          expect_same_rows(pick(random, 3), params, periods, {first, last},
                           pick(random, 3) == 0 ? 0 : pick(random, 60),
                           pick(random, 2) == 0 ? 0 : pick(random, 700), pick(random, 2) == 0);
      if (testing::Test::HasFailure()) return;
    }
  }
  EXPECT_GT(rows_seen, 4000U);
  EXPECT_GT(refused, 3);
}

TEST_F(Engines, ReadMoreRowsThanAPortionHas) {
  open();
  ASSERT_EQ(begin(), 0);
  add_device("d");
  add_param(0, "wide", 31);
  add_param(0, "other", 3);
  add_series(0, 1);
  add_series(0, 2);
  for (int i = 1; i <= 3000; ++i) {
    const double value = i;
    ASSERT_EQ(append(0, 60 * i, {value, -value, MISSING, 1 / value, 0, MISSING, value}), 0);
    if (i < 1000) {
      ASSERT_EQ(append(1, 180'000 + 120 * i, {value}), 0);
    }
  }
  ASSERT_EQ(commit(), 0);
  for (const bool ascending : {false, true}) {
    for (const unsigned offset : {0U, 1U, 511U, 512U, 513U, 1024U, 2999U, 3000U, 3500U, 5000U}) {
      for (const unsigned count : {0U, 1U, 512U, 1025U}) {
        expect_same_rows(0, {0, 1}, {{.interval = 1}}, {-1, -1}, count, offset, ascending);
        expect_same_rows(0, {1}, {{.interval = 1}, {.interval = 2}}, {-1, -1}, count, offset,
                         ascending);
      }
    }
  }
}

/// Programs read a range in many queries. The rows for the next one may be under way already when
/// somebody records among them.
TEST_F(Engines, GoOnFromQueryToQueryWhileSomebodyRecords) {
  open();
  ASSERT_EQ(begin(), 0);
  for (const std::size_t device : {0U, 1U}) {
    add_device(device == 0 ? "a" : "b");
    add_param(device, "p", 3);
    add_series(device, 1);
    add_series(device, 60);
    for (int i = 1; i <= 3000; ++i) {
      ASSERT_EQ(append(2 * device, 120 * i, {1.0 * i, -1.0 * i}), 0);
      if (i % 30 == 0) {
        ASSERT_EQ(append(2 * device + 1, 120 * i, {0.5 * i}), 0);
      }
    }
  }
  ASSERT_EQ(commit(), 0);
  std::mt19937 random(7);
  std::int64_t late = 60;
  for (const bool ascending : {false, true}) {
    for (const std::uint32_t finest : {1U, 60U}) {
      std::pair<long, long> range = {60, 400'000};
      for (unsigned count = 1;; count = 1 + pick(random, 700)) {
        const std::vector<CPeriodProperties> periods = {{.interval = finest}, {.interval = 60}};
        if (expect_same_rows(0, {0}, periods, range, count, 0, ascending) == 0) break;
        ASSERT_FALSE(HasFailure());
        (ascending ? range.first : range.second) = last_time_ + (ascending ? 1 : -1);
        if (pick(random, 3) == 0) expect_same_rows(1, {0}, periods, {-1, -1}, 600, 0, ascending);
        if (pick(random, 2) == 0) {
          late += 120 * (1 + static_cast<std::int64_t>(pick(random, 200)));
          ASSERT_EQ(begin(), 0);
          append(0, late % 360'000, {1e6});
          append(1, late % 360'000 + 1, {1e7});
          ASSERT_EQ(commit(), 0);
        }
      }
    }
  }
}

TEST_F(Engines, KeepTheLimitsOfTimesAndValues) {
  open();
  ASSERT_EQ(begin(), 0);
  add_device("");
  add_param(0, "all", 31);
  add_series(0, 4'294'967'295);
  add_series(0, 1);
  constexpr double TINY = std::numeric_limits<double>::denorm_min();
  constexpr double INFINITE = std::numeric_limits<double>::infinity();
  ASSERT_EQ(append(1, 1, {-0.0, TINY, -TINY, INFINITE, -INFINITE}), 0);
  ASSERT_EQ(append(1, (std::int64_t{1} << 40) - 1, {}), 0);
  ASSERT_EQ(append(0, 946'684'799, {MISSING, std::numeric_limits<double>::max()}), 0);
  ASSERT_EQ(commit(), 0);
  for (const bool ascending : {false, true}) {
    EXPECT_EQ(expect_same_rows(0, {0}, {{.interval = 1}}, {-1, -1}, 0, 0, ascending), 2U);
    EXPECT_EQ(expect_same_rows(0, {0}, {{.interval = 4'294'967'295}}, {-1, -1}, 0, 0, ascending),
              1U);
  }
  expect_same_catalogue();
}

TEST_F(Engines, RemoveSeriesAndDevices) {
  open();
  ASSERT_EQ(begin(), 0);
  add_device("a");
  add_device("b");
  add_param(0, "p", 1);
  add_series(0, 5);
  add_series(0, 60);
  add_series(1, 5);
  for (const std::size_t series : {0U, 1U, 2U}) ASSERT_EQ(append(series, 3600, {1.5}), 0);
  ASSERT_EQ(commit(), 0);
  ASSERT_EQ(begin(), 0);
  EXPECT_EQ(both([](Side& side) { return side.recorder.remove_series(side.series[1]); }), 0);
  ASSERT_EQ(commit(), 0);
  expect_same_catalogue();
  ASSERT_EQ(begin(), 0);
  EXPECT_EQ(both([](Side& side) { return side.recorder.remove_device(side.devices[0]); }), 0);
  ASSERT_EQ(commit(), 0);
  expect_same_catalogue();
  ASSERT_EQ(begin(), 0);
  EXPECT_EQ(both([](Side& side) { return side.recorder.remove_device(side.devices[0]); }), -1);
  ASSERT_EQ(begin(), 0);
  EXPECT_EQ(both([](Side& side) {
              return side.recorder.append(side.series[0], 7200, 1, std::vector<double>{1});
            }),
            -1);
}

}  // namespace
}  // namespace toolkit::trend
