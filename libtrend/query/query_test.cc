#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "tests/support/process.h"

namespace toolkit::trend {
namespace {

constexpr bool OLDEST_FIRST = true;
constexpr bool NEWEST_FIRST = false;
constexpr std::pair<long, long> ALL_TIMES = {-1, -1};

/// What identifies a row.
struct Row {
  std::uint32_t minutes = 0;
  std::int64_t timestamp = 0;
  friend bool operator==(const Row&, const Row&) = default;
  friend void PrintTo(const Row& row, std::ostream* out) {
    *out << row.timestamp << '/' << row.minutes;
  }
};

/// The timestamps of a device's rows by interval.
using Rows = std::map<std::uint32_t, std::set<std::int64_t>>;

/// The expected result of a query, found by comparing each row with all others.
std::vector<Row> expected_rows(const Rows& rows, const std::vector<std::uint32_t>& selected,
                               std::pair<long, long> range, unsigned count, unsigned offset,
                               bool ascending) {
  const std::set<std::uint32_t> intervals(selected.begin(), selected.end());
  std::vector<Row> result;
  for (const std::uint32_t minutes : intervals) {
    if (!rows.contains(minutes)) continue;
    for (const std::int64_t time : rows.at(minutes)) {
      bool hidden = false;
      for (const std::uint32_t finer : intervals) {
        if (finer >= minutes || !rows.contains(finer)) continue;
        for (const std::int64_t t : rows.at(finer)) {
          if (time - std::int64_t{60} * minutes < t && t <= time) hidden = true;
        }
      }
      const bool in_range = (range.first == -1 || time >= range.first) &&
                            (range.second == -1 || time <= range.second);
      if (!hidden && in_range) result.push_back({minutes, time});
    }
  }
  std::sort(result.begin(), result.end(), [&](const Row& a, const Row& b) {
    return ascending ? a.timestamp < b.timestamp : a.timestamp > b.timestamp;
  });
  result.erase(result.begin(),
               result.begin() + std::min<std::ptrdiff_t>(offset, std::ssize(result)));
  if (count != 0 && result.size() > count) result.resize(count);
  return result;
}

/// A database with one device that has one parameter, whose value encodes interval and time.
class Query : public testing::Test {
 protected:
  void record(const Rows& rows) {
    CRecorder recorder;
    ASSERT_EQ(recorder.open(folder_.file("trend.db")), 0) << recorder.error();
    ASSERT_EQ(recorder.begin(), 0);
    CDeviceProperties other{.path = "other", .aux_text = ""};
    ASSERT_EQ(recorder.add_device(other), 0);
    ASSERT_EQ(recorder.add_device(device_.device), 0);
    CParamProperties param{.path = "level", .has_actual = true};
    ASSERT_EQ(recorder.add_param(device_.device, param), 0);
    device_.params = {param};
    for (const auto& [minutes, times] : rows) {
      // Another device, with rows at other times that must not appear.
      CSeries foreign;
      ASSERT_EQ(recorder.add_series(other, minutes, foreign), 0);
      CSeries series;
      ASSERT_EQ(recorder.add_series(device_.device, minutes, series), 0);
      for (const std::int64_t time : times) {
        const double value = static_cast<double>(time) + minutes / 1e6;
        ASSERT_EQ(recorder.append(series, time, 1, std::vector<double>{value}), 0)
            << recorder.error();
        ASSERT_EQ(recorder.append(foreign, time > 1 ? time - 1 : 2, 1, std::vector<double>{-1}), 0);
      }
    }
    ASSERT_EQ(recorder.commit(), 0) << recorder.error();
    ASSERT_EQ(log_.open(folder_.file("trend.db"), true, false, 40, false, 0, 0, 0, false), 0);
  }

  std::vector<Row> query(const std::vector<std::uint32_t>& intervals, std::pair<long, long> range,
                         unsigned count, unsigned offset, bool ascending) {
    std::vector<CPeriodProperties> periods;
    for (const std::uint32_t minutes : intervals) periods.push_back({.interval = minutes});
    CDeviceData data;
    EXPECT_EQ(log_.get_trend_data(data, device_, periods, range, count, offset, ascending, true),
              0);
    std::vector<Row> rows;
    for (const CSnapshot& snapshot : data.snapshots) {
      rows.push_back({snapshot.interval_minutes, snapshot.timestamp});
      EXPECT_EQ(snapshot.samples.at(0).actual,
                static_cast<double>(snapshot.timestamp) + snapshot.interval_minutes / 1e6);
    }
    return rows;
  }

  TemporaryFolder folder_;
  CDeviceParams device_{.device = {.path = "device", .aux_text = ""}, .params = {}};
  CLog log_;
};

TEST_F(Query, HidesARowIfAFinerRowEndsInItsInterval) {
  record({{5, {3300, 3600}}, {60, {3600, 7200}}});
  EXPECT_EQ(query({5, 60}, ALL_TIMES, 0, 0, OLDEST_FIRST),
            (std::vector<Row>{{5, 3300}, {5, 3600}, {60, 7200}}));
  EXPECT_EQ(query({60}, ALL_TIMES, 0, 0, OLDEST_FIRST), (std::vector<Row>{{60, 3600}, {60, 7200}}));
}

TEST_F(Query, ExcludesTheStartOfAnIntervalAndIncludesItsEnd) {
  record({{5, {3600, 14400}}, {60, {7200, 14400}}});
  EXPECT_EQ(query({5, 60}, ALL_TIMES, 0, 0, OLDEST_FIRST),
            (std::vector<Row>{{5, 3600}, {60, 7200}, {5, 14400}}));
}

TEST_F(Query, LetsHiddenRowsHideOthers) {
  // The five-minute row is outside the day, so it hides only the hourly row. The hidden hourly row
  // still hides the daily row.
  record({{5, {86100}}, {60, {88200}}, {1440, {172800}}});
  EXPECT_EQ(query({5, 60, 1440}, ALL_TIMES, 0, 0, NEWEST_FIRST), (std::vector<Row>{{5, 86100}}));
  EXPECT_EQ(query({5, 1440}, ALL_TIMES, 0, 0, NEWEST_FIRST),
            (std::vector<Row>{{1440, 172800}, {5, 86100}}));
}

TEST_F(Query, LetsRowsOutsideTheRangeHideOthers) {
  record({{5, {3300}}, {60, {3600}}});
  for (const bool ascending : {OLDEST_FIRST, NEWEST_FIRST}) {
    EXPECT_EQ(query({5, 60}, {3301, -1}, 0, 0, ascending), std::vector<Row>{});
    EXPECT_EQ(query({5, 60}, {3600, 3600}, 0, 0, ascending), std::vector<Row>{});
  }
}

TEST_F(Query, CountsRepeatedIntervalsOnce) {
  record({{5, {300, 600}}, {60, {7200}}});
  EXPECT_EQ(query({60, 5, 5, 60, 5}, ALL_TIMES, 0, 0, NEWEST_FIRST),
            (std::vector<Row>{{60, 7200}, {5, 600}, {5, 300}}));
}

TEST_F(Query, ReturnsNoRowsWithoutIntervals) {
  record({{5, {300}}});
  EXPECT_EQ(query({}, ALL_TIMES, 0, 0, NEWEST_FIRST), std::vector<Row>{});
  EXPECT_EQ(query({7}, ALL_TIMES, 0, 0, NEWEST_FIRST), std::vector<Row>{});
}

TEST_F(Query, ReturnsTwoSamplesForAParameterNamedTwice) {
  record({{5, {300}}});
  device_.params.push_back(device_.params.front());
  CDeviceData data;
  ASSERT_EQ(log_.get_trend_data(data, device_, {{.interval = 5}}, ALL_TIMES, 0, 0, false, true), 0);
  ASSERT_EQ(data.snapshots.size(), 1U);
  EXPECT_EQ(data.snapshots[0].samples.size(), 2U);
  EXPECT_EQ(data.snapshots[0].samples[1].actual, data.snapshots[0].samples[0].actual);
}

TEST_F(Query, ReturnsNoRowsIfTheRangeEndsBeforeItStarts) {
  record({{5, {300, 600, 900}}});
  EXPECT_EQ(query({5}, {601, 600}, 0, 0, OLDEST_FIRST), std::vector<Row>{});
  EXPECT_EQ(query({5}, {900, 300}, 0, 0, NEWEST_FIRST), std::vector<Row>{});
}

TEST_F(Query, IncludesBothBounds) {
  record({{5, {300, 600, 900}}});
  EXPECT_EQ(query({5}, {300, 600}, 0, 0, OLDEST_FIRST), (std::vector<Row>{{5, 300}, {5, 600}}));
  EXPECT_EQ(query({5}, {301, 599}, 0, 0, OLDEST_FIRST), std::vector<Row>{});
}

TEST_F(Query, AcceptsTheLimitsOfLong) {
  constexpr long LEAST = std::numeric_limits<long>::min();
  constexpr long MOST = std::numeric_limits<long>::max();
  record({{5, {1, 300}}, {60, {3600}}});
  const std::vector<Row> all = {{5, 1}, {5, 300}};
  for (const auto& range : std::vector<std::pair<long, long>>{
           {LEAST, MOST}, {-2, MOST}, {0, MOST}, {1, MOST}, {-1, MOST}, {LEAST, -1}, {1, -1}}) {
    EXPECT_EQ(query({5, 60}, range, 0, 0, OLDEST_FIRST), all) << range.first << ' ' << range.second;
  }
  for (const auto& range : std::vector<std::pair<long, long>>{
           {MOST, LEAST}, {MOST, MOST}, {LEAST, LEAST}, {-5, -2}, {LEAST, 0}, {MOST, -1}}) {
    for (const bool ascending : {OLDEST_FIRST, NEWEST_FIRST}) {
      EXPECT_EQ(query({5, 60}, range, 0, 0, ascending), std::vector<Row>{})
          << range.first << ' ' << range.second;
    }
  }
}

TEST_F(Query, LeavesOutTimesThatDoNotFitIntoTimeT) {
  constexpr std::int64_t AFTER_32_BITS = std::int64_t{1} << 31;
  constexpr std::int64_t LAST = (std::int64_t{1} << 40) - 1;
  record({{5, {300, AFTER_32_BITS - 1, AFTER_32_BITS, LAST}}});
  std::vector<Row> expected = {{5, 300}, {5, AFTER_32_BITS - 1}};
  if (sizeof(std::time_t) > 4) {
    expected.push_back({5, AFTER_32_BITS});
    expected.push_back({5, LAST});
  }
  EXPECT_EQ(query({5}, ALL_TIMES, 0, 0, OLDEST_FIRST), expected);
  std::reverse(expected.begin(), expected.end());
  EXPECT_EQ(query({5}, ALL_TIMES, 0, 0, NEWEST_FIRST), expected);
}

TEST_F(Query, AcceptsIntervalsLongerThanAnyTimestamp) {
  constexpr std::uint32_t LONGEST = std::numeric_limits<std::uint32_t>::max();
  record({{5, {300}}, {71582789, {900}}, {LONGEST, {200, 1200}}});
  EXPECT_EQ(query({5, 71582789, LONGEST}, ALL_TIMES, 0, 0, OLDEST_FIRST),
            (std::vector<Row>{{LONGEST, 200}, {5, 300}}));
  EXPECT_EQ(query({71582789, LONGEST}, {200, 900}, 0, 0, NEWEST_FIRST),
            (std::vector<Row>{{71582789, 900}, {LONGEST, 200}}));
}

TEST_F(Query, ReturnsNothingForAnOffsetBeyondTheRows) {
  record({{5, {300, 600}}});
  EXPECT_EQ(query({5}, ALL_TIMES, 1, 2, OLDEST_FIRST), std::vector<Row>{});
  EXPECT_EQ(query({5}, ALL_TIMES, 0, std::numeric_limits<unsigned>::max(), NEWEST_FIRST),
            std::vector<Row>{});
  EXPECT_EQ(query({5}, ALL_TIMES, std::numeric_limits<unsigned>::max(), 1, NEWEST_FIRST),
            (std::vector<Row>{{5, 300}}));
}

/// Rows of several intervals, which need not be multiples of each other. They are kept for
/// different lengths of time; some are missing, and some end at unusual times.
Rows random_rows(std::mt19937& random) {
  const auto pick = [&](int from, int to) {
    return std::uniform_int_distribution<int>(from, to)(random);
  };
  static constexpr std::uint32_t INTERVALS[] = {1, 2, 3, 5, 7, 15, 60};
  Rows rows;
  const int series = pick(1, 4);
  for (int i = 0; i < series; ++i) {
    const std::uint32_t minutes = INTERVALS[pick(0, 6)];
    const int first = pick(0, 120);
    const int last = pick(first, 130);
    const int missing = pick(0, 3) * 25;
    const bool aligned = pick(0, 3) != 0;
    for (int minute = first; minute <= last; ++minute) {
      if (minute == 0 || (aligned && minute % static_cast<int>(minutes) != 0)) continue;
      if (pick(0, 99) < missing) continue;
      rows[minutes].insert(60 * minute + (aligned ? 0 : pick(-59, 59)));
    }
  }
  rows[5].insert(6000);
  return rows;
}

TEST_F(Query, FollowsTheRuleOnRandomLogs) {
  std::mt19937 random(20240229);
  const auto pick = [&](int from, int to) {
    return std::uniform_int_distribution<int>(from, to)(random);
  };
  for (int log = 0; log < 60; ++log) {
    std::filesystem::remove_all(folder_.path() / "trend.db");
    log_.close();
    const Rows rows = random_rows(random);
    record(rows);
    for (int i = 0; i < 100; ++i) {
      std::vector<std::uint32_t> intervals;
      for (const auto& [minutes, times] : rows) {
        if (pick(0, 3) != 0) intervals.push_back(minutes);
      }
      const std::pair<long, long> range = {pick(0, 2) == 0 ? -1 : pick(-100, 8000),
                                           pick(0, 2) == 0 ? -1 : pick(-100, 8000)};
      const auto count = static_cast<unsigned>(pick(0, 20));
      const auto offset = static_cast<unsigned>(pick(0, 1) * pick(0, 20));
      const bool ascending = pick(0, 1) == 1;
      ASSERT_EQ(query(intervals, range, count, offset, ascending),
                expected_rows(rows, intervals, range, count, offset, ascending))
          << "log " << log << " query " << i;
    }
  }
}

TEST_F(Query, ReturnsTheSameRowsInPagesOfAnySize) {
  std::mt19937 random(7);
  for (int log = 0; log < 20; ++log) {
    std::filesystem::remove_all(folder_.path() / "trend.db");
    log_.close();
    const Rows rows = random_rows(random);
    record(rows);
    std::vector<std::uint32_t> intervals;
    for (const auto& [minutes, times] : rows) intervals.push_back(minutes);
    for (const bool ascending : {OLDEST_FIRST, NEWEST_FIRST}) {
      const std::vector<Row> all = query(intervals, ALL_TIMES, 0, 0, ascending);
      for (const unsigned page : {1U, 2U, 3U, 10U, 1000U}) {
        std::vector<Row> walked;
        std::pair<long, long> range = ALL_TIMES;
        for (;;) {
          const std::vector<Row> chunk = query(intervals, range, page, 0, ascending);
          walked.insert(walked.end(), chunk.begin(), chunk.end());
          if (chunk.size() < page) break;
          const long last = static_cast<long>(chunk.back().timestamp);
          (ascending ? range.first : range.second) = ascending ? last + 1 : last - 1;
        }
        ASSERT_EQ(walked, all) << "pages of " << page;
      }
    }
  }
}

}  // namespace
}  // namespace toolkit::trend
